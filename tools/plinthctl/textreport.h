// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_TEXTREPORT_H
#define PLINTHCTL_TEXTREPORT_H

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

namespace PlinthCtl {

// The human-readable form: titled sections of "Label: value" rows, nested
// values indented below their label, and the values of one section lined up in
// one column. Values may be any plain tree (maps, lists, scalars); lists of
// scalars continue on the following lines under the first item.
class TextReport
{
public:
    void addSection(const QString &title);
    // A row of the current section; the value is shown as Fields::scalarText
    // would, nested maps and lists below it.
    void addValue(const QString &name, const QVariant &value, int depth = 0);
    // A row with a label and text of its own.
    void addRow(const QString &label, const QString &text, int depth = 0);
    // A line of plain text in the current section ("No SIM cards").
    void addNote(const QString &text, int depth = 0);
    // Every entry of a map, by name, at the given depth.
    void addMap(const QVariantMap &map, int depth = 0);
    // A list of maps, one titled block each ("SIM1", "Drive SD card").
    void addMapList(const QVariantList &items, const QString &noun, int depth = 0);

    QString render() const;

    // The title of one map of a list: its own name when it carries one, else
    // the noun and its position.
    static QString itemTitle(const QVariantMap &item, const QString &noun, int index);

private:
    struct Row
    {
        int depth = 0;
        QString label; // empty: a note
        QStringList lines;
    };
    struct Section
    {
        QString title;
        QVector<Row> rows;
    };

    Section &current();

    QVector<Section> m_sections;
};

} // namespace PlinthCtl

#endif // PLINTHCTL_TEXTREPORT_H
