// SPDX-License-Identifier: BSD-3-Clause
//
// Features and SIM questions of plinthd with the client library: a few
// hardware and OS answers, a property and the SIM cards. Every Features and SIM
// method answers at once (getLocale once the user manager has), so waiting for
// each reply (waitForFinished) with the default time-out is fine for them.
//
//   plinth-example-features

#include <plinth/features.h>
#include <plinth/sim.h>

#include <QCoreApplication>
#include <QStringList>
#include <QTextStream>

namespace {

// What a failed call says, on standard error. The errors come from the bus
// (no daemon, a time-out); the daemon itself answers failures with neutral
// values.
template <typename T>
bool answered(QDBusPendingReply<T> &reply, const char *method)
{
    reply.waitForFinished();
    if (!reply.isError())
        return true;
    QTextStream(stderr) << method << ": " << reply.error().name() << ": " << reply.error().message() << '\n';
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    // The system bus, or the one DBUS_SYSTEM_BUS_ADDRESS names.
    const Plinth::Features features;
    // All sent at once; each is awaited below.
    auto model = features.getCpuModel();
    auto cores = features.getNumberCpuCores();
    auto clock = features.getMaxCpuClockSpeed();
    // "av": every element is a variant holding a uint, in MHz.
    auto perCore = features.getMaxCpuCoresClockSpeed();
    auto ram = features.getRamTotalSize();
    auto camera = features.getMainCameraResolution();
    auto os = features.getOsVersion();
    auto properties = features.getProperties();
    if (!answered(model, "getCpuModel") || !answered(cores, "getNumberCpuCores")
        || !answered(clock, "getMaxCpuClockSpeed") || !answered(perCore, "getMaxCpuCoresClockSpeed")
        || !answered(ram, "getRamTotalSize") || !answered(camera, "getMainCameraResolution")
        || !answered(os, "getOsVersion") || !answered(properties, "GetAll"))
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

    // The read-only properties, by name.
    const QVariantMap identity = properties.value();
    out << "OS type: " << identity.value(QStringLiteral("osType")).toUInt()
        << ", emulated: " << (identity.value(QStringLiteral("isOsEmulated")).toBool() ? "yes" : "no") << '\n';

    const Plinth::Sim sim;
    auto cards = sim.getSimCardsInfo();
    if (!answered(cards, "getSimCardsInfo"))
        return 1;
    const Plinth::SimCardList list = cards.value();
    out << "SIM cards: " << list.size() << '\n';
    for (const Plinth::SimCard &card : list) {
        out << "  " << card.name() << ": "
            << (card.operatorName().isEmpty() ? QStringLiteral("no operator name") : card.operatorName())
            << (card.isPreferredForData() ? ", data" : "") << (card.isPreferredForVoice() ? ", voice" : "") << '\n';
    }
    return 0;
}
