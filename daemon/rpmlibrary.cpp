// SPDX-License-Identifier: LicenseRef-plinthd
#include "rpmlibrary.h"

#include "logging.h"

#include <rpm/rpmlib.h>

namespace RpmLibrary {

namespace {

QMutex &libraryLock()
{
    static QMutex lock;
    return lock;
}

} // namespace

Use::Use()
    : m_locker(&libraryLock())
{
    static bool configurationRead = false;
    if (configurationRead)
        return;
    configurationRead = true;
    if (rpmReadConfigFiles(nullptr, nullptr) != 0)
        qCWarning(lcPlinthd) << "Can't read the package manager's configuration";
}

Use::~Use() = default;

} // namespace RpmLibrary
