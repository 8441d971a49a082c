// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DEVICEUSERS_H
#define PLINTHD_DEVICEUSERS_H

#include <QList>
#include <QString>
#include <QStringList>

// The people of the device: accounts numbered from 100000 (the owner) to
// 100006, taken in order up to the first number the account database does
// not know. Looked up afresh on every call; safe on any thread.
class DeviceUsers
{
public:
    static constexpr uint Owner = 100000;
    static constexpr uint Last = 100006;

    // The login name, or an empty string for an unknown uid.
    static QString userName(uint uid);
    static QList<uint> uids();
    static QStringList names();
};

#endif // PLINTHD_DEVICEUSERS_H
