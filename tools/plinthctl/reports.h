// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_REPORTS_H
#define PLINTHCTL_REPORTS_H

#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace PlinthCtl {

class BusQuery;

// What each command asks the daemon and how its answers read as text. The
// answers are kept in one document (the --json output) shaped
//   {"features": {name: value}, "sims": [card], "storage": {part: answer}}
// with the parts a command asked for; the text forms are rendered from that
// same document, so both forms always show the same answers.
namespace Reports {

// The storage parts, by the names the command line and the document use.
QStringList storageParts();
bool isStoragePart(const QString &name);

void requestFeatures(BusQuery &query);
void requestSims(BusQuery &query);
void requestStorage(BusQuery &query, const QStringList &parts);

// Everything, short: counts instead of the font lists.
QString overviewText(const QVariantMap &document);
QString featuresText(const QVariantMap &document);
QString simsText(const QVariantMap &document);
QString storageText(const QVariantMap &document);

} // namespace Reports

} // namespace PlinthCtl

#endif // PLINTHCTL_REPORTS_H
