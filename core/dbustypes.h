// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DBUSTYPES_H
#define PLINTHD_DBUSTYPES_H

#include <QList>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

// Structured answers on the bus. Qt already knows both containers as
// meta-types; registering them under these names lets the adaptors name them in
// their QtTypeName annotations and lets invokeMethod pass them by name.
typedef QList<QVariantMap> QVariantMapList; // aa{sv}: SIM cards, external drives
typedef QMap<QString, QVariantMap> QuotaInfoMap; // a{sa{sv}}: quota per decimal uid

namespace PlinthTypes {

// Meta-type and D-Bus marshalling registration. Repeating a registration is
// harmless, so every service registers what it needs itself.
void registerQuotaInfoMap();
void registerVariantMapList();
void registerVariantMap();

} // namespace PlinthTypes

#endif // PLINTHD_DBUSTYPES_H
