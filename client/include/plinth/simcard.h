// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_SIMCARD_H
#define PLINTH_SIMCARD_H

#include <plinth/answer.h>

#include <QList>
#include <QMetaType>

class QDBusArgument;

namespace Plinth {

// One SIM card of the list that getSimCardsInfo answers and every SIM signal
// carries whole.
class PLINTH_QT5_EXPORT SimCard : public Answer
{
public:
    using Answer::Answer;

    // "SIM1", "SIM2", ...: the slot; empty when the modem's path has no number.
    QString name() const;
    // The service provider name stored on the card; empty until it is read.
    QString operatorName() const;
    // The card is present in its slot.
    bool isEnabled() const;
    bool isPreferredForData() const;
    bool isPreferredForVoice() const;
};

using SimCardList = QList<SimCard>;

PLINTH_QT5_EXPORT const QDBusArgument &operator>>(const QDBusArgument &argument, SimCard &card);

} // namespace Plinth

Q_DECLARE_METATYPE(Plinth::SimCard)
Q_DECLARE_METATYPE(Plinth::SimCardList)

#endif // PLINTH_SIMCARD_H
