// A replaced certificate and its keys off the card.

#ifndef TARVELOQT_CARDLIBS_RENEWING_REMOVAL_H
#define TARVELOQT_CARDLIBS_RENEWING_REMOVAL_H

#include "cardlibs/contents/card_contents.h"

namespace cardlibs::renewing {

// Destroys its private key, its public key and last itself, all copies of each. Keys that another
// certificate uses stay; a pair that may still be needed to decrypt stays whole. Throws CardError
// that tells to repeat the installation.
void removeReplaced(token::Session& session, const contents::CardContents& contents,
                    const contents::CertificateObject& replaced);

}  // namespace cardlibs::renewing

#endif
