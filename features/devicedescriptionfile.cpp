// SPDX-License-Identifier: BSD-3-Clause
#include "devicedescriptionfile.h"

#include "filecontent.h"
#include "logging.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QLatin1String CameraKey("camera");

// Found by iterating, which sees every key; a lookup would not (see the header).
bool hasKeyWithNul(const QJsonObject &object)
{
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (it.key().contains(QChar(0)))
            return true;
    }
    return false;
}

} // namespace

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
    // Anything that is not a readable JSON object counts as no content at all,
    // so a damaged file is never overwritten with a guess.
    const QByteArray before = FileContent::read(m_path);
    const QJsonObject original = QJsonDocument::fromJson(before).object();
    if (original.isEmpty())
        return false;
    const QJsonObject document = withCameraValue(original, key, value);
    if (document.isEmpty()) {
        qCDebug(lcPlinthd) << "Keys of" << m_path << "hold NUL characters, which a rewrite could not keep apart"
                           << "- left as it is";
        return false;
    }
    return write(QJsonDocument(document).toJson(QJsonDocument::Indented), before);
}

QJsonObject DeviceDescriptionFile::withCameraValue(const QJsonObject &document, const QString &key, double value)
{
    if (document.isEmpty() || hasKeyWithNul(document))
        return QJsonObject();
    QJsonObject updated = document;
    const QString deviceKey = updated.begin().key();
    QJsonObject device = updated.value(deviceKey).toObject();
    QJsonObject camera = device.value(CameraKey).toObject();
    if (hasKeyWithNul(device) || hasKeyWithNul(camera) || key.contains(QChar(0)))
        return QJsonObject();
    camera.insert(key, QJsonArray{value});
    device.insert(CameraKey, camera);
    updated.insert(deviceKey, device);
    return updated;
}

bool DeviceDescriptionFile::write(const QByteArray &content, const QByteArray &before) const
{
    const QByteArray nativePath = QFile::encodeName(m_path);
    struct stat original;
    // Checked again here rather than trusted from read(): the file may have gone
    // since, and the daemon must not create it.
    if (::stat(nativePath.constData(), &original) != 0 || !QFileInfo(m_path).isWritable())
        return false;

    switch (replace(content, original.st_uid, original.st_gid, original.st_mode & 07777)) {
    case Replacement::Done:
        return true;
    case Replacement::Failed:
        return false;
    case Replacement::NotPossible:
        break;
    }
    return writeInPlace(content, before);
}

// The new content goes to a temporary file beside the old one, which the rename
// of commit() then puts in its place in one step. The temporary file is given
// the old file's owner and mode first, so the rename changes nothing but the
// content. A failure to write the content itself (a full disk) ends here: an
// in-place write would then most likely leave a truncated file.
DeviceDescriptionFile::Replacement DeviceDescriptionFile::replace(const QByteArray &content, uid_t owner, gid_t group,
                                                                  mode_t mode) const
{
    QSaveFile file(m_path);
    // Fails when the folder may not be written.
    if (!file.open(QIODevice::WriteOnly))
        return Replacement::NotPossible;
    // Giving a file away takes CAP_CHOWN, which the daemon's unit does not grant.
    if (::fchown(file.handle(), owner, group) != 0) {
        file.cancelWriting();
        return Replacement::NotPossible;
    }
    ::fchmod(file.handle(), mode);

    if (file.write(content) != content.size()) {
        qCDebug(lcPlinthd) << "Can't write file" << m_path << file.errorString();
        file.cancelWriting();
        return Replacement::Failed;
    }
    if (file.commit())
        return Replacement::Done;
    // A bind-mounted file cannot be renamed over (EBUSY).
    if (file.error() == QFileDevice::RenameError)
        return Replacement::NotPossible;
    qCDebug(lcPlinthd) << "Can't write file" << m_path << file.errorString();
    return Replacement::Failed;
}

// Opened without O_CREAT, so a file removed meanwhile is not made anew, and
// truncated only after the whole content is in. Should the write fail halfway
// (a full disk), the old content goes back over the blocks the file already
// had, so that no half-written document is left behind.
bool DeviceDescriptionFile::writeInPlace(const QByteArray &content, const QByteArray &before) const
{
    QFile file;
    const int descriptor = ::open(QFile::encodeName(m_path).constData(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    if (!file.open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        return false;
    }
    const auto writeWhole = [&file](const QByteArray &bytes) {
        return file.seek(0) && file.write(bytes) == bytes.size() && file.flush() && file.resize(bytes.size());
    };
    if (writeWhole(content)) {
        qCDebug(lcPlinthd) << "Rewrote" << m_path << "in place: it cannot be replaced";
        return true;
    }
    const QString error = file.errorString();
    const bool restored = writeWhole(before);
    qCDebug(lcPlinthd) << "Can't write file" << m_path << "in place:" << error
                       << (restored ? "- the old content is back" : "- nor put the old content back");
    return false;
}
