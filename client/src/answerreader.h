// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_ANSWERREADER_H
#define PLINTH_ANSWERREADER_H

#include <plinth/plainvalue.h>

#include <QDBusArgument>
#include <QVariantMap>

namespace Plinth {

// Reads an a{sv} into an answer class. QtDBus leaves structured values inside
// the map (a drive's partitions) as QDBusArgument; they are made plain here,
// so that an answer holds nothing that needs the bus to read it.
template <typename T>
const QDBusArgument &readAnswer(const QDBusArgument &argument, T &answer)
{
    QVariantMap values;
    argument >> values;
    answer = T(plainValue(values).toMap());
    return argument;
}

} // namespace Plinth

#endif // PLINTH_ANSWERREADER_H
