// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/simcard.h>

#include "answerreader.h"

namespace Plinth {

QString SimCard::name() const
{
    return text(QStringLiteral("simName"));
}

QString SimCard::operatorName() const
{
    return text(QStringLiteral("operatorName"));
}

bool SimCard::isEnabled() const
{
    return flag(QStringLiteral("enabled"));
}

bool SimCard::isPreferredForData() const
{
    return flag(QStringLiteral("preferredDataTransfer"));
}

bool SimCard::isPreferredForVoice() const
{
    return flag(QStringLiteral("preferredVoiceCall"));
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SimCard &card)
{
    return readAnswer(argument, card);
}

} // namespace Plinth
