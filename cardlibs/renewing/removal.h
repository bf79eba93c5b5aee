// A replaced certificate and its keys off the card.

#ifndef TARVELOQT_CARDLIBS_RENEWING_REMOVAL_H
#define TARVELOQT_CARDLIBS_RENEWING_REMOVAL_H

#include "cardlibs/contents/card_contents.h"

#include <functional>

namespace cardlibs::renewing {

// Has the private key sign; throws CardError (keyDoesNotSign) when its public key does not verify
// that.
using KeyProof = std::function<void(const contents::KeyObject&)>;

// Destroys its private key, its public key and last itself, all copies of each, and what it had
// replaced before it likewise. Keys that another certificate uses stay, so does a certificate whose
// identifier tells that an older one that stays is superseded. A pair stays whole when it may still
// be needed to decrypt, and when the key belongs to it by the CKA_ID alone and the proof fails.
// Objects that are gone already count as destroyed. Throws CardError that tells to repeat the
// installation.
void removeReplaced(token::Session& session, const contents::CardContents& contents,
                    const contents::CertificateObject& replaced, contents::Kind kind,
                    const KeyProof& prove);

}  // namespace cardlibs::renewing

#endif
