// SPDX-License-Identifier: BSD-3-Clause
#include "defaultvoicesimsetting.h"

#include "mgconfitem.h"

namespace {

const QString DefaultVoiceSimKey = QStringLiteral("/veska/ofono/default_voice_sim");

} // namespace

DefaultVoiceSimSetting::DefaultVoiceSimSetting(QObject *parent)
    : QObject(parent)
    , m_item(new MGConfItem(DefaultVoiceSimKey, this))
{
    connect(m_item, &MGConfItem::valueChanged, this, &DefaultVoiceSimSetting::changed);
}

QString DefaultVoiceSimSetting::subscriberIdentity() const
{
    return m_item->value().toString();
}
