// The device description file: whatever JSON (or not) is found there, the
// camera value is recorded into the first device entry, or the file is left
// alone. Each input is written to a real file and recorded into, as the
// daemon does after a camera measurement.
#include "fuzzinput.h"

#include "devicespecfile.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

namespace {

QString specPath()
{
    static QTemporaryDir directory;
    PLINTH_FUZZ_CHECK(directory.isValid());
    return directory.filePath(QStringLiteral("specification.json"));
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    PLINTH_FUZZ_CHECK(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray content = FuzzInput::bytes(data, size);
    const QString key = QStringLiteral("backResolutions");
    const double value = 12.0;

    const QJsonObject document = QJsonDocument::fromJson(content).object();
    const QJsonObject updated = DeviceSpecFile::withCameraValue(document, key, value);
    // Nothing to record into: nothing to write. Otherwise exactly the first
    // entry's camera array changes, to hold only the new value.
    PLINTH_FUZZ_CHECK(updated.isEmpty() == document.isEmpty());
    if (!updated.isEmpty()) {
        PLINTH_FUZZ_CHECK(updated.keys() == document.keys());
        const QString first = document.begin().key();
        const QJsonObject device = updated.value(first).toObject();
        PLINTH_FUZZ_CHECK(device.value(QLatin1String("camera")).toObject().value(key).toArray()
                          == QJsonArray{value});
        for (auto it = document.begin() + 1; it != document.end(); ++it)
            PLINTH_FUZZ_CHECK(updated.value(it.key()) == it.value());
    }

    const QString path = specPath();
    {
        QFile file(path);
        PLINTH_FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        PLINTH_FUZZ_CHECK(file.write(content) == content.size());
    }
    const bool written = DeviceSpecFile(path).record(key, value);
    PLINTH_FUZZ_CHECK(written == !document.isEmpty());
    const QByteArray after = readAll(path);
    if (written)
        PLINTH_FUZZ_CHECK(QJsonDocument::fromJson(after).object() == updated);
    else
        PLINTH_FUZZ_CHECK(after == content);
    return 0;
}
