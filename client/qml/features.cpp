// SPDX-License-Identifier: BSD-3-Clause
#include "features.h"

#include "daemonlink.h"

#include <plinth/features.h>
#include <plinth/plainvalue.h>

#include <QDBusMessage>
#include <QMetaMethod>
#include <QMetaProperty>

namespace PlinthQml {

namespace {

using Call = QDBusPendingCall (*)(const Plinth::Features &);

// Each property and the library's method that answers it.
struct Source
{
    const char *property;
    Call call;
};

const Source sources[] = {
    {"hasGNSS", [](const Plinth::Features &f) -> QDBusPendingCall { return f.hasGNSS(); }},
    {"hasNFC", [](const Plinth::Features &f) -> QDBusPendingCall { return f.hasNFC(); }},
    {"hasBluetooth", [](const Plinth::Features &f) -> QDBusPendingCall { return f.hasBluetooth(); }},
    {"hasWlan", [](const Plinth::Features &f) -> QDBusPendingCall { return f.hasWlan(); }},
    {"maxCpuClockSpeed", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getMaxCpuClockSpeed(); }},
    {"numberCpuCores", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getNumberCpuCores(); }},
    {"cpuModel", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getCpuModel(); }},
    {"maxCpuCoresClockSpeed",
     [](const Plinth::Features &f) -> QDBusPendingCall { return f.getMaxCpuCoresClockSpeed(); }},
    {"batteryChargePercentage",
     [](const Plinth::Features &f) -> QDBusPendingCall { return f.getBatteryChargePercentage(); }},
    {"mainCameraResolution",
     [](const Plinth::Features &f) -> QDBusPendingCall { return f.getMainCameraResolution(); }},
    {"frontalCameraResolution",
     [](const Plinth::Features &f) -> QDBusPendingCall { return f.getFrontalCameraResolution(); }},
    {"ramTotalSize", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getRamTotalSize(); }},
    {"ramFreeSize", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getRamFreeSize(); }},
    {"screenResolution", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getScreenResolution(); }},
    {"osVersion", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getOsVersion(); }},
    {"deviceModel", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getDeviceModel(); }},
    {"serialNumber", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getSerialNumber(); }},
    {"locale", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getLocale(); }},
    {"locales", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getLocales(); }},
    {"timeZone", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getTimeZone(); }},
    {"fontNames", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getFontNames(); }},
    {"fontFamilyNames", [](const Plinth::Features &f) -> QDBusPendingCall { return f.getFontFamilyNames(); }},
};
constexpr int SourceCount = int(sizeof(sources) / sizeof(sources[0]));

// The daemon's D-Bus properties, read at once, and the names they have here.
const char *const daemonProperties[][2] = {
    {"osType", "osType"},
    {"isOsCertified", "osCertified"},
    {"isOsEmulated", "osEmulated"},
};

QVector<int> cameraSources()
{
    QVector<int> methods;
    for (int i = 0; i < SourceCount; ++i) {
        if (qstrcmp(sources[i].property, "mainCameraResolution") == 0
            || qstrcmp(sources[i].property, "frontalCameraResolution") == 0)
            methods.append(i);
    }
    return methods;
}

} // namespace

Features::Features(QObject *parent)
    : QObject(parent)
    , m_features(new Plinth::Features(QDBusConnection::systemBus(), this))
    , m_link(new DaemonLink(this))
{
    m_link->attach(this, &Features::refresh);
    // What the daemon knows of the cameras may have changed: only their
    // resolutions are asked again.
    connect(m_features, &Plinth::Features::cameraEnabledChanged, this, &Features::askCameras);
    // From the event loop, so that making the singleton (QML tools make it
    // to describe the type) asks nothing.
    QMetaObject::invokeMethod(this, &Features::refresh, Qt::QueuedConnection);
}

Features::~Features() = default;

bool Features::isAvailable() const
{
    return m_link->isAvailable();
}

bool Features::isBusy() const
{
    return m_link->isBusy();
}

void Features::refresh()
{
    m_link->beginLoad();
    QVector<int> all;
    for (int i = 0; i < SourceCount; ++i)
        all.append(i);
    ask(all);
    m_link->follow(m_features->getProperties(), [this](const QDBusMessage &answer) {
        if (answer.type() != QDBusMessage::ReplyMessage)
            return;
        const QVariantMap properties = Plinth::plainValue(answer.arguments().value(0)).toMap();
        for (const auto &names : daemonProperties) {
            const QString daemonName = QLatin1String(names[0]);
            if (properties.contains(daemonName))
                set(QLatin1String(names[1]), properties.value(daemonName));
        }
    });
}

void Features::askCameras()
{
    ask(cameraSources());
}

void Features::ask(const QVector<int> &methods)
{
    for (const int i : methods) {
        const QString property = QLatin1String(sources[i].property);
        m_link->follow(sources[i].call(*m_features), [this, property](const QDBusMessage &answer) {
            // Without an answer the property keeps its value.
            if (answer.type() == QDBusMessage::ReplyMessage)
                set(property, Plinth::plainValue(answer.arguments().value(0)));
        });
    }
}

void Features::set(const QString &property, const QVariant &value)
{
    if (m_values.value(property) == value && m_values.contains(property))
        return;
    m_values.insert(property, value);
    const QMetaObject *meta = metaObject();
    const QMetaProperty metaProperty = meta->property(meta->indexOfProperty(property.toLatin1().constData()));
    metaProperty.notifySignal().invoke(this, Qt::DirectConnection);
}

} // namespace PlinthQml
