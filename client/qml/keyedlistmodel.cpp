// SPDX-License-Identifier: BSD-3-Clause
#include "keyedlistmodel.h"

#include "daemonlink.h"

#include <QSet>

namespace PlinthQml {

namespace {

// The role of the row's key; the map's keys follow it.
constexpr int KeyRole = Qt::UserRole + 1;

} // namespace

KeyedListModel::KeyedListModel(const QStringList &roles, QObject *parent)
    : QAbstractListModel(parent)
    , m_roles(roles)
    , m_link(new DaemonLink(this))
{
    m_link->attach(this, &KeyedListModel::refresh);
}

bool KeyedListModel::isAvailable() const
{
    return m_link->isAvailable();
}

bool KeyedListModel::isBusy() const
{
    return m_link->isBusy();
}

void KeyedListModel::classBegin()
{
}

int KeyedListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_entries.size();
}

QVariant KeyedListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_entries.size())
        return QVariant();
    const Entry &entry = m_entries.at(index.row());
    if (role == KeyRole)
        return entry.key;
    const int field = role - KeyRole - 1;
    if (field < 0 || field >= m_roles.size())
        return QVariant();
    return entry.values.value(m_roles.at(field));
}

QHash<int, QByteArray> KeyedListModel::roleNames() const
{
    QHash<int, QByteArray> names{{KeyRole, QByteArrayLiteral("key")}};
    for (int i = 0; i < m_roles.size(); ++i)
        names.insert(KeyRole + 1 + i, m_roles.at(i).toUtf8());
    return names;
}

QVariantMap KeyedListModel::get(int row) const
{
    if (row < 0 || row >= m_entries.size())
        return QVariantMap();
    QVariantMap values = m_entries.at(row).values;
    values.insert(QStringLiteral("key"), m_entries.at(row).key);
    return values;
}

int KeyedListModel::rowOf(const QString &key) const
{
    for (int row = 0; row < m_entries.size(); ++row) {
        if (m_entries.at(row).key == key)
            return row;
    }
    return -1;
}

KeyedListModel::Changes KeyedListModel::update(const QVector<Entry> &next)
{
    Changes changes;
    const int countBefore = m_entries.size();
    QSet<QString> nextKeys;
    for (const Entry &entry : next)
        nextKeys.insert(entry.key);

    // Rows whose key is gone, from the last up, so that the rows still to be
    // looked at keep their numbers.
    for (int row = m_entries.size() - 1; row >= 0; --row) {
        if (nextKeys.contains(m_entries.at(row).key))
            continue;
        beginRemoveRows(QModelIndex(), row, row);
        changes.removed.prepend(m_entries.takeAt(row).key);
        endRemoveRows();
    }
    // Then row by row in the new order: each key is in its place already,
    // further down (moved up), or new (inserted).
    for (int row = 0; row < next.size(); ++row) {
        const Entry &wanted = next.at(row);
        const int found = rowOf(wanted.key);
        if (found < 0) {
            beginInsertRows(QModelIndex(), row, row);
            m_entries.insert(row, wanted);
            endInsertRows();
            changes.added.append(wanted.key);
            continue;
        }
        if (found != row) {
            beginMoveRows(QModelIndex(), found, found, QModelIndex(), row);
            m_entries.move(found, row);
            endMoveRows();
        }
        if (m_entries.at(row).values != wanted.values) {
            m_entries[row].values = wanted.values;
            emit dataChanged(index(row), index(row));
            changes.changed.append(wanted.key);
        }
    }
    if (m_entries.size() != countBefore)
        emit countChanged();
    return changes;
}

} // namespace PlinthQml
