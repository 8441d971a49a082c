// SPDX-License-Identifier: BSD-3-Clause
#include "partitionmanager.h"

#include "mountmonitor.h"
#include "platformlogging.h"
#include "mounttable.h"
#include "partition_p.h"
#include "partitionscanner.h"
#include "udevmonitor.h"

#include <QHash>
#include <QSet>

namespace {

bool inMountTable(const Partition &partition)
{
    return partition.status() != Partition::Unmounted;
}

} // namespace

PartitionManager::PartitionManager(QObject *parent)
    : PartitionManager(MountTable::kernelTablePath(), parent)
{
}

PartitionManager::PartitionManager(const QString &mountTablePath, QObject *parent)
    : QObject(parent)
    , m_mountTablePath(mountTablePath)
{
    qRegisterMetaType<Partition>("Partition");
    m_udevMonitor = new UdevMonitor(this);
    connect(m_udevMonitor, &UdevMonitor::changed, this, &PartitionManager::rescan);
    if (m_mountTablePath == MountTable::kernelTablePath()) {
        m_mountMonitor = new MountMonitor(this);
        connect(m_mountMonitor, &MountMonitor::changed, this, &PartitionManager::rescan);
    }
    // What exists at start is the starting point, not news.
    refresh();
    m_announced = partitions();
}

PartitionManager::~PartitionManager() = default;

QVector<Partition> PartitionManager::partitions(Partition::StorageTypes types) const
{
    QVector<Partition> all;
    {
        QMutexLocker locker(&m_lock);
        all = m_partitions;
    }
    if ((types & Partition::Any) == Partition::Any)
        return all;
    QVector<Partition> selected;
    for (const Partition &partition : qAsConst(all)) {
        if (partition.storageType() & types)
            selected.append(partition);
    }
    return selected;
}

void PartitionManager::refresh()
{
    const quint64 generation = ++m_nextGeneration;
    store(PartitionScanner::scan(m_mountTablePath), generation);
}

void PartitionManager::rescan()
{
    refresh();
    announce(partitions());
}

void PartitionManager::store(const QVector<Partition> &partitions, quint64 generation)
{
    QMutexLocker locker(&m_lock);
    if (generation < m_storedGeneration)
        return;
    m_partitions = m_storedGeneration == 0 ? partitions : withoutUnprobedArrivals(partitions, m_partitions);
    m_storedGeneration = generation;
}

// udev announces a new disk before it has probed the disk's partitions, whose
// kernel devices exist by then: listing them at that point would tell the
// clients about nameless partitions, and the later event that brings the
// label changes nothing the signals report. A partition that was not listed
// before is therefore left out until udev has finished with it (its own event
// follows). What was there at start is listed as it is, and a mounted
// partition is real whatever udev says.
QVector<Partition> PartitionManager::withoutUnprobedArrivals(const QVector<Partition> &scanned,
                                                             const QVector<Partition> &listed)
{
    QSet<QString> known;
    for (const Partition &partition : listed)
        known.insert(partition.d->key);
    QVector<Partition> kept;
    kept.reserve(scanned.size());
    for (const Partition &partition : scanned) {
        if (partition.d->probed || inMountTable(partition) || known.contains(partition.d->key))
            kept.append(partition);
        else
            qCDebug(lcPartitions) << "Partition" << partition.deviceName() << "waits for udev's probe";
    }
    return kept;
}

void PartitionManager::announce(const QVector<Partition> &current)
{
    if (lcPartitions().isDebugEnabled()) {
        for (const Partition &partition : current) {
            qCDebug(lcPartitions) << "Partition" << partition.deviceName() << "types"
                                  << int(partition.storageType()) << "status" << partition.status()
                                  << "at" << partition.mountPath();
        }
    }
    QHash<QString, Partition> before;
    for (const Partition &partition : qAsConst(m_announced))
        before.insert(partition.d->key, partition);
    const QVector<Partition> previous = m_announced;
    m_announced = current;

    for (const Partition &partition : current) {
        const auto found = before.constFind(partition.d->key);
        if (found == before.constEnd()) {
            qCDebug(lcPartitions) << "Partition added:" << partition.deviceName();
            emit partitionAdded(partition);
            if (inMountTable(partition))
                emit storageAdded(partition);
            continue;
        }
        const Partition &old = found.value();
        if (inMountTable(partition)
                && (!inMountTable(old) || old.mountPath() != partition.mountPath())) {
            emit storageAdded(partition);
        } else if (!inMountTable(partition) && inMountTable(old)) {
            emit partitionAdded(partition);
        }
        before.remove(partition.d->key);
    }
    // In the order they were listed, not the hash's.
    for (const Partition &partition : previous) {
        if (before.contains(partition.d->key))
            emit partitionRemoved(partition);
    }
}
