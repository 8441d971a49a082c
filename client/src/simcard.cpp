// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/simcard.h>

#include "answerreader.h"

#include <plinth/mapkeys.h>

namespace Plinth {

QString SimCard::name() const
{
    return text(QLatin1String(Keys::SimName));
}

QString SimCard::operatorName() const
{
    return text(QLatin1String(Keys::OperatorName));
}

bool SimCard::isEnabled() const
{
    return flag(QLatin1String(Keys::Enabled));
}

bool SimCard::isPreferredForData() const
{
    return flag(QLatin1String(Keys::PreferredDataTransfer));
}

bool SimCard::isPreferredForVoice() const
{
    return flag(QLatin1String(Keys::PreferredVoiceCall));
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SimCard &card)
{
    return readAnswer(argument, card);
}

} // namespace Plinth
