// SPDX-License-Identifier: BSD-3-Clause
// The device description file: whatever JSON (or not) is found there, the
// camera value is recorded into the first device entry and nothing else
// changes, or the file is left alone. Each input is written to a real file and
// recorded into, as the daemon does after a camera measurement.
#include "fuzzinput.h"

#include "devicedescriptionfile.h"

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

// Equality of JSON values that holds for keys with NUL characters too, which
// Qt's parser accepts but its objects neither look up by key nor keep in one
// order: parsing and inserting sort them differently. Objects are compared
// entry by entry, each searched for by iterating.
bool same(const QJsonValue &a, const QJsonValue &b);

bool same(const QJsonObject &a, const QJsonObject &b)
{
    if (a.size() != b.size())
        return false;
    for (auto i = a.begin(); i != a.end(); ++i) {
        bool found = false;
        for (auto j = b.begin(); j != b.end() && !found; ++j)
            found = i.key() == j.key() && same(i.value(), j.value());
        if (!found)
            return false;
    }
    return true;
}

bool same(const QJsonValue &a, const QJsonValue &b)
{
    if (a.type() != b.type())
        return false;
    if (a.isObject())
        return same(a.toObject(), b.toObject());
    if (a.isArray()) {
        const QJsonArray x = a.toArray();
        const QJsonArray y = b.toArray();
        if (x.size() != y.size())
            return false;
        for (int i = 0; i < x.size(); ++i) {
            if (!same(x.at(i), y.at(i)))
                return false;
        }
        return true;
    }
    return a == b;
}

// OBJECT[key], found by iterating (see above); undefined when absent.
QJsonValue entry(const QJsonObject &object, const QString &key)
{
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (it.key() == key)
            return it.value();
    }
    return QJsonValue(QJsonValue::Undefined);
}

// Whether any key, at any depth, holds a NUL character: the only documents the
// daemon may decline to rewrite although they have a key.
bool hasKeyWithNul(const QJsonValue &value)
{
    if (value.isArray()) {
        for (const QJsonValue &element : value.toArray()) {
            if (hasKeyWithNul(element))
                return true;
        }
    } else if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (it.key().contains(QChar(0)) || hasKeyWithNul(it.value()))
                return true;
        }
    }
    return false;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    PLINTH_FUZZ_CHECK(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

// Arrays and objects opened inside each other, outside strings, at the most.
const int MaxNesting = 100;

int nestingDepth(const QByteArray &content)
{
    int depth = 0;
    int deepest = 0;
    bool inString = false;
    for (int i = 0; i < content.size(); ++i) {
        const char c = content.at(i);
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = qMax(deepest, ++depth);
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return deepest;
}

} // namespace

// Qt 5.15's JSON parser leaks the value of a key that appears twice in one
// object when that value is an array or an object (about 80 bytes, inside
// QJsonDocument::fromJson; regressions/devicedescription/duplicate-keys-with-
// array-values). Not ours to fix, and harmless to the daemon, which parses
// the file once a camera measurement; the leak check must not stop at it.
// Qt's frames are only seen with the slow unwinder, and fromJson only within
// the deepest stack a report keeps (malloc_context_size, at most 255 frames):
// the parser recurses, two frames a level, so the target stops at inputs
// nested deeper than MaxNesting (below). These functions are read by the
// sanitizers at start-up, in the libFuzzer program and in the replay alike.
extern "C" const char *__asan_default_options()
{
    return "fast_unwind_on_malloc=0:malloc_context_size=255";
}

extern "C" const char *__lsan_default_options()
{
    return "print_suppressions=0";
}

extern "C" const char *__lsan_default_suppressions()
{
    return "leak:QJsonDocument::fromJson\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray content = FuzzInput::bytes(data, size);
    if (nestingDepth(content) > MaxNesting)
        return 0;
    const QString key = QStringLiteral("backResolutions");
    const double value = 12.0;

    const QJsonObject document = QJsonDocument::fromJson(content).object();
    const QJsonObject updated = DeviceDescriptionFile::withCameraValue(document, key, value);
    // Nothing to record into: nothing to write. A document whose keys Qt
    // cannot keep apart may be declined as a whole. Otherwise exactly the
    // first entry's camera array changes, to hold only the new value, and no
    // entry is lost.
    if (document.isEmpty())
        PLINTH_FUZZ_CHECK(updated.isEmpty());
    else if (!hasKeyWithNul(document))
        PLINTH_FUZZ_CHECK(!updated.isEmpty());
    if (!updated.isEmpty()) {
        PLINTH_FUZZ_CHECK(updated.size() == document.size());
        const QJsonObject device = entry(updated, document.begin().key()).toObject();
        PLINTH_FUZZ_CHECK(same(entry(entry(device, QStringLiteral("camera")).toObject(), key), QJsonArray{value}));
        for (auto was = document.begin() + 1; was != document.end(); ++was)
            PLINTH_FUZZ_CHECK(same(entry(updated, was.key()), was.value()));
    }

    const QString path = specPath();
    {
        QFile file(path);
        PLINTH_FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        PLINTH_FUZZ_CHECK(file.write(content) == content.size());
    }
    const bool written = DeviceDescriptionFile(path).record(key, value);
    PLINTH_FUZZ_CHECK(written == !updated.isEmpty());
    const QByteArray after = readAll(path);
    if (written)
        PLINTH_FUZZ_CHECK(same(QJsonDocument::fromJson(after).object(), updated));
    else
        PLINTH_FUZZ_CHECK(after == content);
    return 0;
}
