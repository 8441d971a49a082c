// SPDX-License-Identifier: BSD-3-Clause
#include "systemstoragecategories.h"

#include "foldersizes.h"
#include "packagesizes.h"

#include <mapkeys.h>

#include <QStorageInfo>

using namespace Plinth;

SystemStorageCategories::SystemStorageCategories(FolderSizes &folders, PackageSizes &packages)
    : m_folders(folders), m_packages(packages)
{
}

QVariantMap SystemStorageCategories::measure() const
{
    QVariantMap map;
    // Made anew at every call: QStorageInfo::root() is made once per process
    // and keeps the figures of its first reading for good.
    const QStorageInfo root(QStringLiteral("/"));
    const quint64 used = quint64(root.bytesTotal()) - quint64(root.bytesAvailable());
    map[QLatin1String(Keys::BytesAvailable)] = qulonglong(root.bytesAvailable());
    map[QLatin1String(Keys::BytesTotal)] = qulonglong(root.bytesTotal());
    map[QLatin1String(Keys::BytesUsed)] = qulonglong(used);

    const quint64 apps = m_packages.sum(QStringLiteral("tarn-*"));
    const quint64 debug = m_packages.sum(QStringLiteral("*-debuginfo"));
    // Only what root owns counts: a service's own files are its users' data.
    const quint64 sdk = quint64(m_folders.size(QStringLiteral("/opt/sdk/"), 0));
    const quint64 dumps = quint64(m_folders.size(QStringLiteral("/var/cache/core-dumps/"), 0));
    const quint64 logs = quint64(m_folders.size(QStringLiteral("/var/log/"), 0));
    // Unsigned and unclamped on purpose: packages declare their sizes rather
    // than have them measured, so the categories can exceed the used space.
    // Wrapping keeps the six categories summing to "bytesUsed" in unsigned
    // 64-bit arithmetic, which a clamp at zero would break.
    const quint64 other = used - apps - debug - sdk - dumps - logs;

    map[QLatin1String(Keys::BytesUsedApps)] = qulonglong(apps);
    map[QLatin1String(Keys::BytesUsedDebugInfo)] = qulonglong(debug);
    map[QLatin1String(Keys::BytesUsedSDK)] = qulonglong(sdk);
    map[QLatin1String(Keys::BytesUsedCoreDumps)] = qulonglong(dumps);
    map[QLatin1String(Keys::BytesUsedSystemLogs)] = qulonglong(logs);
    map[QLatin1String(Keys::BytesUsedOther)] = qulonglong(other);
    return map;
}
