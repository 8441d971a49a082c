// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_MOUNTTABLE_H
#define PLINTHD_MOUNTTABLE_H

#include <QString>
#include <QVector>

#include <sys/types.h>

// One line of a mountinfo table, with libmount's unescaping applied.
struct MountEntry
{
    QString source;   // "/dev/mmcblk1p1", "overlay", "tmpfs", ...
    QString target;   // the mount path
    QString fsType;
    QString fsRoot;   // the directory of the file system that is mounted; "/" unless a bind mount
    dev_t devno = 0;  // major:minor of the file system (0 major for virtual ones)
};

// Reads a table in the kernel's mountinfo format. Lines libmount cannot parse
// are skipped; an unreadable file gives an empty table.
class MountTable
{
public:
    static QString kernelTablePath();
    static QVector<MountEntry> read(const QString &path);
};

#endif // PLINTHD_MOUNTTABLE_H
