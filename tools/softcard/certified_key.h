// Key pairs on a token, with certificates of the demonstration authority beside them.

#ifndef TARVELOQT_TOOLS_SOFTCARD_CERTIFIED_KEY_H
#define TARVELOQT_TOOLS_SOFTCARD_CERTIFIED_KEY_H

#include "cardlibs/renewing/key_making.h"
#include "tools/softcard/demo_authority.h"
#include "tools/softcard/subject.h"

#include <string>
#include <vector>

namespace softcard {

enum class KeyType { rsa1024, rsa2048, rsa3072, p256, p384 };

struct CertifiedKeyOrder {
    std::string label;
    // CKA_ID of key and certificate; drawn when empty.
    cardlibs::Bytes id;
    KeyType keyType = KeyType::rsa2048;
    std::vector<SubjectAttribute> subject;
    Validity validity;
    Profile profile;
};

// Ends with the last second of a day in UTC, so that the number of days is right at any hour;
// begins three years before.
Validity validityFor(int daysToExpiry);

// A non-extractable pair made on the token; with isForDecryption when the key usage says so.
cardlibs::renewing::SigningKey addKey(cardlibs::token::Session& session,
                                      const CertifiedKeyOrder& order);

// The certificate object, with the label and CKA_ID of its key.
void addCertificate(cardlibs::token::Session& session, const std::string& label,
                    const cardlibs::Bytes& id, const cardlibs::Bytes& der);

// Both; gives the certificate's DER. The session is read-write and logged in.
cardlibs::Bytes addCertifiedKey(cardlibs::token::Session& session, const DemoAuthority& authority,
                                CertifiedKeyOrder order);

}  // namespace softcard

#endif
