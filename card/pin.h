#ifndef TARVELOQT_CARD_PIN_H
#define TARVELOQT_CARD_PIN_H

#include "card/card_access.h"
#include "renew_context.h"
#include "session/log.h"

#include <QString>

namespace card {

// Stores the PIN in the settings row, asking for it on the console when it is empty.
void setPin(RenewContext& context, const QString& pin);

// Logs in on the card in the stored reader with the stored PIN, once, and ends the session.
bool verifyPin(const RenewContext& context, const QString& atrTable, const CardFamily& family,
               session::Log& log);

}  // namespace card

#endif
