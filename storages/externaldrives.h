// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_EXTERNALDRIVES_H
#define PLINTHD_EXTERNALDRIVES_H

#include "dbustypes.h"

#include <QMap>
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
// Every query and every announcement builds its picture afresh, in locals,
// from a copy of the partition list (PartitionManager guards its own list), so
// nothing here is shared between threads; externalTotalBytes is used by the
// slots alone, on the main thread.
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
        QMap<QString, QVariantMap> drives; // by drive key
    };

    static Picture buildPicture(const QVector<Partition> &partitions);
    static QString driveKey(const QString &deviceName);
    Picture rebuild();
    void announce(const Picture &picture, const Partition &changed);

    PartitionManager *const partitionManager;
    qint64 externalTotalBytes = 0;
};

#endif // PLINTHD_EXTERNALDRIVES_H
