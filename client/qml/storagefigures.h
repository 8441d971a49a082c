// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_STORAGEFIGURES_H
#define PLINTHQML_STORAGEFIGURES_H

#include <QObject>
#include <QQmlParserStatus>
#include <QVariantMap>

class QDBusPendingCall;
class QTimer;

namespace Plinth {
class Storages;
}

namespace PlinthQml {

class DaemonLink;

// What the four storage objects share: one of the daemon's storage answers,
// asked when the object is complete, again on refresh(), every
// refreshInterval milliseconds if set, and whenever the daemon comes back.
// The daemon measures before it answers (minutes on a full device), so busy
// is true while an answer is on its way; the figures stay those of the last
// answer meanwhile. A refresh() asked while busy is not lost: one more
// question follows the answer.
//
// Sizes are bytes. QML numbers are doubles: they hold every byte count
// exactly up to 2^53 bytes (8 PiB), and round beyond.
class StorageFigures : public QObject, public QQmlParserStatus
{
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    Q_PROPERTY(bool available READ isAvailable NOTIFY availableChanged)
    Q_PROPERTY(bool busy READ isBusy NOTIFY busyChanged)
    // Milliseconds between refreshes; 0 (the default): only on refresh().
    Q_PROPERTY(int refreshInterval READ refreshInterval WRITE setRefreshInterval NOTIFY refreshIntervalChanged)
    Q_PROPERTY(quint64 bytesTotal READ bytesTotal NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsed READ bytesUsed NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesAvailable READ bytesAvailable NOTIFY figuresChanged)
    // The answer as the daemon sent it, every key, for what a newer daemon
    // adds.
    Q_PROPERTY(QVariantMap values READ values NOTIFY figuresChanged)

public:
    ~StorageFigures() override;

    bool isAvailable() const;
    bool isBusy() const;
    int refreshInterval() const;
    void setRefreshInterval(int milliseconds);
    quint64 bytesTotal() const;
    quint64 bytesUsed() const;
    quint64 bytesAvailable() const;
    QVariantMap values() const { return m_values; }

    void classBegin() override;
    void componentComplete() override;

    Q_INVOKABLE void refresh();

signals:
    void availableChanged();
    void busyChanged();
    void refreshIntervalChanged();
    void figuresChanged();

protected:
    explicit StorageFigures(QObject *parent);

    Plinth::Storages *storages() const { return m_storages; }
    // The question of the object.
    virtual QDBusPendingCall ask() const = 0;
    // An answer that came another way (a signal), newer than any before.
    void take(const QVariantMap &values);
    // The answer on its way, if any, may be older than something the daemon
    // announced since: it is asked again once it is in.
    void markStale();

private:
    Plinth::Storages *m_storages;
    DaemonLink *m_link;
    QTimer *m_timer;
    QVariantMap m_values;
    bool m_asking = false;
    // Asked for while an answer was on its way: once more after it.
    bool m_again = false;
    // The answer on its way may be older than what is known: not taken.
    bool m_stale = false;
};

} // namespace PlinthQml

#endif // PLINTHQML_STORAGEFIGURES_H
