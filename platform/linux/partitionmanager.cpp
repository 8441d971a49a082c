#include "partitionmanager.h"

#include "mountmonitor.h"
#include "partitionlogging.h"
#include "mounttable.h"
#include "partition_p.h"
#include "partitionscanner.h"
#include "udevmonitor.h"

#include <QHash>

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
    m_partitions = partitions;
    m_storedGeneration = generation;
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
