// SPDX-License-Identifier: BSD-3-Clause
#include "systemstoragecategories.h"

#include "figurekeys.h"
#include "packagesizes.h"
#include "storagekeys.h"
#include "userstoragebreakdown.h"

#include <QStorageInfo>

QVariantMap SystemStorageCategories::measure()
{
    QVariantMap map;
    const QStorageInfo root = QStorageInfo::root();
    const quint64 used = quint64(root.bytesTotal()) - quint64(root.bytesAvailable());
    map[StorageKeys::BytesAvailable] = qulonglong(root.bytesAvailable());
    map[StorageKeys::BytesTotal] = qulonglong(root.bytesTotal());
    map[StorageKeys::BytesUsed] = qulonglong(used);

    const quint64 apps = PackageSizes::sum(QStringLiteral("tarn-*"));
    const quint64 debug = PackageSizes::sum(QStringLiteral("*-debuginfo"));
    // Only what root owns counts: a service's own files are its users' data.
    const quint64 sdk = quint64(UserStorageBreakdown::directorySize(QStringLiteral("/opt/sdk/"), 0));
    const quint64 dumps = quint64(UserStorageBreakdown::directorySize(QStringLiteral("/var/cache/core-dumps/"), 0));
    const quint64 logs = quint64(UserStorageBreakdown::directorySize(QStringLiteral("/var/log/"), 0));
    // Unsigned and unclamped on purpose: packages declare their sizes rather
    // than have them measured, so the categories can exceed the used space.
    // Wrapping keeps the six categories summing to "bytesUsed" in unsigned
    // 64-bit arithmetic, which a clamp at zero would break.
    const quint64 other = used - apps - debug - sdk - dumps - logs;

    map[FigureKeys::bytesUsedFor(QStringLiteral("Apps"))] = qulonglong(apps);
    map[FigureKeys::bytesUsedFor(QStringLiteral("DebugInfo"))] = qulonglong(debug);
    map[FigureKeys::bytesUsedFor(QStringLiteral("SDK"))] = qulonglong(sdk);
    map[FigureKeys::bytesUsedFor(QStringLiteral("CoreDumps"))] = qulonglong(dumps);
    map[FigureKeys::bytesUsedFor(QStringLiteral("SystemLogs"))] = qulonglong(logs);
    map[FigureKeys::bytesUsedOther()] = qulonglong(other);
    return map;
}
