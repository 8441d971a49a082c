// SPDX-License-Identifier: BSD-3-Clause
#include "delayedreply.h"

#include <QDBusContext>

DelayedReply::DelayedReply(const QDBusContext &context)
    : m_connection(context.connection()), m_call(context.message())
{
    if (m_call.isReplyRequired())
        context.setDelayedReply(true);
}

void DelayedReply::send(const QVariant &value) const
{
    m_connection.send(m_call.createReply(QVariantList{value}));
}
