// Private keys that do not tell their public part.

#ifndef TARVELOQT_CARDLIBS_CONTENTS_HIDDEN_KEYS_H
#define TARVELOQT_CARDLIBS_CONTENTS_HIDDEN_KEYS_H

#include "cardlibs/contents/card_objects.h"

namespace cardlibs::contents {

// Sets public key and certainty of the private keys that lack them, from the public-key objects and
// certificates: by the modulus where a key tells that, else by the CKA_ID. A trial signature
// decides where several could be meant or nothing but a certificate has the CKA_ID. Throws
// CardError when the card is gone.
void completeHiddenKeys(token::Session& session, CardObjects& objects);

// False when what the private key does tell rules the public key out.
bool couldBelong(const KeyObject& key, const x509::PublicKey& candidate);

}  // namespace cardlibs::contents

#endif
