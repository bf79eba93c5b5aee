#ifndef TARVELOQT_CARD_VERIFICATION_H
#define TARVELOQT_CARD_VERIFICATION_H

#include "card/card_access.h"
#include "renew_context.h"
#include "session/log.h"

#include <QString>

namespace card {

// The process-wide variables that receive the card's identity, NUL-terminated.
struct CardIdentity {
    char (&module)[64];
    char (&slotDescription)[65];
    char (&manufacturerId)[33];
    char (&model)[17];
    char (&serialNumber)[17];
};

// Checks that the card in the stored reader is active and of a model that can be renewed, and fills
// the identity. Returns a card_verification::Result.
int verifyCard(const RenewContext& context, const QString& atrTable, const CardIdentity& identity,
               const CardFamily& family, session::Log& log);

}  // namespace card

#endif
