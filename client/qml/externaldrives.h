// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_EXTERNALDRIVES_H
#define PLINTHQML_EXTERNALDRIVES_H

#include "keyedlistmodel.h"

namespace Plinth {
class ExternalDrive;
class Storages;
} // namespace Plinth

namespace PlinthQml {

// ExternalDrives: the SD cards and USB sticks, one row each in the daemon's
// order, with the keys of its drive map as roles (driveName, driveType,
// partitionsInfo: a list of partition maps) and "key", which names the drive
// in the signals: its driveName (its driveType when it has none), with "#2",
// "#3", ... added should a list hold two of one name.
//
// The daemon announces a drive that changed with its whole map, and one that
// went with an empty map that does not say which: the model then asks for the
// list and compares, so that driveRemoved says which drive went.
class ExternalDrives : public KeyedListModel
{
    Q_OBJECT

public:
    explicit ExternalDrives(QObject *parent = nullptr);
    ~ExternalDrives() override;

    void componentComplete() override;
    void refresh() override;

signals:
    // A drive came into the list (the first list counts too), went out of it,
    // or one of its partitions appeared, went, was mounted or unmounted.
    void driveAdded(const QString &key);
    void driveRemoved(const QString &key);
    void driveChanged(const QString &key);

private:
    void driveAnnounced(const Plinth::ExternalDrive &drive);
    void take(const QVector<Entry> &next);
    void announce(const Changes &changes);

    Plinth::Storages *m_storages;
    bool m_asking = false;
    // Something changed (or was asked for) while the list was on its way: the
    // answer may be older than what is known already, and the list is asked
    // for again.
    bool m_stale = false;
};

} // namespace PlinthQml

#endif // PLINTHQML_EXTERNALDRIVES_H
