// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_STORAGEOBJECTS_H
#define PLINTHQML_STORAGEOBJECTS_H

#include "storagefigures.h"

namespace Plinth {
class ExternalStorageSummary;
}

namespace PlinthQml {

// InternalStorage: the internal memory as one figure (getInternalStorageInfo).
class InternalStorage : public StorageFigures
{
    Q_OBJECT
    Q_PROPERTY(QString filesystemType READ filesystemType NOTIFY figuresChanged)
    Q_PROPERTY(QString deviceLabel READ deviceLabel NOTIFY figuresChanged)

public:
    explicit InternalStorage(QObject *parent = nullptr);

    QString filesystemType() const;
    QString deviceLabel() const;

protected:
    QDBusPendingCall ask() const override;
};

// UserPartition: the user partition as the current user sees it, with the
// user's five folders (getInternalUserPartitionInfo).
class UserPartition : public StorageFigures
{
    Q_OBJECT
    Q_PROPERTY(QString filesystemType READ filesystemType NOTIFY figuresChanged)
    Q_PROPERTY(QString deviceLabel READ deviceLabel NOTIFY figuresChanged)
    // False when the daemon could not tell who the current user is: then the
    // folders, the other files and the other users read 0.
    Q_PROPERTY(bool hasBreakdown READ hasBreakdown NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedPictures READ bytesUsedPictures NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedVideos READ bytesUsedVideos NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedMusic READ bytesUsedMusic NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedDocuments READ bytesUsedDocuments NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedDownloads READ bytesUsedDownloads NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedOther READ bytesUsedOther NOTIFY figuresChanged)
    Q_PROPERTY(bool hasOtherUsers READ hasOtherUsers NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedOtherUsers READ bytesUsedOtherUsers NOTIFY figuresChanged)

public:
    explicit UserPartition(QObject *parent = nullptr);

    QString filesystemType() const;
    QString deviceLabel() const;
    bool hasBreakdown() const;
    quint64 bytesUsedPictures() const;
    quint64 bytesUsedVideos() const;
    quint64 bytesUsedMusic() const;
    quint64 bytesUsedDocuments() const;
    quint64 bytesUsedDownloads() const;
    quint64 bytesUsedOther() const;
    bool hasOtherUsers() const;
    quint64 bytesUsedOtherUsers() const;

protected:
    QDBusPendingCall ask() const override;
};

// SystemStorage: the root file system and what the system keeps there, by
// category (getSystemStorageInfo).
class SystemStorage : public StorageFigures
{
    Q_OBJECT
    Q_PROPERTY(quint64 bytesUsedApps READ bytesUsedApps NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedDebugInfo READ bytesUsedDebugInfo NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedSDK READ bytesUsedSDK NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedCoreDumps READ bytesUsedCoreDumps NOTIFY figuresChanged)
    Q_PROPERTY(quint64 bytesUsedSystemLogs READ bytesUsedSystemLogs NOTIFY figuresChanged)
    // The used space minus the five categories; 0 when they add up to more
    // (package sizes are declared, not measured), which
    // categoriesExceedUsed tells.
    Q_PROPERTY(quint64 bytesUsedOther READ bytesUsedOther NOTIFY figuresChanged)
    Q_PROPERTY(bool categoriesExceedUsed READ categoriesExceedUsed NOTIFY figuresChanged)

public:
    explicit SystemStorage(QObject *parent = nullptr);

    quint64 bytesUsedApps() const;
    quint64 bytesUsedDebugInfo() const;
    quint64 bytesUsedSDK() const;
    quint64 bytesUsedCoreDumps() const;
    quint64 bytesUsedSystemLogs() const;
    quint64 bytesUsedOther() const;
    bool categoriesExceedUsed() const;

protected:
    QDBusPendingCall ask() const override;
};

// ExternalStorage: every mounted external partition summed into one figure
// (getExternalStorageInfo), kept current from externalStorageChanged.
class ExternalStorage : public StorageFigures
{
    Q_OBJECT
    Q_PROPERTY(QString deviceLabel READ deviceLabel NOTIFY figuresChanged)
    Q_PROPERTY(bool mounted READ isMounted NOTIFY figuresChanged)
    Q_PROPERTY(uint countMountedPartitions READ countMountedPartitions NOTIFY figuresChanged)

public:
    explicit ExternalStorage(QObject *parent = nullptr);

    QString deviceLabel() const;
    bool isMounted() const;
    uint countMountedPartitions() const;

    void componentComplete() override;

protected:
    QDBusPendingCall ask() const override;

private:
    void summaryAnnounced(const Plinth::ExternalStorageSummary &summary);
};

} // namespace PlinthQml

#endif // PLINTHQML_STORAGEOBJECTS_H
