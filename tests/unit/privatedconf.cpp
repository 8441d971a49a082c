// SPDX-License-Identifier: BSD-3-Clause
#include "privatedconf.h"

#include "mountnamespace.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>

#include <sys/mount.h>
#include <utime.h>

namespace {

const char DconfDir[] = "/etc/dconf";
const char Database[] = "plinthtest";
bool ready = false;

QString databasePath()
{
    return QStringLiteral("%1/db/%2").arg(QLatin1String(DconfDir), QLatin1String(Database));
}

} // namespace

namespace PrivateDconf {

bool enter()
{
    if (!MountNamespace::inside() || !QDir(QLatin1String(DconfDir)).exists())
        return false;
    if (mount("tmpfs", DconfDir, "tmpfs", 0, "mode=0755") != 0)
        return false;
    QDir dir{QLatin1String(DconfDir)};
    if (!dir.mkpath(QStringLiteral("profile")) || !dir.mkpath(databasePath() + QStringLiteral(".d")))
        return false;
    QFile profile(QStringLiteral("%1/profile/%2").arg(QLatin1String(DconfDir), QLatin1String(Database)));
    if (!profile.open(QIODevice::WriteOnly))
        return false;
    profile.write(QByteArray("system-db:") + Database + '\n');
    profile.close();
    qputenv("DCONF_PROFILE", Database);
    ready = write(QByteArray());
    return ready;
}

bool isReady()
{
    return ready;
}

bool write(const QByteArray &keyfile)
{
    QFile file(databasePath() + QStringLiteral(".d/10-test"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(keyfile) != keyfile.size())
        return false;
    file.close();
    // dconf update rebuilds only a database older than its keyfiles, and two
    // writes within one clock tick carry the same time: age it first.
    const QByteArray database = QFile::encodeName(databasePath());
    struct utimbuf epoch = {0, 0};
    ::utime(database.constData(), &epoch);
    QProcess update;
    update.start(QStringLiteral("dconf"), {QStringLiteral("update")});
    return update.waitForFinished(10000) && update.exitStatus() == QProcess::NormalExit
        && update.exitCode() == 0;
}

} // namespace PrivateDconf
