// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_FIELDS_H
#define PLINTHCTL_FIELDS_H

#include <QString>
#include <QStringList>
#include <QVariant>

namespace PlinthCtl {

// How the text form reads one named value of the daemon's answers: the JSON
// form uses the names as they are, the text form needs a label and a unit.
// Names the client does not know (a newer daemon's) still get a readable label
// made from the name itself, so nothing the daemon answers is dropped.
namespace Fields {

enum class Kind { Plain, Bytes, MegaHertz, Percent, MegaPixels };

// Where a value of the Features object belongs in the text form.
enum class Group { Device, OperatingSystem, Locale, Fonts, Other };

QString label(const QString &name);
Kind kind(const QString &name);
Group group(const QString &name);
QString groupTitle(Group group);
// The names sorted for display: known names in their usual order, others
// after them in the order given.
QStringList displayOrder(QStringList names);

// One value as the text form shows it: sizes in binary units, booleans as
// yes/no, an empty string as "n/a", units after numbers, "not known" where
// the daemon's number means that.
QString scalarText(const QString &name, const QVariant &value);
QString notKnownText();
// What a partition that is not mounted shows for its mount point and space.
QString notMountedText();

// What one map of a list named `name` is called ("Partition" for
// "partitionsInfo").
QString itemNoun(const QString &name);

// "bytesUsedCoreDumps" -> "Bytes used core dumps": words from a lowerCamelCase
// name, runs of capitals kept together ("SDK", "GNSS").
QString wordsFromName(const QString &name);

} // namespace Fields

} // namespace PlinthCtl

#endif // PLINTHCTL_FIELDS_H
