// An issued certificate beside its key, and the one that it replaces off the card.

#ifndef TARVELOQT_CARDLIBS_RENEWING_INSTALLATION_H
#define TARVELOQT_CARDLIBS_RENEWING_INSTALLATION_H

#include "cardlibs/contents/card_contents.h"
#include "cardlibs/readers/reader_directory.h"

#include <ctime>
#include <vector>

namespace cardlibs::renewing {

// Which of the two save functions asks: one serves signature keys, the other all the rest.
enum class Saver { signature, authenticationAndCns };

struct InstallationOrder {
    Saver saver = Saver::authenticationAndCns;
    // CKA_ID of the certificate being replaced; empty in a recovery.
    Bytes replacedId;
    // What the authority sent: the certificate, perhaps with its chain.
    std::vector<x509::Certificate> issued;
};

// On a read-write session that is logged in. Writes the certificate, reads it back, has its key
// sign, and only then removes the replaced certificate and its keys. Throws CardError; whatever the
// moment, the card then holds the old certificate with its key, or the new one with its key, or
// both, and the same call again completes the work.
void install(token::Session& session, const readers::CardPlace& place,
             const InstallationOrder& order, const char* pin, std::time_t now);

}  // namespace cardlibs::renewing

#endif
