// SPDX-License-Identifier: BSD-3-Clause
//
// Synchronous calls of plinthd with Qt: a few Features questions, a property
// and the SIM cards. Every Features and SIM method answers at once (getLocale
// once the user manager has), so a blocking call with the default time-out is
// fine for them.
//
//   plinth-example-features

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QStringList>
#include <QTextStream>

namespace {

const QString Service = QStringLiteral("org.norvu.plinth");

// What a failed call says, on standard error; 1 as the exit status.
template <typename T>
bool check(const QDBusReply<T> &reply, const char *method)
{
    if (reply.isValid())
        return true;
    QTextStream(stderr) << method << ": " << reply.error().name() << ": " << reply.error().message() << '\n';
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // aa{sv}, the SIM card list, arrives as a list of maps once the type is
    // known to QtDBus.
    qDBusRegisterMetaType<QList<QVariantMap>>();

    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        QTextStream(stderr) << "no system bus: " << bus.lastError().message() << '\n';
        return 1;
    }
    QTextStream out(stdout);

    QDBusInterface features(Service, QStringLiteral("/org/norvu/plinth/Features"),
                            QStringLiteral("org.norvu.plinth.Features"), bus);
    const QDBusReply<QString> model = features.call(QStringLiteral("getCpuModel"));
    const QDBusReply<uint> cores = features.call(QStringLiteral("getNumberCpuCores"));
    const QDBusReply<uint> clock = features.call(QStringLiteral("getMaxCpuClockSpeed"));
    // "av": every element is a variant holding a uint, in MHz.
    const QDBusReply<QVariantList> perCore = features.call(QStringLiteral("getMaxCpuCoresClockSpeed"));
    const QDBusReply<qulonglong> ram = features.call(QStringLiteral("getRamTotalSize"));
    const QDBusReply<double> camera = features.call(QStringLiteral("getMainCameraResolution"));
    const QDBusReply<QString> os = features.call(QStringLiteral("getOsVersion"));
    if (!check(model, "getCpuModel") || !check(cores, "getNumberCpuCores") || !check(clock, "getMaxCpuClockSpeed")
        || !check(perCore, "getMaxCpuCoresClockSpeed") || !check(ram, "getRamTotalSize")
        || !check(camera, "getMainCameraResolution") || !check(os, "getOsVersion"))
        return 1;

    QStringList speeds;
    for (const QVariant &speed : perCore.value())
        speeds.append(QString::number(speed.toUInt()));

    // An empty text or 0 is the daemon's way of saying "not known".
    out << "Processor: " << (model.value().isEmpty() ? QStringLiteral("unknown") : model.value()) << ", "
        << cores.value() << " cores, up to " << clock.value() << " MHz\n";
    out << "Per core (MHz): " << (speeds.isEmpty() ? QStringLiteral("unknown") : speeds.join(QLatin1Char(' ')))
        << '\n';
    out << "Memory: " << ram.value() << " bytes (" << QString::number(ram.value() / 1073741824.0, 'f', 1)
        << " GiB)\n";
    out << "Main camera: " << (camera.value() > 0 ? QString::number(camera.value()) + QStringLiteral(" MP")
                                                   : QStringLiteral("not measured")) << '\n';
    out << "OS: " << os.value() << '\n';

    // Properties are read through org.freedesktop.DBus.Properties; the
    // interface object does that for property().
    const QVariant emulated = features.property("isOsEmulated");
    const QVariant osType = features.property("osType");
    if (!emulated.isValid() || !osType.isValid()) {
        QTextStream(stderr) << "properties: " << features.lastError().message() << '\n';
        return 1;
    }
    out << "OS type: " << osType.toUInt() << ", emulated: " << (emulated.toBool() ? "yes" : "no") << '\n';

    QDBusInterface sim(Service, QStringLiteral("/org/norvu/plinth/SIM"), QStringLiteral("org.norvu.plinth.SIM"),
                       bus);
    const QDBusReply<QList<QVariantMap>> cards = sim.call(QStringLiteral("getSimCardsInfo"));
    if (!check(cards, "getSimCardsInfo"))
        return 1;
    out << "SIM cards: " << cards.value().size() << '\n';
    for (const QVariantMap &card : cards.value()) {
        out << "  " << card.value(QStringLiteral("simName")).toString() << ": "
            << (card.value(QStringLiteral("operatorName")).toString().isEmpty()
                    ? QStringLiteral("no operator name")
                    : card.value(QStringLiteral("operatorName")).toString())
            << (card.value(QStringLiteral("preferredDataTransfer")).toBool() ? ", data" : "")
            << (card.value(QStringLiteral("preferredVoiceCall")).toBool() ? ", voice" : "") << '\n';
    }
    return 0;
}
