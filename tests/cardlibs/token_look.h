// What lies on a software card, seen past the card libraries: SoftHSM2 called directly and
// signatures checked by libcrypto, and SoftHSM2's object files byte for byte.

#ifndef TARVELOQT_TESTS_CARDLIBS_TOKEN_LOOK_H
#define TARVELOQT_TESTS_CARDLIBS_TOKEN_LOOK_H

#include "cardlibs/bytes.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace cardlibs_test {

struct SeenCertificate {
    cardlibs::Bytes der;
    // A private key of the token signs what the certificate's public key verifies.
    bool works = false;
};

struct TokenLook {
    std::vector<SeenCertificate> certificates;
    // Of any class.
    std::size_t objects = 0;

    bool holds(const cardlibs::Bytes& der) const;
    // On the token, with a key that signs for it.
    bool works(const cardlibs::Bytes& der) const;
};

// The only initialised token of the process's SoftHSM2 configuration, started afresh and left
// finalised. Throws std::runtime_error.
TokenLook lookAtToken(const char* pin);

// Contents of the token's object files by name; what the token keeps of itself is left out.
using ObjectFiles = std::map<std::string, std::string>;
ObjectFiles objectFiles(const std::filesystem::path& tokens);

// Names of those files of kept that are gone or changed in now.
std::vector<std::string> changedFiles(const ObjectFiles& kept, const ObjectFiles& now);
// All of them but those of others.
ObjectFiles without(const ObjectFiles& all, const ObjectFiles& others);

// DER of the first certificate in the PEM text. Throws std::runtime_error.
cardlibs::Bytes certificateBytes(const std::string& pem);

}  // namespace cardlibs_test

#endif
