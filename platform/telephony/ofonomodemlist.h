// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_OFONOMODEMLIST_H
#define PLINTHD_OFONOMODEMLIST_H

#include <QObject>
#include <QStringList>

class QDBusServiceWatcher;
class QOfonoManager;
class QTimer;

// Whether oFono is on the bus with its modem list read, and that list in path
// order (plain string order): libqofono's QOfonoManager, with one thing added.
//
// The manager follows oFono coming and going by itself, and reads the list
// again for every new oFono. But when reading the list fails (an oFono still
// starting answers with an error), it stays unavailable until oFono comes
// anew. So while oFono is on the bus and its list is neither read nor being
// read, the manager is replaced by a new one, which asks again, at growing
// intervals. A read still waiting for its answer is never asked again: a
// peer that holds calls would otherwise collect them, and every call held
// counts against the few the bus lets one connection have outstanding.
//
// The manager is made with mayBlock false: libqofono's other constructors,
// and its getModems(), wait for oFono's answer on the calling thread, and
// this runs on the main thread, which never waits on a peer. Making one asks
// the bus itself (not oFono) whether oFono is there.
class OfonoModemList : public QObject
{
    Q_OBJECT

public:
    explicit OfonoModemList(QObject *parent = nullptr);

    QStringList modems() const;

signals:
    // availableChanged(true) comes after the list is in place; the list may
    // change before that, while it is being taken in.
    void availableChanged(bool available);
    void modemsChanged();

private:
    void makeManager();
    void scheduleCheck();
    void checkModemsRead();
    bool isReadPending() const;
    void askAgainIfOfonoIsThere();

    QDBusServiceWatcher *m_ofonoWatcher;
    QTimer *m_checkTimer;
    int m_checkDelay;
    QOfonoManager *m_manager = nullptr;
};

#endif // PLINTHD_OFONOMODEMLIST_H
