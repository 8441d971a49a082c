// SPDX-License-Identifier: BSD-3-Clause
#include "externaldrives.h"

#include "daemonlink.h"

#include <plinth/mapkeys.h>
#include <plinth/plainvalue.h>
#include <plinth/storages.h>

#include <QDBusMessage>

namespace PlinthQml {

namespace {

const QString NameKey = QLatin1String(Plinth::Keys::DriveName);
const QString TypeKey = QLatin1String(Plinth::Keys::DriveType);

QString baseKey(const QVariantMap &drive)
{
    const QString name = drive.value(NameKey).toString();
    return name.isEmpty() ? drive.value(TypeKey).toString() : name;
}

// The rows of a list as the daemon sent it, each under its key.
QVector<KeyedListModel::Entry> entriesOf(const QVariantList &drives)
{
    QVector<KeyedListModel::Entry> entries;
    QHash<QString, int> seen;
    for (const QVariant &drive : drives) {
        const QVariantMap values = drive.toMap();
        const QString base = baseKey(values);
        const int n = ++seen[base];
        entries.append({n == 1 ? base : base + QLatin1Char('#') + QString::number(n), values});
    }
    return entries;
}

} // namespace

ExternalDrives::ExternalDrives(QObject *parent)
    : KeyedListModel({NameKey, TypeKey, QLatin1String(Plinth::Keys::PartitionsInfo)}, parent)
    , m_storages(new Plinth::Storages(QDBusConnection::systemBus(), this))
{
}

ExternalDrives::~ExternalDrives() = default;

void ExternalDrives::componentComplete()
{
    // Subscribed before the first question, so that nothing falls between.
    connect(m_storages, &Plinth::Storages::externalDriveChanged, this, &ExternalDrives::driveAnnounced);
    refresh();
}

void ExternalDrives::refresh()
{
    if (m_asking) {
        m_stale = true;
        return;
    }
    m_asking = true;
    m_stale = false;
    link()->beginLoad();
    link()->follow(m_storages->getExternalStorageDrivesInfo(), [this](const QDBusMessage &answer) {
        m_asking = false;
        // The daemon makes the list on a worker and sends it later: a change
        // announced meanwhile may be newer than the list.
        if (m_stale) {
            refresh();
            return;
        }
        // Without an answer the rows stay as they were.
        if (answer.type() == QDBusMessage::ReplyMessage)
            take(entriesOf(Plinth::plainValue(answer.arguments().value(0)).toList()));
    });
}

void ExternalDrives::driveAnnounced(const Plinth::ExternalDrive &drive)
{
    if (m_asking)
        m_stale = true;
    const QVariantMap values = drive.values();
    const QString key = baseKey(values);
    // An empty map says that a drive went, not which; a new drive's place in
    // the daemon's order, and a name that two drives share, only the list
    // tells.
    const bool ambiguous = rowOf(key + QStringLiteral("#2")) >= 0;
    const int row = rowOf(key);
    if (drive.isEmpty() || ambiguous || row < 0) {
        refresh();
        return;
    }
    QVector<Entry> next = entries();
    next[row].values = values;
    take(next);
}

void ExternalDrives::take(const QVector<Entry> &next)
{
    announce(update(next));
}

void ExternalDrives::announce(const Changes &changes)
{
    for (const QString &key : changes.removed)
        emit driveRemoved(key);
    for (const QString &key : changes.added)
        emit driveAdded(key);
    for (const QString &key : changes.changed)
        emit driveChanged(key);
}

} // namespace PlinthQml
