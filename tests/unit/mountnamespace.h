// SPDX-License-Identifier: LicenseRef-plinthd
#ifndef PLINTHD_TESTS_MOUNTNAMESPACE_H
#define PLINTHD_TESTS_MOUNTNAMESPACE_H

// Lets a Qt test replace system paths (/home, /etc/passwd, /var/log, ...):
// as root, the test re-runs itself in a private mount namespace, where its
// mounts never reach the machine.

#include <QProcess>
#include <QtGlobal>

#include <unistd.h>

#include <vector>

namespace MountNamespace {

constexpr char Mark[] = "PLINTHD_TEST_IN_MOUNT_NAMESPACE";

// Call first in main(). Returns only when already inside (or not root).
inline void enter(int argc, char **argv)
{
    if (::geteuid() != 0 || !qEnvironmentVariableIsEmpty(Mark))
        return;
    qputenv(Mark, "1");
    std::vector<char *> command = {const_cast<char *>("unshare"), const_cast<char *>("--mount"),
                                   const_cast<char *>("--propagation"), const_cast<char *>("private"),
                                   const_cast<char *>("--")};
    command.insert(command.end(), argv, argv + argc);
    command.push_back(nullptr);
    ::execvp("unshare", command.data());
    qFatal("cannot run unshare");
}

inline bool inside()
{
    return ::geteuid() == 0 && !qEnvironmentVariableIsEmpty(Mark);
}

inline bool mount(const QStringList &arguments)
{
    return QProcess::execute(QStringLiteral("mount"), arguments) == 0;
}

} // namespace MountNamespace

#endif // PLINTHD_TESTS_MOUNTNAMESPACE_H
