// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_KEYEDLISTMODEL_H
#define PLINTHQML_KEYEDLISTMODEL_H

#include <QAbstractListModel>
#include <QQmlParserStatus>
#include <QStringList>
#include <QVariantMap>
#include <QVector>

namespace PlinthQml {

class DaemonLink;

// A list of the daemon's maps, each row one map under a key of its own (a
// card's slot, a drive). The roles are the map's keys, and "key". A new list
// replaces the old one row by row: rows that stay keep their place in views
// and change only where their values do, so a view animates what happened
// instead of starting again. Like every object of the module it says whether
// the daemon is there and whether an answer is on its way, and asks again
// (refresh()) when another daemon is.
class KeyedListModel : public QAbstractListModel, public QQmlParserStatus
{
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)
    Q_PROPERTY(bool available READ isAvailable NOTIFY availableChanged)
    Q_PROPERTY(bool busy READ isBusy NOTIFY busyChanged)

public:
    struct Entry
    {
        QString key;
        QVariantMap values;
    };

    // What one update did, by key.
    struct Changes
    {
        QStringList added;
        QStringList removed;
        QStringList changed;
    };

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    bool isAvailable() const;
    bool isBusy() const;

    void classBegin() override;

    // Asks for the list again.
    Q_INVOKABLE virtual void refresh() = 0;

    // The row's map by its key ("key" included), as in a delegate; empty
    // when there is no such row.
    Q_INVOKABLE QVariantMap get(int row) const;

signals:
    void countChanged();
    void availableChanged();
    void busyChanged();

protected:
    KeyedListModel(const QStringList &roles, QObject *parent);

    DaemonLink *link() const { return m_link; }

    const QVector<Entry> &entries() const { return m_entries; }
    int rowOf(const QString &key) const;
    // Makes the rows those of `next` (whose keys are distinct), in its order.
    Changes update(const QVector<Entry> &next);

private:
    QStringList m_roles;
    QVector<Entry> m_entries;
    DaemonLink *m_link;
};

} // namespace PlinthQml

#endif // PLINTHQML_KEYEDLISTMODEL_H
