// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_GLOBAL_H
#define PLINTH_GLOBAL_H

#include <QString>
#include <QtGlobal>

#if defined(PLINTH_QT5_BUILDING)
#define PLINTH_QT5_EXPORT Q_DECL_EXPORT
#else
#define PLINTH_QT5_EXPORT Q_DECL_IMPORT
#endif

// Client library of plinthd, the device information daemon on the D-Bus
// system bus. Everything it offers lives in this namespace.
namespace Plinth {

// The daemon's bus name and its three objects, each with one interface.
PLINTH_QT5_EXPORT QString serviceName();
PLINTH_QT5_EXPORT QString featuresPath();
PLINTH_QT5_EXPORT QString featuresInterface();
PLINTH_QT5_EXPORT QString simPath();
PLINTH_QT5_EXPORT QString simInterface();
PLINTH_QT5_EXPORT QString storagesPath();
PLINTH_QT5_EXPORT QString storagesInterface();

// Makes the library's value types known to Qt's meta-type system and to
// QtDBus. The object classes call it when they are created; call it yourself
// only to demarshal the types without one of them.
PLINTH_QT5_EXPORT void registerTypes();

} // namespace Plinth

#endif // PLINTH_GLOBAL_H
