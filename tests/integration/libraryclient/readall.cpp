// SPDX-License-Identifier: BSD-3-Clause
// An application of the client library, built by the test against the
// installed library with nothing but pkg-config: it reads every value of the
// three objects through the typed classes and prints one "name<TAB>value"
// line each, which the test compares with what the daemon answers.

#include <plinth/plinth.h>

#include <QCoreApplication>
#include <QStringList>
#include <QTextStream>

namespace {

QTextStream out(stdout);
int failures = 0;

template <typename T>
bool answered(QDBusPendingReply<T> &reply, const char *method)
{
    reply.waitForFinished();
    if (reply.isError()) {
        QTextStream(stderr) << method << ": " << reply.error().name() << ": " << reply.error().message() << '\n';
        ++failures;
        return false;
    }
    return true;
}

void line(const QString &name, const QString &value)
{
    out << name << '\t' << value << '\n';
}

void line(const QString &name, bool value)
{
    line(name, value ? QStringLiteral("true") : QStringLiteral("false"));
}

void line(const QString &name, quint64 value)
{
    line(name, QString::number(value));
}

void line(const QString &name, qint64 value)
{
    line(name, QString::number(value));
}

void line(const QString &name, uint value)
{
    line(name, QString::number(value));
}

void line(const QString &name, double value)
{
    line(name, QString::number(value, 'g', 17));
}

void line(const QString &name, const QStringList &value)
{
    line(name, value.join(QLatin1Char(',')));
}

#define READ(object, method, name)                                                                                     \
    do {                                                                                                               \
        auto reply = object.method();                                                                                  \
        if (answered(reply, #method))                                                                                  \
            line(QStringLiteral(name), reply.value());                                                                 \
    } while (false)

void readFeatures()
{
    const Plinth::Features features;
    READ(features, hasGNSS, "features.hasGNSS");
    READ(features, hasNFC, "features.hasNFC");
    READ(features, hasBluetooth, "features.hasBluetooth");
    READ(features, hasWlan, "features.hasWlan");
    READ(features, getMaxCpuClockSpeed, "features.getMaxCpuClockSpeed");
    READ(features, getNumberCpuCores, "features.getNumberCpuCores");
    READ(features, getCpuModel, "features.getCpuModel");
    READ(features, getBatteryChargePercentage, "features.getBatteryChargePercentage");
    READ(features, getMainCameraResolution, "features.getMainCameraResolution");
    READ(features, getFrontalCameraResolution, "features.getFrontalCameraResolution");
    READ(features, getRamTotalSize, "features.getRamTotalSize");
    READ(features, getRamFreeSize, "features.getRamFreeSize");
    READ(features, getScreenResolution, "features.getScreenResolution");
    READ(features, getOsVersion, "features.getOsVersion");
    READ(features, getDeviceModel, "features.getDeviceModel");
    READ(features, getSerialNumber, "features.getSerialNumber");
    READ(features, getLocale, "features.getLocale");
    READ(features, getLocales, "features.getLocales");
    READ(features, getTimeZone, "features.getTimeZone");
    READ(features, getFontNames, "features.getFontNames");
    READ(features, getFontFamilyNames, "features.getFontFamilyNames");
    auto clocks = features.getMaxCpuCoresClockSpeed();
    if (answered(clocks, "getMaxCpuCoresClockSpeed")) {
        QStringList megahertz;
        for (const QVariant &clock : clocks.value())
            megahertz.append(QString::number(clock.toUInt()));
        line(QStringLiteral("features.getMaxCpuCoresClockSpeed"), megahertz);
    }
    auto properties = features.getProperties();
    if (answered(properties, "GetAll")) {
        line(QStringLiteral("features.osType"), properties.value().value(QStringLiteral("osType")).toUInt());
        line(QStringLiteral("features.isOsCertified"), properties.value().value(QStringLiteral("isOsCertified")).toBool());
        line(QStringLiteral("features.isOsEmulated"), properties.value().value(QStringLiteral("isOsEmulated")).toBool());
    }
}

void readSim()
{
    const Plinth::Sim sim;
    auto cards = sim.getSimCardsInfo();
    if (!answered(cards, "getSimCardsInfo"))
        return;
    // value() answers a copy: keep it while its elements are read.
    const Plinth::SimCardList list = cards.value();
    line(QStringLiteral("sim.count"), uint(list.size()));
    for (int i = 0; i < list.size(); ++i) {
        const Plinth::SimCard &card = list.at(i);
        const QString prefix = QStringLiteral("sim.%1.").arg(i);
        line(prefix + QStringLiteral("name"), card.name());
        line(prefix + QStringLiteral("operatorName"), card.operatorName());
        line(prefix + QStringLiteral("enabled"), card.isEnabled());
        line(prefix + QStringLiteral("preferredForData"), card.isPreferredForData());
        line(prefix + QStringLiteral("preferredForVoice"), card.isPreferredForVoice());
    }
}

void figures(const QString &prefix, const Plinth::StorageFigures &storage)
{
    line(prefix + QStringLiteral("bytesTotal"), storage.bytesTotal());
    line(prefix + QStringLiteral("bytesUsed"), storage.bytesUsed());
    line(prefix + QStringLiteral("bytesAvailable"), storage.bytesAvailable());
}

void readStorages()
{
    const Plinth::Storages storages;
    // All sent before the first is awaited: the daemon measures side by side.
    auto internal = storages.getInternalStorageInfo();
    auto user = storages.getInternalUserPartitionInfo();
    auto system = storages.getSystemStorageInfo();
    auto external = storages.getExternalStorageInfo();
    auto drives = storages.getExternalStorageDrivesInfo();
    auto quotas = storages.getUsersQuotaInfo();

    if (answered(internal, "getInternalStorageInfo")) {
        figures(QStringLiteral("internal."), internal.value());
        line(QStringLiteral("internal.filesystemType"), internal.value().filesystemType());
        line(QStringLiteral("internal.deviceLabel"), internal.value().deviceLabel());
    }
    if (answered(user, "getInternalUserPartitionInfo")) {
        const Plinth::UserPartition &partition = user.value();
        figures(QStringLiteral("user."), partition);
        line(QStringLiteral("user.filesystemType"), partition.filesystemType());
        line(QStringLiteral("user.deviceLabel"), partition.deviceLabel());
        line(QStringLiteral("user.hasBreakdown"), partition.hasBreakdown());
        line(QStringLiteral("user.Pictures"), partition.bytesUsedIn(Plinth::UserPartition::Pictures));
        line(QStringLiteral("user.Videos"), partition.bytesUsedIn(Plinth::UserPartition::Videos));
        line(QStringLiteral("user.Music"), partition.bytesUsedIn(Plinth::UserPartition::Music));
        line(QStringLiteral("user.Documents"), partition.bytesUsedIn(Plinth::UserPartition::Documents));
        line(QStringLiteral("user.Downloads"), partition.bytesUsedIn(Plinth::UserPartition::Downloads));
        line(QStringLiteral("user.other"), partition.bytesUsedOther());
        line(QStringLiteral("user.hasOtherUsers"), partition.hasOtherUsers());
        line(QStringLiteral("user.otherUsers"), partition.bytesUsedOtherUsers());
    }
    if (answered(system, "getSystemStorageInfo")) {
        const Plinth::SystemStorage &root = system.value();
        figures(QStringLiteral("system."), root);
        line(QStringLiteral("system.Apps"), root.bytesUsedBy(Plinth::SystemStorage::Apps));
        line(QStringLiteral("system.DebugInfo"), root.bytesUsedBy(Plinth::SystemStorage::DebugInfo));
        line(QStringLiteral("system.SDK"), root.bytesUsedBy(Plinth::SystemStorage::SDK));
        line(QStringLiteral("system.CoreDumps"), root.bytesUsedBy(Plinth::SystemStorage::CoreDumps));
        line(QStringLiteral("system.SystemLogs"), root.bytesUsedBy(Plinth::SystemStorage::SystemLogs));
        line(QStringLiteral("system.other"), root.bytesUsedOther());
        line(QStringLiteral("system.categoriesExceedUsed"), root.categoriesExceedUsed());
    }
    if (answered(external, "getExternalStorageInfo")) {
        figures(QStringLiteral("external."), external.value());
        line(QStringLiteral("external.deviceLabel"), external.value().deviceLabel());
        line(QStringLiteral("external.mounted"), external.value().isMounted());
        line(QStringLiteral("external.countMountedPartitions"), external.value().countMountedPartitions());
    }
    if (answered(drives, "getExternalStorageDrivesInfo")) {
        const Plinth::ExternalDriveList list = drives.value();
        line(QStringLiteral("drives.count"), uint(list.size()));
        for (int i = 0; i < list.size(); ++i) {
            const Plinth::ExternalDrive &drive = list.at(i);
            const QString prefix = QStringLiteral("drives.%1.").arg(i);
            line(prefix + QStringLiteral("name"), drive.name());
            line(prefix + QStringLiteral("connection"), drive.connectionName());
            line(prefix + QStringLiteral("knownConnection"), drive.connection() != Plinth::ExternalDrive::Unknown);
            const QList<Plinth::ExternalPartition> partitions = drive.partitions();
            line(prefix + QStringLiteral("partitions"), uint(partitions.size()));
            for (int j = 0; j < partitions.size(); ++j) {
                const Plinth::ExternalPartition &partition = partitions.at(j);
                const QString inner = prefix + QStringLiteral("%1.").arg(j);
                line(inner + QStringLiteral("name"), partition.name());
                line(inner + QStringLiteral("mountPoint"), partition.mountPoint());
                line(inner + QStringLiteral("mounted"), partition.isMounted());
                line(inner + QStringLiteral("partitionLabel"), partition.partitionLabel());
                line(inner + QStringLiteral("driveName"), partition.driveName());
                line(inner + QStringLiteral("bytesTotal"), partition.bytesTotal());
                line(inner + QStringLiteral("bytesUsed"), partition.bytesUsed());
                line(inner + QStringLiteral("bytesAvailable"), partition.bytesAvailable());
            }
        }
    }
    if (answered(quotas, "getUsersQuotaInfo")) {
        const Plinth::UserQuotaMap &users = quotas.value();
        line(QStringLiteral("quota.users"), QStringList(users.keys()));
        for (auto it = users.cbegin(); it != users.cend(); ++it) {
            const QString prefix = QStringLiteral("quota.%1.").arg(it.key());
            line(prefix + QStringLiteral("isSet"), it.value().isSet());
            line(prefix + QStringLiteral("limit"), it.value().limit());
            line(prefix + QStringLiteral("available"), it.value().available());
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    readFeatures();
    readSim();
    readStorages();
    out.flush();
    return failures == 0 ? 0 : 1;
}
