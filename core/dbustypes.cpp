// SPDX-License-Identifier: BSD-3-Clause
#include "dbustypes.h"

#include <QDBusMetaType>

namespace PlinthTypes {

void registerQuotaInfoMap()
{
    qRegisterMetaType<QuotaInfoMap>("QuotaInfoMap");
    qDBusRegisterMetaType<QuotaInfoMap>();
}

void registerVariantMapList()
{
    qRegisterMetaType<QVariantMapList>("QVariantMapList");
    qDBusRegisterMetaType<QVariantMapList>();
}

void registerVariantMap()
{
    // Qt's own a{sv} rules: QString keys, every value wrapped in a QDBusVariant.
    qDBusRegisterMetaType<QVariantMap>();
}

} // namespace PlinthTypes
