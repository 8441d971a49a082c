// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_MGCONFITEM_H
#define PLINTHD_MGCONFITEM_H

#include <QObject>
#include <QString>
#include <QVariant>

class GlibContextPump;
typedef struct _DConfClient DConfClient;

// One configuration value, by key, with change notification.
//
// Keys are dconf paths as they stand ("/veska/ofono/voice_sim_usage_mode" is the
// dconf key of that name). Values are read from the dconf profile of the process:
// the one named by the DCONF_PROFILE environment variable (a name under
// /etc/dconf/profile/ or under dconf/profile/ of a data folder such as
// /usr/share, or an absolute file name), else dconf's default ("user",
// or the user's own database when there is no such profile).
//
// plinthd is a system service without a user session, so it is meant to run
// with DCONF_PROFILE=plinthd, whose profile (data/dconf/profile/plinthd,
// installed as /usr/share/dconf/profile/plinthd) holds the one line
// "system-db:plinthd". The settings then live in the system database
// /etc/dconf/db/plinthd, compiled from the keyfiles in /etc/dconf/db/plinthd.d/.
// An administrator, or the settings application through a privileged helper,
// changes a key by writing a keyfile there, for example
//
//     [veska/ofono]
//     voice_sim_usage_mode=1
//     default_voice_sim='310150000000001'
//
// and running "dconf update" as root. dconf update announces the new database on
// the system bus and every reader re-reads it, so no session bus is involved.
// (A "user-db:" database notifies only over a session bus, and a "file-db:" one
// never notifies: neither suits a system service.)
//
// Values arrive as GVariants and are given as: booleans as bool; int16 and
// int32 as int; byte, uint16 and uint32 as uint; int64 as qlonglong; uint64 as
// qulonglong; double as double; strings, object paths and signatures as
// QString; string arrays as QStringList. An unset key, an invalid key and any
// other type read as an invalid QVariant.
//
// A missing profile or database makes dconf warn once and read every key as
// unset.
//
// Tests select the profile through DCONF_PROFILE (an absolute file name works
// too). System databases are always looked up under /etc/dconf/db, which dconf
// offers no variable to move, so a test puts a directory of its own over
// /etc/dconf in a private mount namespace; "dconf update DIR" compiles the
// databases of any directory and still announces them on the bus named by
// DBUS_SYSTEM_BUS_ADDRESS.
//
// valueChanged() is emitted, on the creating thread's Qt event loop, when a
// notification leaves the key with a different value than before; dconf
// announces whole databases at a time, and keys that kept their value stay
// quiet. Notifications reach the event loop whether Qt runs on its GLib event
// dispatcher or not (QT_NO_GLIB=1): see GlibContextPump. The item reads and
// never writes.
class MGConfItem : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QVariant value READ value NOTIFY valueChanged)

public:
    explicit MGConfItem(const QString &key, QObject *parent = nullptr);
    ~MGConfItem() override;

    QVariant value() const;

signals:
    void valueChanged();

private:
    static void onChanged(DConfClient *client, const char *prefix, const char *const *changes,
                          const char *tag, void *self);
    bool concerns(const char *prefix, const char *const *changes) const;
    QVariant read() const;
    void refresh();

    QString m_key;
    QByteArray m_dconfKey;
    QVariant m_value;
    GlibContextPump *m_pump = nullptr;
    DConfClient *m_client = nullptr;
    unsigned long m_changedHandler = 0;
};

#endif // PLINTHD_MGCONFITEM_H
