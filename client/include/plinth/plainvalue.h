// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_PLAINVALUE_H
#define PLINTH_PLAINVALUE_H

#include <plinth/global.h>

#include <QVariant>

namespace Plinth {

// Turns a value as QtDBus hands it over (structured types still wrapped in
// QDBusArgument, variants in QDBusVariant) into plain Qt values: QVariantMap,
// QVariantList and the basic types, keeping each integer's own width and
// signedness, so that "t" stays quint64 and "x" stays qint64. Shapes it does
// not know come out as the best plain value there is, never as an error: a
// newer daemon may answer with more than this library knows.
PLINTH_QT5_EXPORT QVariant plainValue(const QVariant &value);

} // namespace Plinth

#endif // PLINTH_PLAINVALUE_H
