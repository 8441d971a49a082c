// SPDX-License-Identifier: BSD-3-Clause
#include "textreport.h"

#include "fields.h"

#include <plinth/mapkeys.h>

#include <algorithm>

namespace PlinthCtl {

namespace {

const int indentStep = 2;

using namespace Plinth;

const QString &mountPointKey()
{
    static const QString key = QLatin1String(Keys::MountPoint);
    return key;
}

bool isMapList(const QVariantList &list)
{
    return !list.isEmpty() && std::all_of(list.cbegin(), list.cend(), [](const QVariant &v) {
        return v.userType() == QMetaType::QVariantMap;
    });
}

} // namespace

TextReport::Section &TextReport::current()
{
    if (m_sections.isEmpty())
        m_sections.append(Section());
    return m_sections.last();
}

void TextReport::addSection(const QString &title)
{
    m_sections.append(Section{title, {}});
}

void TextReport::addRow(const QString &label, const QString &text, int depth)
{
    current().rows.append(Row{depth, label, text.split(QLatin1Char('\n'))});
}

void TextReport::addNote(const QString &text, int depth)
{
    current().rows.append(Row{depth, QString(), {text}});
}

void TextReport::addMap(const QVariantMap &map, int depth)
{
    if (map.isEmpty()) {
        addNote(QStringLiteral("(no data)"), depth);
        return;
    }
    // A partition that is not mounted has no mount point and no space to
    // offer: its figures (0 available, all of it used) are not facts about
    // its contents.
    const bool unmountedPartition = map.contains(mountPointKey()) && map.value(mountPointKey()).toString().isEmpty();
    static const QStringList mountedOnly = {mountPointKey(), QLatin1String(Keys::BytesAvailable),
                                            QLatin1String(Keys::BytesUsed)};
    const QStringList names = Fields::displayOrder(map.keys());
    for (const QString &name : names) {
        if (unmountedPartition && mountedOnly.contains(name))
            addRow(Fields::label(name), Fields::notMountedText(), depth);
        else
            addValue(name, map.value(name), depth);
    }
}

QString TextReport::itemTitle(const QVariantMap &item, const QString &noun, int index)
{
    // A partition entry also carries its drive's name, which would title
    // every partition of a drive alike.
    static const QStringList partitionNamingKeys = {QLatin1String(Keys::PartitionName),
                                                    QLatin1String(Keys::PartitionLabel), mountPointKey()};
    static const QStringList namingKeys = {QLatin1String(Keys::SimName), QLatin1String(Keys::DriveName),
                                           mountPointKey()};
    const bool partition = item.contains(partitionNamingKeys.first());
    for (const QString &key : partition ? partitionNamingKeys : namingKeys) {
        const QString name = item.value(key).toString().trimmed();
        if (!name.isEmpty())
            return name;
    }
    return noun + QLatin1Char(' ') + QString::number(index + 1);
}

void TextReport::addMapList(const QVariantList &items, const QString &noun, int depth)
{
    for (int i = 0; i < items.size(); ++i) {
        const QVariantMap item = items.at(i).toMap();
        addRow(itemTitle(item, noun, i), QString(), depth);
        addMap(item, depth + 1);
    }
}

void TextReport::addValue(const QString &name, const QVariant &value, int depth)
{
    const QString label = Fields::label(name);
    const int type = value.userType();
    if (type == QMetaType::QVariantMap) {
        addRow(label, QString(), depth);
        addMap(value.toMap(), depth + 1);
        return;
    }
    if (type == QMetaType::QVariantList || type == QMetaType::QStringList) {
        const QVariantList list = value.toList();
        if (list.isEmpty()) {
            addRow(label, QStringLiteral("none"), depth);
        } else if (isMapList(list)) {
            addRow(label, QString(), depth);
            addMapList(list, Fields::itemNoun(name), depth + 1);
        } else {
            QStringList lines;
            for (const QVariant &element : list)
                lines.append(Fields::scalarText(name, element));
            addRow(label, lines.join(QLatin1Char('\n')), depth);
        }
        return;
    }
    addRow(label, Fields::scalarText(name, value), depth);
}

QString TextReport::render() const
{
    QString out;
    bool first = true;
    for (const Section &section : m_sections) {
        if (section.rows.isEmpty() && section.title.isEmpty())
            continue;
        if (!first)
            out += QLatin1Char('\n');
        first = false;
        const int base = section.title.isEmpty() ? 0 : indentStep;
        if (!section.title.isEmpty())
            out += section.title + QLatin1Char('\n');

        // One value column per section, right of its longest label.
        int column = 0;
        for (const Row &row : section.rows) {
            if (!row.label.isEmpty())
                column = std::max(column, base + row.depth * indentStep + row.label.size() + 1);
        }
        for (const Row &row : section.rows) {
            const QString indent(base + row.depth * indentStep, QLatin1Char(' '));
            if (row.label.isEmpty()) {
                out += indent + row.lines.value(0) + QLatin1Char('\n');
                continue;
            }
            QString head = indent + row.label + QLatin1Char(':');
            const bool hasText = !(row.lines.size() == 1 && row.lines.first().isEmpty());
            if (!hasText) {
                out += head + QLatin1Char('\n');
                continue;
            }
            head = head.leftJustified(column + 1);
            for (int i = 0; i < row.lines.size(); ++i)
                out += (i == 0 ? head : QString(column + 1, QLatin1Char(' '))) + row.lines.at(i) + QLatin1Char('\n');
        }
    }
    return out;
}

} // namespace PlinthCtl
