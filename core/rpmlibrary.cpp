// SPDX-License-Identifier: BSD-3-Clause
#include "rpmlibrary.h"

#include "logging.h"

#include <QDir>
#include <QFileInfo>

#include <cstdlib>

#include <rpm/rpmlib.h>
#include <rpm/rpmmacro.h>

namespace RpmLibrary {

namespace {

// The files that hold the package headers in the library's database formats
// (sqlite, ndb, Berkeley DB); a folder without any of them has no database.
const char *const DatabaseFiles[] = {"rpmdb.sqlite", "Packages.db", "Packages"};

// Both below are touched only with the library's lock held.
bool configurationRead = false;
bool reportedMissing = false;

QMutex &libraryLock()
{
    static QMutex lock;
    return lock;
}

QString configuredFolder()
{
    char *expanded = rpmExpand("%{?_dbpath}", nullptr);
    const QString folder = QFile::decodeName(expanded ? expanded : "");
    free(expanded);
    return folder;
}

} // namespace

Use::Use()
    : m_locker(&libraryLock())
{
    if (configurationRead)
        return;
    configurationRead = true;
    if (rpmReadConfigFiles(nullptr, nullptr) != 0)
        qCWarning(lcPlinthd) << "Can't read the package manager's configuration";
}

Use::~Use() = default;

QString Use::databaseFolder() const
{
    return configuredFolder();
}

bool Use::hasDatabase() const
{
    const QString folder = configuredFolder();
    if (!folder.isEmpty() && QFileInfo(folder).isAbsolute()) {
        for (const char *name : DatabaseFiles) {
            if (QFileInfo(QDir(folder).filePath(QLatin1String(name))).isFile())
                return true;
        }
    }
    if (!reportedMissing) {
        reportedMissing = true;
        qCWarning(lcPlinthd).noquote() << "No package database in"
                                       << (folder.isEmpty() ? QStringLiteral("(none configured)") : folder)
                                       << "- package sizes count as 0 and no package is installed";
    }
    return false;
}

} // namespace RpmLibrary
