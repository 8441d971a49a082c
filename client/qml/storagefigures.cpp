// SPDX-License-Identifier: BSD-3-Clause
#include "storagefigures.h"

#include "daemonlink.h"

#include <plinth/plainvalue.h>
#include <plinth/storages.h>

#include <QDBusMessage>
#include <QTimer>

namespace PlinthQml {

StorageFigures::StorageFigures(QObject *parent)
    : QObject(parent)
    , m_storages(new Plinth::Storages(QDBusConnection::systemBus(), this))
    , m_link(new DaemonLink(this))
    , m_timer(new QTimer(this))
{
    m_link->attach(this, &StorageFigures::refresh);
    connect(m_timer, &QTimer::timeout, this, &StorageFigures::refresh);
}

StorageFigures::~StorageFigures() = default;

bool StorageFigures::isAvailable() const
{
    return m_link->isAvailable();
}

bool StorageFigures::isBusy() const
{
    return m_link->isBusy();
}

int StorageFigures::refreshInterval() const
{
    return m_timer->isActive() ? m_timer->interval() : 0;
}

void StorageFigures::setRefreshInterval(int milliseconds)
{
    const int interval = qMax(0, milliseconds);
    if (interval == refreshInterval())
        return;
    if (interval > 0)
        m_timer->start(interval);
    else
        m_timer->stop();
    emit refreshIntervalChanged();
}

quint64 StorageFigures::bytesTotal() const
{
    return Plinth::StorageFigures(m_values).bytesTotal();
}

quint64 StorageFigures::bytesUsed() const
{
    return Plinth::StorageFigures(m_values).bytesUsed();
}

quint64 StorageFigures::bytesAvailable() const
{
    return Plinth::StorageFigures(m_values).bytesAvailable();
}

void StorageFigures::classBegin()
{
}

void StorageFigures::componentComplete()
{
    refresh();
}

void StorageFigures::refresh()
{
    if (m_asking) {
        m_again = true;
        return;
    }
    m_asking = true;
    m_again = false;
    m_stale = false;
    m_link->beginLoad();
    m_link->follow(ask(), [this](const QDBusMessage &answer) {
        m_asking = false;
        // Without an answer the figures stay those of the last one.
        if (!m_stale && answer.type() == QDBusMessage::ReplyMessage)
            take(Plinth::plainValue(answer.arguments().value(0)).toMap());
        if (m_again || m_stale)
            refresh();
    });
}

void StorageFigures::take(const QVariantMap &values)
{
    if (values == m_values)
        return;
    m_values = values;
    emit figuresChanged();
}

void StorageFigures::markStale()
{
    if (m_asking)
        m_stale = true;
}

} // namespace PlinthQml
