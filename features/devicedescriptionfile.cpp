// SPDX-License-Identifier: LicenseRef-plinthd
#include "devicedescriptionfile.h"

#include "logging.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <sys/stat.h>
#include <unistd.h>

DeviceDescriptionFile::DeviceDescriptionFile(const QString &path)
    : m_path(path)
{
}

QString DeviceDescriptionFile::defaultPath()
{
    return QStringLiteral("/etc/plinth/specification.json");
}

bool DeviceDescriptionFile::record(const QString &key, double value) const
{
    const QJsonObject document = withCameraValue(read(), key, value);
    if (document.isEmpty())
        return false;
    return replace(QJsonDocument(document).toJson(QJsonDocument::Indented));
}

QJsonObject DeviceDescriptionFile::withCameraValue(const QJsonObject &document, const QString &key, double value)
{
    if (document.isEmpty())
        return QJsonObject();
    QJsonObject updated = document;
    const QString deviceKey = updated.begin().key();
    QJsonObject device = updated.value(deviceKey).toObject();
    QJsonObject camera = device.value(QLatin1String("camera")).toObject();
    camera.insert(key, QJsonArray{value});
    device.insert(QStringLiteral("camera"), camera);
    updated.insert(deviceKey, device);
    return updated;
}

// Anything that is not a readable JSON object counts as no content at all, so a
// damaged file is never overwritten with a guess.
QJsonObject DeviceDescriptionFile::read() const
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return QJsonObject();
    const QJsonObject document = QJsonDocument::fromJson(file.readAll()).object();
    file.close();
    return document;
}

// The new content goes to a temporary file beside the old one, which the rename
// of commit() then replaces in one step: a reader, a crash or a power loss sees
// the old document or the new one, never a truncated mix. The temporary file
// is given the old file's owner and mode first, so the rename changes nothing
// but the content.
bool DeviceDescriptionFile::replace(const QByteArray &content) const
{
    const QByteArray nativePath = QFile::encodeName(m_path);
    struct stat original;
    // Checked again here rather than trusted from read(): the file may have gone
    // since, and the daemon must not create it.
    if (::stat(nativePath.constData(), &original) != 0 || !QFileInfo(m_path).isWritable())
        return false;

    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // Giving a file away takes CAP_CHOWN, which the daemon's unit does not
    // grant. Replacing the file anyway would hand it to the daemon's user, so
    // a file whose owner cannot be kept is left as it is.
    if (::fchown(file.handle(), original.st_uid, original.st_gid) != 0) {
        qCDebug(lcPlinthd) << "Can't keep the owner of" << m_path << "- left as it is";
        file.cancelWriting();
        return false;
    }
    ::fchmod(file.handle(), original.st_mode & 07777);

    if (file.write(content) != content.size() || !file.commit()) {
        qCDebug(lcPlinthd) << "Can't write file" << m_path << file.errorString();
        return false;
    }
    return true;
}
