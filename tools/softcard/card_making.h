// A whole software card: token, authority, certificates of the wanted kinds.

#ifndef TARVELOQT_TOOLS_SOFTCARD_CARD_MAKING_H
#define TARVELOQT_TOOLS_SOFTCARD_CARD_MAKING_H

#include "tools/softcard/card_folder.h"
#include "tools/softcard/certified_key.h"
#include "tools/softcard/secret.h"

#include <string>
#include <vector>

namespace softcard {

// A kind of certificate that can be asked for by name.
struct CertificateKind {
    const char* name;
    // Of the key: followed by a number, or whole.
    const char* label;
    bool isLabelNumbered;
    // Before the fiscal code in the subject's serial number.
    const char* serialPrefix;
    const char* title;
    Profile profile;
};

// aut, pra, role, cns, cns-like.
const std::vector<CertificateKind>& certificateKinds();
// Throws std::runtime_error for a name that is not among them.
const CertificateKind& findKind(const std::string& name);

// The certificate of this kind that gets this number.
CertifiedKeyOrder orderFor(const CertificateKind& kind, int number, KeyType keyType,
                           int daysToExpiry);

struct CardOrder {
    std::string tokenLabel;
    // Names of kinds, repeated for several of one.
    std::vector<std::string> kinds;
    KeyType keyType = KeyType::rsa2048;
    int daysToExpiry = 30;
};

// Makes the card in a prepared folder that holds none. Throws std::exception.
void makeCard(const CardFolder& folder, const CardOrder& order, const Secret& pin,
              const Secret& securityOfficerPin);

}  // namespace softcard

#endif
