// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DEVICEDESCRIPTIONFILE_H
#define PLINTHD_DEVICEDESCRIPTIONFILE_H

#include <QJsonObject>
#include <QString>

#include <sys/types.h>

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
    // without it or with it read-only. So is a document whose rewrite could
    // lose an entry (see withCameraValue()), with a word in the debug log.
    //
    // The new document replaces the file in one rename, so that a reader, a
    // crash or a power loss sees the old document or the new one, with the old
    // file's owner and mode. Where no replacement can be made while the file
    // itself may be written (its folder is read-only, it is a bind mount, its
    // owner cannot be given to a new file without CAP_CHOWN), it is rewritten
    // in place instead: not atomic, but a value is recorded wherever the file
    // may be written at all.
    bool record(const QString &key, double value) const;

    // The document record() writes for the given content: the first key in
    // Qt's key order names the device entry. Empty when there is no key, and
    // when a key of the document, of its device entry or of that entry's
    // "camera" holds a NUL character: Qt's JSON objects do not tell apart keys
    // that differ only after one, so looking up and inserting could take one
    // entry for another and the rewrite would lose it.
    static QJsonObject withCameraValue(const QJsonObject &document, const QString &key, double value);

private:
    bool write(const QByteArray &content, const QByteArray &before) const;
    enum class Replacement { Done, Failed, NotPossible };
    Replacement replace(const QByteArray &content, uid_t owner, gid_t group, mode_t mode) const;
    bool writeInPlace(const QByteArray &content, const QByteArray &before) const;

    QString m_path;
};

#endif // PLINTHD_DEVICEDESCRIPTIONFILE_H
