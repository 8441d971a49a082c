// SPDX-License-Identifier: BSD-3-Clause
#include "glibcontextpump.h"

#include "settingslogging.h"

#include <QSocketNotifier>

#include <glib.h>

GlibContextPump::GlibContextPump(QObject *parent)
    : QObject(parent)
    , m_context(g_main_context_new())
{
    // GLib wakes a context for work posted from another thread only when some
    // thread owns it; this thread owns it for the pump's whole life.
    m_owned = g_main_context_acquire(m_context);
    if (!m_owned) {
        qCWarning(lcSettings) << "Cannot acquire a new GLib main context";
        return;
    }
    // A context without sources polls nothing but its wake-up descriptor, so
    // asking it for its descriptors now yields exactly that one.
    gint priority = 0;
    g_main_context_prepare(m_context, &priority);
    GPollFD fds[1];
    gint timeout = 0;
    const gint count = g_main_context_query(m_context, priority, &timeout, fds, 1);
    if (count != 1) {
        qCWarning(lcSettings) << "GLib main context has" << count << "descriptors, expected its wake-up one";
        return;
    }
    m_notifier = new QSocketNotifier(fds[0].fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &GlibContextPump::dispatchPending);
}

GlibContextPump::~GlibContextPump()
{
    delete m_notifier;
    m_notifier = nullptr;
    if (m_owned)
        g_main_context_release(m_context);
    // Callbacks still queued are dropped with the context; their sources'
    // destroy notifiers release what they hold.
    g_main_context_unref(m_context);
}

void GlibContextPump::dispatchPending()
{
    // A non-blocking iteration acknowledges the wake-up and dispatches what is
    // ready; loop until nothing is, so one wake-up can carry several callbacks.
    while (g_main_context_iteration(m_context, FALSE)) {
    }
}

GlibContextPump::Scope::Scope(const GlibContextPump &pump)
    : m_context(pump.context())
{
    g_main_context_push_thread_default(m_context);
}

GlibContextPump::Scope::~Scope()
{
    g_main_context_pop_thread_default(m_context);
}
