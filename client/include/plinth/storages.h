// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_STORAGES_H
#define PLINTH_STORAGES_H

#include <plinth/daemonobject.h>
#include <plinth/storagetypes.h>

#include <QDBusPendingReply>

namespace Plinth {

// The object /org/norvu/plinth/Storages: internal memory, the user
// partition, system categories, external drives and quotas.
//
// Most questions make the daemon measure: it walks directories and reads the
// package database, which takes minutes on a full device. They are sent with
// queryTimeout() (five minutes unless set) instead of QtDBus's 25 seconds;
// only getExternalStorageDrivesInfo is quick.
class PLINTH_QT5_EXPORT Storages : public DaemonObject
{
    Q_OBJECT

public:
    static const int defaultQueryTimeoutMs = 5 * 60 * 1000;

    explicit Storages(const QDBusConnection &bus = QDBusConnection::systemBus(), QObject *parent = nullptr);
    ~Storages() override;

    int queryTimeout() const;
    void setQueryTimeout(int milliseconds);

    QDBusPendingReply<Plinth::InternalStorage> getInternalStorageInfo() const;
    QDBusPendingReply<Plinth::UserPartition> getInternalUserPartitionInfo() const;
    QDBusPendingReply<Plinth::SystemStorage> getSystemStorageInfo() const;
    QDBusPendingReply<Plinth::ExternalDriveList> getExternalStorageDrivesInfo() const;
    QDBusPendingReply<Plinth::UserQuotaMap> getUsersQuotaInfo() const;
    // Deprecated by getExternalStorageDrivesInfo.
    QDBusPendingReply<Plinth::ExternalStorageSummary> getExternalStorageInfo() const;

signals:
    // A partition of the drive appeared, was mounted or unmounted, or went;
    // an empty drive announces that a drive has gone (ask for the list to
    // learn which).
    void externalDriveChanged(const Plinth::ExternalDrive &drive);
    // Deprecated by externalDriveChanged; empty after the last external
    // partition has gone.
    void externalStorageChanged(const Plinth::ExternalStorageSummary &summary);

protected:
    void relay(const QDBusMessage &message) override;

private:
    class Private;
    const QScopedPointer<Private> m_private;
};

} // namespace Plinth

#endif // PLINTH_STORAGES_H
