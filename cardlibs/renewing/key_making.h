// New key pairs on the card.

#ifndef TARVELOQT_CARDLIBS_RENEWING_KEY_MAKING_H
#define TARVELOQT_CARDLIBS_RENEWING_KEY_MAKING_H

#include "cardlibs/contents/card_contents.h"
#include "cardlibs/readers/reader_directory.h"
#include "cardlibs/renewing/key_signer.h"

#include <string>
#include <vector>

namespace cardlibs::renewing {

// What kind of key a renewal needs.
struct KeySpec {
    x509::PublicKey::Algorithm algorithm = x509::PublicKey::Algorithm::rsa;
    unsigned long bits = 0;
    // EC only.
    int curve = 0;
};

// As the certificate's own key is, RSA with 2,048 bits at least. Throws CardError (keyNotSupported)
// for anything but RSA, P-256 and P-384.
KeySpec keySpecFor(const x509::Certificate& certificate);

// True when the pending pair serves as well as a new one of the kind would: made on the card, never
// to leave it, for the same subject.
bool isFit(const contents::PendingPair& pair, const KeySpec& spec, contents::Kind kind,
           const Bytes& subject);

// Throws CardError when the card tells, or the table says, that it cannot make such a key or that
// the pair and its certificate will not fit: CKR_MECHANISM_INVALID, CKR_KEY_SIZE_RANGE,
// CKR_DEVICE_MEMORY, issuedTooLarge. Nothing is written to find out.
void checkRoomFor(const KeySpec& spec, const x509::Certificate& renewed,
                  const readers::CardPlace& place,
                  const std::vector<CK_MECHANISM_TYPE>& mechanisms);

struct NewKey {
    std::string label;
    Bytes id;
    // DER of the name that the request will carry.
    Bytes subject;
    // Also to decrypt (RSA) or to agree keys with (EC): the renewed certificate's key was.
    bool isForDecryption = false;
};

// Makes a sensitive, non-extractable pair.
SigningKey makeKey(token::Session& session, const KeySpec& spec, const NewKey& wanted);

}  // namespace cardlibs::renewing

#endif
