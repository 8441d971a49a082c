// SPDX-License-Identifier: LicenseRef-plinthd
#include "rpmdatabase.h"

#include "logging.h"

#include <QByteArray>
#include <QDir>
#include <QFileInfo>

#include <atomic>
#include <cstdlib>
#include <mutex>

#include <rpm/rpmlib.h>
#include <rpm/rpmmacro.h>

namespace RpmDatabase {

namespace {

// The files that hold the package headers in the library's database formats
// (sqlite, ndb, Berkeley DB); a folder without any of them has no database.
const char *const DatabaseFiles[] = {"rpmdb.sqlite", "Packages.db", "Packages"};

std::atomic<bool> reportedMissing{false};

QString configuredFolder()
{
    char *expanded = rpmExpand("%{?_dbpath}", nullptr);
    const QString folder = QFile::decodeName(expanded ? expanded : "");
    free(expanded);
    return folder;
}

} // namespace

void readConfigurationOnce()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (rpmReadConfigFiles(nullptr, nullptr) != 0)
            qCWarning(lcPlinthd) << "Can't read the package manager's configuration";
    });
}

bool readable()
{
    readConfigurationOnce();
    const QString folder = configuredFolder();
    if (!folder.isEmpty() && QFileInfo(folder).isAbsolute()) {
        for (const char *name : DatabaseFiles) {
            if (QFileInfo(QDir(folder).filePath(QLatin1String(name))).isFile())
                return true;
        }
    }
    if (!reportedMissing.exchange(true)) {
        qCWarning(lcPlinthd).noquote() << "No package database in" << (folder.isEmpty() ? QStringLiteral("(none configured)") : folder)
                                       << "- package sizes count as 0 and no package is installed";
    }
    return false;
}

} // namespace RpmDatabase
