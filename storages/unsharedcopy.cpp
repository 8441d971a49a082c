// SPDX-License-Identifier: BSD-3-Clause
#include "unsharedcopy.h"

#include "dbustypes.h"

#include <QString>
#include <QVariantList>
#include <QVariantMap>

namespace {

QString copied(const QString &text)
{
    return text.isNull() ? QString() : QString(text.constData(), text.size());
}

QVariantMap copied(const QVariantMap &map)
{
    QVariantMap copy;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        copy.insert(copied(it.key()), UnsharedCopy::of(it.value()));
    return copy;
}

} // namespace

QVariant UnsharedCopy::of(const QVariant &value)
{
    const int type = value.userType();
    if (type == QMetaType::QString)
        return copied(value.toString());
    if (type == QMetaType::QVariantMap)
        return copied(value.toMap());
    if (type == QMetaType::QVariantList) {
        QVariantList copy;
        for (const QVariant &element : value.toList())
            copy.append(of(element));
        return copy;
    }
    if (type == qMetaTypeId<QVariantMapList>()) {
        QVariantMapList copy;
        for (const QVariantMap &element : value.value<QVariantMapList>())
            copy.append(copied(element));
        return QVariant::fromValue(copy);
    }
    if (type == qMetaTypeId<QuotaInfoMap>()) {
        const QuotaInfoMap quotas = value.value<QuotaInfoMap>();
        QuotaInfoMap copy;
        for (auto it = quotas.cbegin(); it != quotas.cend(); ++it)
            copy.insert(copied(it.key()), copied(it.value()));
        return QVariant::fromValue(copy);
    }
    // Numbers and booleans: a variant of its own holding the same value.
    return value.isValid() ? QVariant(type, value.constData()) : QVariant();
}
