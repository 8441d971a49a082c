// SPDX-License-Identifier: BSD-3-Clause
#include "reports.h"

#include "busquery.h"
#include "fields.h"
#include "interfacedescription.h"
#include "textreport.h"

#include <plinth/features.h>
#include <plinth/sim.h>
#include <plinth/storages.h>

namespace PlinthCtl {
namespace Reports {

namespace {

const QString featuresKey = QStringLiteral("features");
const QString simsKey = QStringLiteral("sims");
const QString storageKey = QStringLiteral("storage");
const QString quotaPart = QStringLiteral("quota");

struct StoragePart
{
    QString name;
    const char *method;
    const char *title;
    const char *noun; // for a list answer: what one entry is
    // Sends the call. Storage answers can take minutes on a full device (the
    // daemon walks the users' folders and the system folders before it
    // answers): the library gives the slow ones a long time-out.
    QDBusPendingCall (*request)(const Plinth::Storages &storages);
    bool slow;
};

const QVector<StoragePart> &storagePartTable()
{
    static const QVector<StoragePart> parts = {
        {QStringLiteral("internal"), "getInternalStorageInfo", "Internal storage", nullptr,
         [](const Plinth::Storages &s) -> QDBusPendingCall { return s.getInternalStorageInfo(); }, true},
        {QStringLiteral("user"), "getInternalUserPartitionInfo", "User partition", nullptr,
         [](const Plinth::Storages &s) -> QDBusPendingCall { return s.getInternalUserPartitionInfo(); }, true},
        {QStringLiteral("system"), "getSystemStorageInfo", "System storage", nullptr,
         [](const Plinth::Storages &s) -> QDBusPendingCall { return s.getSystemStorageInfo(); }, true},
        {QStringLiteral("external"), "getExternalStorageInfo", "External storage", nullptr,
         [](const Plinth::Storages &s) -> QDBusPendingCall { return s.getExternalStorageInfo(); }, true},
        {QStringLiteral("drives"), "getExternalStorageDrivesInfo", "External drives", "Drive",
         [](const Plinth::Storages &s) -> QDBusPendingCall { return s.getExternalStorageDrivesInfo(); }, false},
        {QStringLiteral("quota"), "getUsersQuotaInfo", "User quotas", nullptr,
         [](const Plinth::Storages &s) -> QDBusPendingCall { return s.getUsersQuotaInfo(); }, true},
    };
    return parts;
}

void addFeatureSections(TextReport &report, const QVariantMap &features, bool countLists)
{
    static const Fields::Group groups[] = {Fields::Group::Device, Fields::Group::OperatingSystem,
                                           Fields::Group::Locale, Fields::Group::Fonts, Fields::Group::Other};
    const QStringList names = Fields::displayOrder(features.keys());
    for (const Fields::Group group : groups) {
        bool opened = false;
        for (const QString &name : names) {
            if (Fields::group(name) != group)
                continue;
            if (!opened) {
                report.addSection(Fields::groupTitle(group));
                opened = true;
            }
            const QVariant value = features.value(name);
            // Hundreds of font names say little at a glance; their number does.
            if (countLists && group == Fields::Group::Fonts && value.userType() == QMetaType::QVariantList)
                report.addRow(Fields::label(name), QString::number(value.toList().size()));
            else
                report.addValue(name, value);
        }
    }
}

void addSimSection(TextReport &report, const QVariantMap &document)
{
    report.addSection(QStringLiteral("SIM cards"));
    const QVariantList cards = document.value(simsKey).toList();
    if (cards.isEmpty())
        report.addNote(QStringLiteral("none"));
    else
        report.addMapList(cards, QStringLiteral("SIM"));
}

void addStorageSections(TextReport &report, const QVariantMap &document)
{
    const QVariantMap storage = document.value(storageKey).toMap();
    for (const StoragePart &part : storagePartTable()) {
        if (!storage.contains(part.name))
            continue;
        report.addSection(QLatin1String(part.title));
        const QVariant answer = storage.value(part.name);
        if (part.noun) {
            const QVariantList items = answer.toList();
            if (items.isEmpty())
                report.addNote(QStringLiteral("none"));
            else
                report.addMapList(items, QLatin1String(part.noun));
        } else if (part.name == quotaPart) {
            // Keyed by decimal uid.
            const QVariantMap users = answer.toMap();
            if (users.isEmpty())
                report.addNote(QStringLiteral("none"));
            for (auto it = users.cbegin(); it != users.cend(); ++it) {
                report.addRow(QStringLiteral("uid ") + it.key(), QString());
                report.addMap(it.value().toMap(), 1);
            }
        } else {
            report.addMap(answer.toMap());
        }
    }
}

} // namespace

QStringList storageParts()
{
    QStringList names;
    for (const StoragePart &part : storagePartTable())
        names.append(part.name);
    return names;
}

bool isStoragePart(const QString &name)
{
    return storageParts().contains(name);
}

void requestFeatures(BusQuery &query)
{
    // Every method the interface description lists, by name, so that what a
    // newer daemon answers is shown too.
    const Plinth::Features features(query.connection());
    const InterfaceDescription description = InterfaceDescription::builtIn(features.interface());
    const QVector<DBusMember> queries = description.queries();
    for (const DBusMember &method : queries)
        query.add({featuresKey, method.outArgs.first().name}, method.name, features.call(method.name));
    bool readable = false;
    for (const DBusProperty &property : description.properties())
        readable = readable || property.readable;
    if (readable)
        query.add({featuresKey}, QStringLiteral("GetAll"), features.getProperties(), BusQuery::defaultTimeoutMs, true);
}

void requestSims(BusQuery &query)
{
    const Plinth::Sim sim(query.connection());
    query.add({simsKey}, QStringLiteral("getSimCardsInfo"), sim.getSimCardsInfo());
}

void requestStorage(BusQuery &query, const QStringList &parts)
{
    const Plinth::Storages storages(query.connection());
    for (const StoragePart &part : storagePartTable()) {
        if (parts.contains(part.name)) {
            query.add({storageKey, part.name}, QLatin1String(part.method), part.request(storages),
                      part.slow ? storages.queryTimeout() : BusQuery::defaultTimeoutMs);
        }
    }
}

QString overviewText(const QVariantMap &document)
{
    TextReport report;
    addFeatureSections(report, document.value(featuresKey).toMap(), true);
    addSimSection(report, document);
    addStorageSections(report, document);
    return report.render();
}

QString featuresText(const QVariantMap &document)
{
    TextReport report;
    addFeatureSections(report, document.value(featuresKey).toMap(), false);
    return report.render();
}

QString simsText(const QVariantMap &document)
{
    TextReport report;
    addSimSection(report, document);
    return report.render();
}

QString storageText(const QVariantMap &document)
{
    TextReport report;
    addStorageSections(report, document);
    return report.render();
}

} // namespace Reports
} // namespace PlinthCtl
