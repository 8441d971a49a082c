// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTS_MOUNTNAMESPACE_H
#define PLINTHD_TESTS_MOUNTNAMESPACE_H

// Lets a Qt test replace system paths (/home, /etc/passwd, /var/log, ...).
// CTest starts such a test in a private mount namespace of its own
// (MOUNT_NAMESPACE in tests/CMakeLists.txt, made by tests/harness/run-test,
// which reports the test as skipped where no namespace can be had), so its
// mounts never reach the machine. The test itself never enters one: a
// namespace made by a process that already has threads would hold only the
// thread that made it.

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <QtGlobal>

#include <unistd.h>

namespace MountNamespace {

// Set by tests/harness/run-test for whatever it runs in its namespaces: the
// mount namespace ("mnt:[inode]") it came from.
constexpr char Mark[] = "PLINTHD_TEST_NAMESPACE";

// "mnt:[inode]" of this process's mount namespace, empty when unreadable.
inline QByteArray ownNamespace()
{
    char target[64] = {};
    const ssize_t length = ::readlink("/proc/self/ns/mnt", target, sizeof(target) - 1);
    return length > 0 ? QByteArray(target, int(length)) : QByteArray();
}

// Whether mounting here is safe: started by run-test, and still in the mount
// namespace it made rather than the one it came from, so that a mark carried
// out of it (or set by hand) cannot send mounts onto the machine.
inline bool inside()
{
    const QByteArray outside = qgetenv(Mark);
    const QByteArray own = ownNamespace();
    return ::geteuid() == 0 && !outside.isEmpty() && !own.isEmpty() && own != outside;
}

inline bool mount(const QStringList &arguments)
{
    return QProcess::execute(QStringLiteral("mount"), arguments) == 0;
}

} // namespace MountNamespace

#endif // PLINTHD_TESTS_MOUNTNAMESPACE_H
