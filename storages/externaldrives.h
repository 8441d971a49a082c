// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_EXTERNALDRIVES_H
#define PLINTHD_EXTERNALDRIVES_H

#include "dbustypes.h"

#include <QMap>
#include <QMutex>
#include <QObject>
#include <QVariantMap>
#include <QVector>

#include <partition.h>

class PartitionManager;

// The grouped picture of the external (removable) partitions: the summary
// map, the partitions of each drive and the drive maps; and the signals that
// announce it when a card or stick comes or goes. The partition manager's
// notifications arrive on the main thread; the queries come from workers,
// serialised by their caller for its use of the partition manager, which it
// refreshes first.
//
// Locking: pictureLock guards externalStorageInfo, partitionsByDrive and
// driveMaps. A rebuild computes the new picture in locals, from a copy of the
// partition list (PartitionManager guards its own list), and takes this lock
// only to swap the three maps in and to copy out what it answers or
// announces. Nothing slow ever runs under it, so the slots wait at most for a
// few map copies and a change is announced at once even while a long query
// runs. externalTotalBytes is read and written by the slots only, on the main
// thread, and needs no lock.
class ExternalDrives : public QObject
{
    Q_OBJECT

public:
    // `partitionManager` must outlive this object.
    ExternalDrives(PartitionManager *partitionManager, QObject *parent);

    QVariantMap summary();
    QVariantMapList drives();

signals:
    void externalStorageChanged(QVariantMap updatedStorage);
    void externalDriveChanged(QVariantMap externalDriveInfo);

private slots:
    void partitionAdded(const Partition &partition);
    void storageAdded(const Partition &partition);
    void partitionRemoved(const Partition &partition);

private:
    struct Picture
    {
        QVariantMap summary;
        QMap<QString, QVector<Partition>> partitionsByDrive;
        QMap<QString, QVariantMap> drives;
    };

    static Picture buildPicture(const QVector<Partition> &partitions);
    static QString driveKey(const QString &deviceName);
    Picture rebuild();
    void publish(const Picture &picture);
    void assignPicture(const Picture &picture);
    void announce(const Picture &picture, const Partition &changed);

    PartitionManager *const partitionManager;
    qint64 externalTotalBytes = 0;
    QVariantMap externalStorageInfo;
    QMap<QString, QVector<Partition>> partitionsByDrive;
    QMap<QString, QVariantMap> driveMaps;
    QMutex pictureLock;
};

#endif // PLINTHD_EXTERNALDRIVES_H
