// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_GLIBCONTEXTPUMP_H
#define PLINTHD_GLIBCONTEXTPUMP_H

#include <QObject>

typedef struct _GMainContext GMainContext;
class QSocketNotifier;

// A private GLib main context that is run from the Qt event loop of the thread
// that creates the pump.
//
// GLib libraries hand their callbacks to the main context that was the thread's
// default when they were set up. Qt 5 iterates GLib's global default context
// only when it runs on its GLib event dispatcher; with QT_NO_GLIB=1 (or a Qt
// built without GLib) nobody does, and those callbacks would never run. A
// context of our own, woken through its wake-up descriptor and dispatched from a
// socket notifier, works with either dispatcher.
//
// The context is meant for callbacks that other threads post to it (idle
// sources and g_main_context_invoke, as GDBus-based libraries do): those wake
// the context's descriptor. Sources with descriptors or timeouts of their own
// are not watched.
class GlibContextPump : public QObject
{
    Q_OBJECT

public:
    explicit GlibContextPump(QObject *parent = nullptr);
    ~GlibContextPump() override;

    GMainContext *context() const { return m_context; }

    // Makes the pump's context the thread default while a GLib object that
    // remembers it is being created.
    class Scope
    {
    public:
        explicit Scope(const GlibContextPump &pump);
        ~Scope();
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

    private:
        GMainContext *m_context;
    };

private:
    void dispatchPending();

    GMainContext *m_context;
    bool m_owned = false;
    QSocketNotifier *m_notifier = nullptr;
};

#endif // PLINTHD_GLIBCONTEXTPUMP_H
