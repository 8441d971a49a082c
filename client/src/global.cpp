// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/global.h>

#include <plinth/simcard.h>
#include <plinth/storagetypes.h>

#include <QDBusMetaType>

#include <mutex>

namespace Plinth {

QString serviceName()
{
    return QStringLiteral("org.norvu.plinth");
}

QString featuresPath()
{
    return QStringLiteral("/org/norvu/plinth/Features");
}

QString featuresInterface()
{
    return QStringLiteral("org.norvu.plinth.Features");
}

QString simPath()
{
    return QStringLiteral("/org/norvu/plinth/SIM");
}

QString simInterface()
{
    return QStringLiteral("org.norvu.plinth.SIM");
}

QString storagesPath()
{
    return QStringLiteral("/org/norvu/plinth/Storages");
}

QString storagesInterface()
{
    return QStringLiteral("org.norvu.plinth.Storages");
}

void registerTypes()
{
    // Objects may be made on several threads at once; the registration is
    // done once, by the first.
    static std::once_flag registered;
    std::call_once(registered, [] {
        qDBusRegisterMetaType<SimCard>();
        qDBusRegisterMetaType<SimCardList>();
        qDBusRegisterMetaType<InternalStorage>();
        qDBusRegisterMetaType<UserPartition>();
        qDBusRegisterMetaType<SystemStorage>();
        qDBusRegisterMetaType<ExternalStorageSummary>();
        qDBusRegisterMetaType<ExternalDrive>();
        qDBusRegisterMetaType<ExternalDriveList>();
        qDBusRegisterMetaType<UserQuota>();
        qDBusRegisterMetaType<UserQuotaMap>();
    });
}

} // namespace Plinth
