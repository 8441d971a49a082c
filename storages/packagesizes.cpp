// SPDX-License-Identifier: BSD-3-Clause
#include "packagesizes.h"

#include "folderwatches.h"
#include "rpmlibrary.h"

#include <QFile>

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <rpm/header.h>
#include <rpm/rpmlib.h>

using RpmLibrary::Iterator;
using RpmLibrary::TagData;
using RpmLibrary::TransactionSet;

namespace {

// What writing packages does to the database's files.
constexpr quint32 DatabaseWrites = IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
// The folder itself went: what was watched is not the database any more.
constexpr quint32 FolderGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

bool endsWith(const std::string &text, const char *suffix)
{
    const std::string tail(suffix);
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Files that readers write as well as writers: the locks, the shared-memory
// index of the write-ahead log (sqlite), the environment's region files
// (Berkeley DB). A change of packages always writes the database's own files
// or the log beside them too.
bool writtenByReaders(const std::string &name)
{
    return endsWith(name, "-shm") || name == ".rpm.lock" || name == ".dbenv.lock" || name.rfind("__db.", 0) == 0;
}

} // namespace

PackageSizes::PackageSizes(FolderWatches &watches)
    : m_watches(watches)
{
    m_watches.subscribe(this);
}

PackageSizes::~PackageSizes()
{
    m_watches.unsubscribe(this);
}

quint64 PackageSizes::sum(const QString &namePattern)
{
    std::lock_guard<std::mutex> lock(m_lock);
    forgetWhatChanged();
    if (m_watch < 0)
        watchDatabase();
    if (m_watch >= 0) {
        const auto kept = m_sums.constFind(namePattern);
        if (kept != m_sums.constEnd())
            return kept.value();
    }
    // Watched before it is read: a change made from now on drops the sum.
    const quint64 total = read(namePattern);
    ++m_reads;
    if (m_watch >= 0)
        m_sums.insert(namePattern, total);
    return total;
}

quint64 PackageSizes::reads() const
{
    std::lock_guard<std::mutex> lock(m_lock);
    return m_reads;
}

// With the lock held.
void PackageSizes::forgetWhatChanged()
{
    bool changed = false;
    for (const FolderWatches::Notice &notice : m_watches.take(this)) {
        switch (notice.kind) {
        case FolderWatches::Kind::Overflow:
        case FolderWatches::Kind::Mount: // may hide the folder or show another
            changed = true;
            break;
        case FolderWatches::Kind::Folder:
            if (notice.mask & FolderGone) {
                changed = true;
                if (m_watch >= 0)
                    m_watches.unwatch(m_watch, this, this);
                m_watch = -1;
            } else if ((notice.mask & DatabaseWrites) && !writtenByReaders(notice.name)) {
                changed = true;
            }
            break;
        }
    }
    if (changed)
        m_sums.clear();
}

// With the lock held.
void PackageSizes::watchDatabase()
{
    QString folder;
    {
        const RpmLibrary::Use library;
        folder = library.databaseFolder();
    }
    if (folder.isEmpty())
        return;
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    m_watch = m_watches.watch(fd, this, this);
    ::close(fd);
    m_sums.clear();
}

quint64 PackageSizes::read(const QString &namePattern)
{
    // Without a database there is nothing to sum, and opening one would
    // create it.
    const RpmLibrary::Use library;
    if (!library.hasDatabase())
        return 0;

    TransactionSet transactionSet(rpmtsCreate());
    if (!transactionSet)
        return 0;
    rpmtsSetRootDir(transactionSet.get(), nullptr);
    // A size sum has no use for the digest and signature checks of every
    // header; they cost about half of the library's time per header.
    rpmtsSetVSFlags(transactionSet.get(), RPMVSF_NOHDRCHK | _RPMVSF_NODIGESTS | _RPMVSF_NOSIGNATURES);

    Iterator iterator(rpmtsInitIterator(transactionSet.get(), RPMDBI_PACKAGES, nullptr, 0));
    if (!iterator)
        return 0;
    const QByteArray pattern = namePattern.toUtf8();
    rpmdbSetIteratorRE(iterator.get(), RPMTAG_NAME, RPMMIRE_DEFAULT, pattern.constData());

    quint64 total = 0;
    // Headers belong to the iterator.
    while (Header header = rpmdbNextIterator(iterator.get())) {
        TagData size(rpmtdNew());
        if (headerGet(header, RPMTAG_SIZE, size.get(), HEADERGET_EXT)) {
            if (const uint32_t *value = rpmtdGetUint32(size.get()))
                total += *value;
        }
    }
    return total;
}
