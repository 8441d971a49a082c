// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_ABOUTSETTINGS_H
#define PLINTHD_ABOUTSETTINGS_H

#include <QObject>
#include <QString>

// The identity of the installed system and of the device it runs on, read
// afresh on every call (an update can change the version while we run).
//
// softwareVersionId(): VERSION_ID of /etc/os-release; only when that file is
//   missing or unreadable, of /usr/lib/os-release, which is where the vendor
//   ships it and /etc/os-release usually points. A file that exists but has no
//   VERSION_ID is authoritative and gives an empty string: falling through to
//   the vendor file would report a version the administrator replaced.
// serial(): the device tree's serial-number (boards describe themselves there),
//   else the firmware's DMI product_serial (PCs and virtual machines), else
//   empty. A source that is missing or holds only blanks does not count.
class AboutSettings : public QObject
{
    Q_OBJECT

public:
    explicit AboutSettings(QObject *parent = nullptr);
    ~AboutSettings() override;

    QString softwareVersionId() const;
    QString serial() const;
};

#endif // PLINTHD_ABOUTSETTINGS_H
