// SPDX-License-Identifier: BSD-3-Clause
#include "fields.h"

#include "sizeformat.h"

#include <plinth/mapkeys.h>

#include <QHash>
#include <QStringList>
#include <QVector>

#include <algorithm>
#include <limits>

namespace PlinthCtl {
namespace Fields {

namespace {

using namespace Plinth;

// Below this figure a number is the daemon's way of saying "not known".
const quint64 allNumbersKnown = 0;
const quint64 zeroUnknown = 1;
// A core's maximum that the kernel does not give as a plain number reads as
// a figure far too small.
const quint64 coreClockKnownFrom = 100;

struct FieldInfo
{
    const char *label;
    Kind kind;
    Group group;
    quint64 knownFrom = allNumbersKnown;
};

// Names are those of the answers: the out-argument names of the Features
// methods, its property names, and the keys of the SIM and storage maps
// (<plinth/mapkeys.h>).
struct NamedField
{
    QString name;
    FieldInfo info;
};

// In display order: the text form lists known values in this order, unknown
// ones after them.
const QVector<NamedField> &fieldTable()
{
    static const QVector<NamedField> fields = {
        // Features: hardware
        {QStringLiteral("cpuModel"), {"CPU model", Kind::Plain, Group::Device}},
        {QStringLiteral("numCores"), {"CPU cores", Kind::Plain, Group::Device, zeroUnknown}},
        {QStringLiteral("maxClockSpeed"), {"CPU max clock", Kind::MegaHertz, Group::Device, zeroUnknown}},
        {QStringLiteral("maxCoresClockSpeed"), {"Core max clocks", Kind::MegaHertz, Group::Device, coreClockKnownFrom}},
        {QStringLiteral("ramTotal"), {"Memory total", Kind::Bytes, Group::Device, zeroUnknown}},
        {QStringLiteral("ramFree"), {"Memory free", Kind::Bytes, Group::Device, zeroUnknown}},
        {QStringLiteral("screenResolution"), {"Screen", Kind::Plain, Group::Device}},
        {QStringLiteral("batteryPercentage"), {"Battery", Kind::Percent, Group::Device, zeroUnknown}},
        {QStringLiteral("mainCamRes"), {"Main camera", Kind::MegaPixels, Group::Device, zeroUnknown}},
        {QStringLiteral("frontalCamRes"), {"Front camera", Kind::MegaPixels, Group::Device, zeroUnknown}},
        {QStringLiteral("hasGnss"), {"GNSS", Kind::Plain, Group::Device}},
        {QStringLiteral("hasNfc"), {"NFC", Kind::Plain, Group::Device}},
        {QStringLiteral("hasBluetooth"), {"Bluetooth", Kind::Plain, Group::Device}},
        {QStringLiteral("hasWlan"), {"WLAN", Kind::Plain, Group::Device}},
        // Features: operating system
        {QStringLiteral("osVersion"), {"OS version", Kind::Plain, Group::OperatingSystem}},
        {QStringLiteral("osType"), {"OS type", Kind::Plain, Group::OperatingSystem}},
        {QStringLiteral("isOsCertified"), {"Certified", Kind::Plain, Group::OperatingSystem}},
        {QStringLiteral("isOsEmulated"), {"Emulated", Kind::Plain, Group::OperatingSystem}},
        {QStringLiteral("deviceModel"), {"Device model", Kind::Plain, Group::OperatingSystem}},
        {QStringLiteral("serialNumber"), {"Serial number", Kind::Plain, Group::OperatingSystem}},
        // Features: locale and fonts
        {QStringLiteral("locale"), {"Locale", Kind::Plain, Group::Locale}},
        {QStringLiteral("locales"), {"Installed locales", Kind::Plain, Group::Locale}},
        {QStringLiteral("timeZone"), {"Time zone", Kind::Plain, Group::Locale}},
        {QStringLiteral("fontNames"), {"Font files", Kind::Plain, Group::Fonts}},
        {QStringLiteral("fontFamilyNames"), {"Font families", Kind::Plain, Group::Fonts}},
        // SIM cards
        {QLatin1String(Keys::SimName), {"Name", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::OperatorName), {"Operator", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::Enabled), {"Present", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::PreferredDataTransfer), {"Preferred for data", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::PreferredVoiceCall), {"Preferred for calls", Kind::Plain, Group::Other}},
        // Storage: what it is, then its figures, then what fills it
        {QLatin1String(Keys::DeviceLabel), {"Label", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::DriveName), {"Drive", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::DriveType), {"Connection", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::PartitionName), {"Name", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::PartitionLabel), {"Partition label", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::MountPoint), {"Mount point", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::FilesystemType), {"File system", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::Mounted), {"Mounted", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::CountMountedPartitions), {"Mounted partitions", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::BytesTotal), {"Total", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsed), {"Used", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesAvailable), {"Available", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedPictures), {"Used by pictures", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedVideos), {"Used by videos", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedMusic), {"Used by music", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedDocuments), {"Used by documents", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedDownloads), {"Used by downloads", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedApps), {"Used by apps", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedDebugInfo), {"Used by debug info", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedSDK), {"Used by SDK", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedCoreDumps), {"Used by core dumps", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedSystemLogs), {"Used by system logs", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedOther), {"Used by other files", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::BytesUsedOtherUsers), {"Used by other users", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::QuotaIsSet), {"Quota set", Kind::Plain, Group::Other}},
        {QLatin1String(Keys::QuotaLimit), {"Quota limit", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::QuotaAvailable), {"Quota available", Kind::Bytes, Group::Other}},
        {QLatin1String(Keys::PartitionsInfo), {"Partitions", Kind::Plain, Group::Other}},
    };
    return fields;
}

struct IndexedField
{
    FieldInfo info;
    int position;
};

const QHash<QString, IndexedField> &knownFields()
{
    static const QHash<QString, IndexedField> index = [] {
        QHash<QString, IndexedField> result;
        for (int i = 0; i < fieldTable().size(); ++i)
            result.insert(fieldTable().at(i).name, IndexedField{fieldTable().at(i).info, i});
        return result;
    }();
    return index;
}

const QString &bytesUsedPrefix()
{
    static const QString prefix = QLatin1String(Keys::BytesUsed);
    return prefix;
}

QString capitalised(QString text)
{
    if (!text.isEmpty())
        text[0] = text.at(0).toUpper();
    return text;
}

} // namespace

QString wordsFromName(const QString &name)
{
    QStringList words;
    QString word;
    for (int i = 0; i < name.size(); ++i) {
        const QChar c = name.at(i);
        const bool upper = c.isUpper();
        const bool prevUpper = i > 0 && name.at(i - 1).isUpper();
        const bool nextLower = i + 1 < name.size() && name.at(i + 1).isLower();
        // A capital starts a word after a lower-case letter ("cpuModel"), and
        // ends a run of capitals when a lower-case letter follows ("SDKPath").
        if (upper && !word.isEmpty() && (!prevUpper || nextLower)) {
            words.append(word);
            word.clear();
        }
        word.append(c);
    }
    if (!word.isEmpty())
        words.append(word);
    for (int i = 0; i < words.size(); ++i) {
        const QString &w = words.at(i);
        const bool acronym = w.size() > 1 && w == w.toUpper();
        if (!acronym)
            words[i] = i == 0 ? capitalised(w) : w.toLower();
    }
    return capitalised(words.join(QLatin1Char(' ')));
}

QString label(const QString &name)
{
    const auto it = knownFields().constFind(name);
    if (it != knownFields().cend())
        return QLatin1String(it->info.label);
    // Storage categories are "bytesUsed" followed by a category word, and new
    // categories may appear: "bytesUsedCoreDumps" reads "Used by core dumps".
    if (name.startsWith(bytesUsedPrefix()) && name.size() > bytesUsedPrefix().size()) {
        const QString words = wordsFromName(name.mid(bytesUsedPrefix().size()));
        const bool acronym = words == words.toUpper();
        return QStringLiteral("Used by ") + (acronym ? words : words.toLower());
    }
    return wordsFromName(name);
}

Kind kind(const QString &name)
{
    const auto it = knownFields().constFind(name);
    if (it != knownFields().cend())
        return it->info.kind;
    // Every storage figure the daemon sends, known or not, is a byte count
    // under a "bytes" name.
    return name.startsWith(QLatin1String("bytes")) ? Kind::Bytes : Kind::Plain;
}

Group group(const QString &name)
{
    const auto it = knownFields().constFind(name);
    return it != knownFields().cend() ? it->info.group : Group::Other;
}

QStringList displayOrder(QStringList names)
{
    std::stable_sort(names.begin(), names.end(), [](const QString &a, const QString &b) {
        const auto ia = knownFields().constFind(a);
        const auto ib = knownFields().constFind(b);
        const int pa = ia != knownFields().cend() ? ia->position : fieldTable().size();
        const int pb = ib != knownFields().cend() ? ib->position : fieldTable().size();
        return pa < pb;
    });
    return names;
}

QString itemNoun(const QString &name)
{
    if (name == QLatin1String("partitionsInfo"))
        return QStringLiteral("Partition");
    return label(name);
}

QString groupTitle(Group group)
{
    switch (group) {
    case Group::Device:
        return QStringLiteral("Device");
    case Group::OperatingSystem:
        return QStringLiteral("Operating system");
    case Group::Locale:
        return QStringLiteral("Locale");
    case Group::Fonts:
        return QStringLiteral("Fonts");
    case Group::Other:
        break;
    }
    return QStringLiteral("Other");
}

QString notKnownText()
{
    return QStringLiteral("not known");
}

QString notMountedText()
{
    return QStringLiteral("not mounted");
}

QString scalarText(const QString &name, const QVariant &value)
{
    const int type = value.userType();
    if (type == QMetaType::UnknownType)
        return QStringLiteral("n/a");
    if (type == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    if (type == QMetaType::QString) {
        // Blanks around a text would push it out of its column.
        const QString text = value.toString().trimmed();
        return text.isEmpty() ? QStringLiteral("n/a") : text;
    }
    const bool isSigned = type == QMetaType::Int || type == QMetaType::LongLong || type == QMetaType::Short
        || type == QMetaType::Long || type == QMetaType::SChar;
    const bool isUnsigned = type == QMetaType::UInt || type == QMetaType::ULongLong || type == QMetaType::UShort
        || type == QMetaType::ULong || type == QMetaType::UChar;
    const bool isDouble = type == QMetaType::Double || type == QMetaType::Float;
    if (!isSigned && !isUnsigned && !isDouble)
        return value.toString();

    // Where the daemon answers "not known" with a number (0 for no battery,
    // no clock data, no camera), the text says so instead of showing the
    // number as a fact.
    const auto known = knownFields().constFind(name);
    if (known != knownFields().cend() && known->info.knownFrom != allNumbersKnown) {
        const bool below = isDouble ? value.toDouble() < double(known->info.knownFrom)
                                    : (isSigned && value.toLongLong() < 0) || value.toULongLong() < known->info.knownFrom;
        if (below)
            return notKnownText();
    }

    QString number;
    if (isSigned)
        number = QString::number(value.toLongLong());
    else if (isUnsigned)
        number = QString::number(value.toULongLong());
    else
        number = QString::number(value.toDouble(), 'g', 6);

    switch (kind(name)) {
    case Kind::Bytes:
        // A used figure worked out as a difference wraps around when what
        // is subtracted adds up to more; the daemon sends it so, and the
        // reference says to read it as 0.
        if (isUnsigned && value.toULongLong() > quint64(std::numeric_limits<qint64>::max())
            && name.startsWith(bytesUsedPrefix())) {
            return humanSize(quint64(0)) + QStringLiteral(" (the parts counted add up to more than the used space)");
        }
        if (isSigned)
            return humanSize(qint64(value.toLongLong()));
        if (isUnsigned)
            return humanSize(quint64(value.toULongLong()));
        return number;
    case Kind::MegaHertz:
        return number + QStringLiteral(" MHz");
    case Kind::Percent:
        return number + QStringLiteral(" %");
    case Kind::MegaPixels:
        return QString::number(value.toDouble(), 'f', 1) + QStringLiteral(" MP");
    case Kind::Plain:
        break;
    }
    return number;
}

} // namespace Fields
} // namespace PlinthCtl
