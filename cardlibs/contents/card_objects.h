// Everything that lies on a card, read once: certificates, keys, and the labels of all objects.

#ifndef TARVELOQT_CARDLIBS_CONTENTS_CARD_OBJECTS_H
#define TARVELOQT_CARDLIBS_CONTENTS_CARD_OBJECTS_H

#include "cardlibs/token/session.h"
#include "cardlibs/x509/certificate.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace cardlibs::contents {

struct CertificateObject {
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    std::string label;
    Bytes id;
    x509::Certificate certificate;
};

// A certificate object whose value is no certificate that could be parsed.
struct UnreadableCertificate {
    Bytes id;
    // DER of a name; empty where the token keeps none.
    Bytes subject;
};

// How the public part of a key is known.
enum class Certainty {
    unknown,
    // Several could be meant, and the key could not be asked to sign.
    undecided,
    // It is the only one with the key's CKA_ID.
    byIdentifier,
    // The key tells it, or has proven it by a signature.
    certain,
};

struct KeyObject {
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    std::string label;
    Bytes id;
    // DER of a name; empty where the token keeps none.
    Bytes subject;
    bool canSign = false;
    bool isExtractable = false;
    bool isSensitive = false;
    // Made on the card (CKA_LOCAL).
    bool isLocal = false;
    // Wants the PIN before each use (CKA_ALWAYS_AUTHENTICATE).
    bool wantsPinEachTime = false;
    std::optional<CK_KEY_TYPE> keyType;
    // What the object tells of its public part, complete or not.
    Bytes modulus;
    Bytes ecParameters;
    // Absent when neither the object nor another one on the card tells.
    std::optional<x509::PublicKey> publicKey;
    Certainty certainty = Certainty::unknown;
};

struct CardObjects {
    std::vector<CertificateObject> certificates;
    std::vector<UnreadableCertificate> unreadableCertificates;
    std::vector<KeyObject> privateKeys;
    std::vector<KeyObject> publicKeys;
    // The label of each object, of whatever class.
    std::multiset<std::string> labels;
};

// Reads all objects of the session; private keys that hide their public part get it from other
// objects (completeHiddenKeys). Throws CardError.
CardObjects readObjects(token::Session& session);

bool isKeyOf(const KeyObject& key, const x509::Certificate& certificate);
// False where neither has one.
bool sharesIdentifier(const KeyObject& key, const UnreadableCertificate& certificate);
bool sharesSubject(const KeyObject& key, const UnreadableCertificate& certificate);

}  // namespace cardlibs::contents

#endif
