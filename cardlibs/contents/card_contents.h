// What the objects of a card mean: which certificates can be renewed, which key pairs wait for a
// certificate, and what replaces what. docs/card-layout.md tells the rules.

#ifndef TARVELOQT_CARDLIBS_CONTENTS_CARD_CONTENTS_H
#define TARVELOQT_CARDLIBS_CONTENTS_CARD_CONTENTS_H

#include "cardlibs/contents/card_objects.h"
#include "cardlibs/contents/kind.h"

#include <optional>
#include <string>
#include <vector>

namespace cardlibs::contents {

// A certificate of one of the three kinds with its private key on the card. The pointers point into
// the CardObjects they were made from.
struct CertifiedPair {
    const CertificateObject* certificate = nullptr;
    const KeyObject* privateKey = nullptr;
    Kind kind = Kind::authentication;
    // Another certified pair was made to replace this one.
    bool isSuperseded = false;
};

// A key pair of ours without certificate.
struct PendingPair {
    const KeyObject* privateKey = nullptr;
    KeyLabel label;
    // The certificate that it is to replace; null when that is not on the card, or not to be told.
    const CertificateObject* replaces = nullptr;
    // Several certificates could be meant.
    bool isLinkAmbiguous = false;
};

class CardContents {
public:
    explicit CardContents(CardObjects objects);
    // The pairs point into the objects.
    CardContents(const CardContents&) = delete;
    CardContents& operator=(const CardContents&) = delete;

    const CardObjects& objects() const { return m_objects; }
    const std::vector<CertifiedPair>& certified() const { return m_certified; }
    // Lowest label first, within each kind.
    const std::vector<PendingPair>& pending() const { return m_pending; }

    bool hasPending(Kind kind) const;
    // Label for a new key of the kind: that of the lowest pending pair, else the lowest free one.
    std::string nextLabel(Kind kind) const;
    // The lowest pending pair that is to replace the certificate; null without one.
    const PendingPair* pendingFor(const CertificateObject& certificate) const;
    // The certificate that the key's link names, on the card with or without its key; null when it
    // is not there or the key bears no link.
    const CertificateObject* namedByLink(const KeyObject& key) const;

private:
    void collectCertified();
    void collectPending();
    void resolveLink(PendingPair& pair) const;

    CardObjects m_objects;
    std::vector<CertifiedPair> m_certified;
    std::vector<PendingPair> m_pending;
};

// CKA_ID of a new key: 10 bytes of the SHA-256 of the certificate it is to replace, 10 random
// bytes.
constexpr std::size_t linkSize = 20;
constexpr std::size_t linkDigestSize = 10;

// Throws CardError when there is no randomness.
Bytes newLink(const x509::Certificate& replaced);
// True when the identifier is one of ours and names this certificate.
bool linkNames(const Bytes& id, const x509::Certificate& certificate);
// False for identifiers of another length and for those that tokens derive from the key themselves.
bool looksLikeLink(const Bytes& id, const x509::PublicKey& key);

}  // namespace cardlibs::contents

#endif
