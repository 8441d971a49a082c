// SPDX-License-Identifier: BSD-3-Clause
#include "mounttable.h"

#include "sourcelock.h"
#include "storagelogging.h"

#include <QFile>

#include <libmount/libmount.h>

#include <memory>

namespace {

struct TableDeleter
{
    void operator()(libmnt_table *table) const { mnt_unref_table(table); }
};
struct IterDeleter
{
    void operator()(libmnt_iter *iter) const { mnt_free_iter(iter); }
};

// A broken line must not cost the rest of the table: say so and go on.
int skipBrokenLine(libmnt_table *, const char *filename, int line)
{
    qCDebug(lcPartitions) << "Skipping unparsable line" << line << "of" << filename;
    return 1;
}

QString text(const char *value)
{
    return value ? QString::fromLocal8Bit(value) : QString();
}

} // namespace

QString MountTable::kernelTablePath()
{
    return QStringLiteral("/proc/self/mountinfo");
}

QVector<MountEntry> MountTable::read(const QString &path)
{
    QVector<MountEntry> entries;
    QMutexLocker locker(&partitionSourceLock());
    std::unique_ptr<libmnt_table, TableDeleter> table(mnt_new_table());
    if (!table)
        return entries;
    mnt_table_set_parser_errcb(table.get(), skipBrokenLine);
    if (mnt_table_parse_file(table.get(), QFile::encodeName(path).constData()) != 0) {
        qCWarning(lcPartitions) << "Can't read file" << path;
        return entries;
    }

    std::unique_ptr<libmnt_iter, IterDeleter> iter(mnt_new_iter(MNT_ITER_FORWARD));
    if (!iter)
        return entries;
    libmnt_fs *fs = nullptr;
    while (mnt_table_next_fs(table.get(), iter.get(), &fs) == 0) {
        MountEntry entry;
        entry.source = text(mnt_fs_get_source(fs));
        entry.target = text(mnt_fs_get_target(fs));
        entry.fsType = text(mnt_fs_get_fstype(fs));
        entry.fsRoot = text(mnt_fs_get_root(fs));
        entry.devno = mnt_fs_get_devno(fs);
        if (entry.target.isEmpty())
            continue;
        entries.append(entry);
    }
    return entries;
}
