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

struct KeyObject {
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    std::string label;
    Bytes id;
    // DER of a name; empty where the token keeps none.
    Bytes subject;
    bool canSign = false;
    bool isExtractable = false;
    // Wants the PIN before each use (CKA_ALWAYS_AUTHENTICATE).
    bool wantsPinEachTime = false;
    std::optional<CK_KEY_TYPE> keyType;
    // What the object tells of its public part, complete or not.
    Bytes modulus;
    Bytes ecParameters;
    // Absent when neither the object nor another one on the card tells.
    std::optional<x509::PublicKey> publicKey;
};

struct CardObjects {
    std::vector<CertificateObject> certificates;
    std::vector<KeyObject> privateKeys;
    std::vector<KeyObject> publicKeys;
    // The label of each object, of whatever class.
    std::multiset<std::string> labels;
};

// Reads all objects of the session. A private key that hides its public part gets that of the
// public-key object or certificate with the same CKA_ID; where several could be meant, a trial
// signature decides. Certificates that cannot be parsed count for their labels alone.
CardObjects readObjects(token::Session& session);

}  // namespace cardlibs::contents

#endif
