// SPDX-License-Identifier: BSD-3-Clause
#include "partitionmanager.h"

#include "layoutcache.h"
#include "mountmonitor.h"
#include "mounttable.h"
#include "partition_p.h"
#include "partitionscanner.h"
#include "storagelogging.h"
#include "udevmonitor.h"

#include <QHash>
#include <QSet>
#include <QSocketNotifier>
#include <QTimer>

#include <pthread.h>

#include <system_error>
#include <thread>

namespace {

// When no thread can be started for a scan (the process is at its limit),
// the scan is tried again after this long; the monitors wait meanwhile.
constexpr int ScanRetryMilliseconds = 1000;

// How the scan thread shows in ps and top (at most 15 characters).
const char *const ScanThreadName = "partitionscan";

bool inMountTable(const Partition &partition)
{
    return partition.status() != Partition::Unmounted;
}

struct ScanResult
{
    // False when the monitors had nothing after all: no scan was made.
    bool changed = false;
    QVector<Partition> partitions;
    quint64 generation = 0;
};

} // namespace

// What a scan reads: the two monitors whose events are announced, which the
// scan drains first, and the layout, which it measures.
class PartitionManager::ScanSources
{
public:
    explicit ScanSources(const QString &mountTablePath)
        : layout(mountTablePath)
    {
        if (udev.descriptor() < 0)
            qCWarning(lcPartitions) << "Can't watch block devices; drive changes will not be noticed";
        // A fixture file is not watched (see the constructor's comment).
        if (mountTablePath == MountTable::kernelTablePath()) {
            mounts = std::make_unique<MountMonitor>();
            if (mounts->descriptor() < 0)
                qCWarning(lcPartitions) << "Can't watch the mount table; mounts will not be noticed";
        }
    }

    // Whether either monitor had anything to tell.
    bool drain()
    {
        const bool udevChanged = udev.drain();
        const bool mountsChanged = mounts && mounts->drain();
        return udevChanged || mountsChanged;
    }

    QVector<Partition> scan() { return PartitionScanner::measure(layout.current()); }

    UdevMonitor udev;
    std::unique_ptr<MountMonitor> mounts;
    LayoutCache layout;
};

// Where a scan thread leaves its result for the manager's thread, and tells
// it so with a queued call. The result changes hands under the lock, which
// is held only to put it in or take it out (one scan runs at a time, so one
// place is enough). The manager closes the mailbox before it goes: a result
// left after that is dropped, and a call queued before goes with the
// manager's pending events.
class PartitionManager::ScanMailbox
{
public:
    explicit ScanMailbox(PartitionManager *manager)
        : m_manager(manager)
    {
    }

    void post(const ScanResult &result)
    {
        QMutexLocker locker(&m_lock);
        PartitionManager *manager = m_manager;
        if (!manager)
            return;
        m_result = result;
        // Queued by name, so that the call is made up by Qt alone: the scan
        // thread hands the manager's thread nothing but what the lock guards.
        // (ThreadSanitizer cannot see the ordering of Qt's event queue, and a
        // functor made here and run there looked like a race to it.)
        QMetaObject::invokeMethod(manager, "finishScan", Qt::QueuedConnection);
    }

    ScanResult take()
    {
        QMutexLocker locker(&m_lock);
        ScanResult result = m_result;
        m_result = ScanResult();
        return result;
    }

    void close()
    {
        QMutexLocker locker(&m_lock);
        m_manager = nullptr;
        m_result = ScanResult();
    }

private:
    QMutex m_lock;
    PartitionManager *m_manager;
    ScanResult m_result;
};

PartitionManager::PartitionManager(QObject *parent)
    : PartitionManager(MountTable::kernelTablePath(), parent)
{
}

PartitionManager::PartitionManager(const QString &mountTablePath, QObject *parent)
    : QObject(parent)
    , m_sources(std::make_shared<ScanSources>(mountTablePath))
    , m_mailbox(std::make_shared<ScanMailbox>(this))
{
    qRegisterMetaType<Partition>("Partition");
    watch(m_sources->udev.descriptor());
    if (m_sources->mounts)
        watch(m_sources->mounts->descriptor());
    // What exists at start is the starting point, not news.
    refresh();
    m_announced = partitions();
}

PartitionManager::~PartitionManager()
{
    m_mailbox->close();
    // A notifier must not outlive its descriptor, which goes with the
    // sources when no scan holds them any more.
    qDeleteAll(m_notifiers);
}

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
    store(m_sources->scan(), generation);
}

void PartitionManager::watch(int descriptor)
{
    if (descriptor < 0)
        return;
    auto *notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this, notifier] { noticeChange(notifier); });
    m_notifiers.append(notifier);
}

// The descriptor stays readable until the scan has drained its monitor, so
// its notifier is switched off meanwhile. Events of either monitor that come
// while a scan runs are drained by the next one, which starts once this one
// is back and the notifiers are on again.
void PartitionManager::noticeChange(QSocketNotifier *notifier)
{
    notifier->setEnabled(false);
    if (m_scanning)
        return;
    m_scanning = true;
    startScan();
}

// Not on the query pool, where a scan would wait behind directory walks, and
// detached: a scan stuck on a medium holds up neither this thread nor the
// manager's deletion. It holds what it uses and leaves the manager alone.
void PartitionManager::startScan()
{
    const quint64 generation = ++m_nextGeneration;
    const std::shared_ptr<ScanSources> sources = m_sources;
    const std::shared_ptr<ScanMailbox> mailbox = m_mailbox;
    try {
        std::thread([sources, mailbox, generation] {
            pthread_setname_np(pthread_self(), ScanThreadName);
            ScanResult result;
            result.generation = generation;
            result.changed = sources->drain();
            if (result.changed)
                result.partitions = sources->scan();
            mailbox->post(result);
        }).detach();
    } catch (const std::system_error &error) {
        qCWarning(lcPartitions) << "Can't start a thread to scan the partitions:" << error.what();
        QTimer::singleShot(ScanRetryMilliseconds, this, &PartitionManager::startScan);
    }
}

void PartitionManager::finishScan()
{
    const ScanResult result = m_mailbox->take();
    m_scanning = false;
    for (QSocketNotifier *notifier : qAsConst(m_notifiers))
        notifier->setEnabled(true);
    if (!result.changed)
        return;
    store(result.partitions, result.generation);
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
