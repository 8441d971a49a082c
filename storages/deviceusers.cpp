// SPDX-License-Identifier: BSD-3-Clause
#include "deviceusers.h"

#include <QFile>

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace {

// getpwuid_r: several queries look users up at once on pool threads, and
// getpwuid hands out one static record.
bool lookUp(uint uid, QString *name)
{
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? std::size_t(size) : 16384);
    for (;;) {
        struct passwd record;
        struct passwd *found = nullptr;
        const int error = ::getpwuid_r(uid, &record, buffer.data(), buffer.size(), &found);
        if (error == ERANGE && buffer.size() < (std::size_t(1) << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error != 0 || !found)
            return false;
        if (name)
            *name = QFile::decodeName(found->pw_name);
        return true;
    }
}

} // namespace

QString DeviceUsers::userName(uint uid)
{
    QString name;
    lookUp(uid, &name);
    return name;
}

QList<uint> DeviceUsers::uids()
{
    QList<uint> known;
    for (uint uid = Owner; uid <= Last && lookUp(uid, nullptr); ++uid)
        known.append(uid);
    return known;
}

QStringList DeviceUsers::names()
{
    QStringList known;
    QString name;
    for (uint uid = Owner; uid <= Last && lookUp(uid, &name); ++uid)
        known.append(name);
    return known;
}
