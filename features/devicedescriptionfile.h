// SPDX-License-Identifier: LicenseRef-plinthd
#ifndef PLINTHD_DEVICEDESCRIPTIONFILE_H
#define PLINTHD_DEVICEDESCRIPTIONFILE_H

#include <QJsonObject>
#include <QString>

// The device description file, "/etc/plinth/specification.json". The daemon
// only adds what it measures to a file that is already there and describes at
// least one device; it never creates the file and never answers from it.
class DeviceDescriptionFile
{
public:
    explicit DeviceDescriptionFile(const QString &path = defaultPath());

    static QString defaultPath();
    QString path() const { return m_path; }

    // Makes camera[key] of the first device entry an array holding only value
    // and writes the file back. Returns whether the file was rewritten. A file
    // that is missing, unreadable, not a JSON object, without keys or not
    // writable is left as it is, without a word in the log: many devices ship
    // without it or with it read-only. So is one owned by another user when
    // the daemon may not give files away (no CAP_CHOWN): the replacement
    // would change its owner.
    bool record(const QString &key, double value) const;

    // The document record() writes for the given content: the first key in
    // Qt's key order names the device entry. Empty when there is no key.
    static QJsonObject withCameraValue(const QJsonObject &document, const QString &key, double value);

private:
    QJsonObject read() const;
    bool replace(const QByteArray &content) const;

    QString m_path;
};

#endif // PLINTHD_DEVICEDESCRIPTIONFILE_H
