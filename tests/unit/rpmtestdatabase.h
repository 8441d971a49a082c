// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTS_RPMTESTDATABASE_H
#define PLINTHD_TESTS_RPMTESTDATABASE_H

// A real RPM database of tiny packages, built by the test bench
// (tests/harness/rpmdb.py) and made librpm's default through HOME. The
// library reads its configuration once per process: one database per test
// program.

#include <QDebug>
#include <QProcess>
#include <QStringList>
#include <QVariantMap>

namespace RpmTestDatabase {

// Runs `statement` on the database of `workdir` (`db`), made there on first
// use, and makes it the default one.
inline bool change(const QString &workdir, const QString &statement)
{
    const QString script = QStringLiteral("import rpmdb\n"
                                          "db = rpmdb.RpmDatabase('%1')\n"
                                          "%2\n"
                                          "print(db.home)\n")
                                   .arg(workdir, statement);
    QProcess python;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PYTHONPATH"),
                       qEnvironmentVariable("PLINTHD_SOURCE_DIR") + QStringLiteral("/tests/harness"));
    python.setProcessEnvironment(environment);
    python.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), script});
    if (!python.waitForFinished(120000) || python.exitCode() != 0) {
        qWarning() << python.readAllStandardError();
        return false;
    }
    return qputenv("HOME", python.readAllStandardOutput().trimmed());
}

inline bool install(const QString &workdir, const QVariantMap &packages)
{
    QStringList entries;
    for (auto it = packages.cbegin(); it != packages.cend(); ++it)
        entries << QStringLiteral("'%1': %2").arg(it.key()).arg(it.value().toLongLong());
    return change(workdir, QStringLiteral("db.install({%1})").arg(entries.join(QStringLiteral(", "))));
}

inline bool erase(const QString &workdir, const QStringList &names)
{
    return change(workdir, QStringLiteral("db.erase(['%1'])").arg(names.join(QStringLiteral("', '"))));
}

} // namespace RpmTestDatabase

#endif // PLINTHD_TESTS_RPMTESTDATABASE_H
