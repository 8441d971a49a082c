// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_PLAINVALUE_H
#define PLINTHCTL_PLAINVALUE_H

#include <QVariant>

namespace PlinthCtl {

// Turns a value as QtDBus hands it over (structured types still wrapped in
// QDBusArgument, variants in QDBusVariant) into plain Qt values: QVariantMap,
// QVariantList and the basic types, keeping each integer's own width and
// signedness so that "t" stays quint64 and "x" stays qint64 down to the output.
// Unknown shapes come out as the best plain value there is, never as an error:
// the client has to show whatever a newer daemon answers.
QVariant plainValue(const QVariant &value);

} // namespace PlinthCtl

#endif // PLINTHCTL_PLAINVALUE_H
