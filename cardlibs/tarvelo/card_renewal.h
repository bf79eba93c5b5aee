// The operations of the card-renewal library, one card session each: opened, logged in once, closed
// before they return.

#ifndef TARVELOQT_CARDLIBS_TARVELO_CARD_RENEWAL_H
#define TARVELOQT_CARDLIBS_TARVELO_CARD_RENEWAL_H

#include "cardlibs/contents/stores.h"
#include "cardlibs/renewing/installation.h"
#include "cardlibs/tarvelo/label_memory.h"

#include <string>

namespace cardlibs::tarvelo {

struct Inventory {
    contents::Stores stores;
    NewKeyLabels labels;
    bool hasPendingCns = false;
    bool hasPendingSignature = false;
    bool hasPendingAuthentication = false;
};

// All throw CardError. PINs are NUL-terminated and never copied.

Inventory readCard(const std::string& reader, const char* pin);

// Remembers the reader for the two below. Reads the card only when it is not as it was at the last
// look.
NewKeyLabels findLabels(const std::string& reader, const char* pin);

// PEM. label: "DS" + n, "AUT" + n or "CNS0"; certificateId: hexadecimal.
std::string requestCertificate(const std::string& label, const char* pin,
                               const std::string& certificateId, const std::string& subjectText);

// issued: PEM, DER or PKCS#7, as x509::issuedBytes takes it.
void installCertificate(renewing::Saver saver, const char* pin, const std::string& replacedId,
                        const char* issued);

}  // namespace cardlibs::tarvelo

#endif
