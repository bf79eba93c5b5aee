// What the objects of a card mean: which certificates can be renewed, which key pairs wait for a
// certificate, and what replaces what. docs/card-layout.md tells the rules.

#ifndef TARVELOQT_CARDLIBS_CONTENTS_CARD_CONTENTS_H
#define TARVELOQT_CARDLIBS_CONTENTS_CARD_CONTENTS_H

#include "cardlibs/contents/card_objects.h"
#include "cardlibs/contents/kind.h"
#include "cardlibs/contents/link.h"

#include <optional>
#include <string>
#include <vector>

namespace cardlibs::contents {

// A certificate of one of the three kinds with its private key on the card. The pointers point into
// the CardObjects they were made from.
struct CertifiedPair {
    // Of several copies that with the key's CKA_ID, else that with the lowest.
    const CertificateObject* certificate = nullptr;
    const KeyObject* privateKey = nullptr;
    Kind kind = Kind::authentication;
    // Another certified pair was made to replace this one, or one that replaces it in turn.
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
    // One for each certificate, however often it is stored.
    const std::vector<CertifiedPair>& certified() const { return m_certified; }
    const CertifiedPair* certifiedPair(const x509::Certificate& certificate) const;
    // Lowest label first, within each kind.
    const std::vector<PendingPair>& pending() const { return m_pending; }

    bool hasPending(Kind kind) const;
    // Label for a new key of the kind: that of the lowest pending pair, else the lowest free one.
    std::string nextLabel(Kind kind) const;
    // The lowest pending pair that is to replace the certificate; null without one.
    const PendingPair* pendingFor(const x509::Certificate& certificate) const;

    // The certificate of the kind that the link names, on the card with or without its key; null
    // when it is not there or the identifier is no link.
    const CertificateObject* namedByLink(const Bytes& id, Kind kind) const;
    // The kind of a certificate without its key is known as far as itself tells it.
    bool mayBeOfKind(const CertificateObject& object, Kind kind) const;
    // A copy of the certificate has this CKA_ID.
    bool hasIdentifier(const x509::Certificate& certificate, const Bytes& id) const;
    // Certificates that a key on the card may or may not belong to: it hides its public part,
    // shares its CKA_ID and could not be asked to sign.
    std::vector<const CertificateObject*> undecided() const;

private:
    void sortCertificates();
    void collectCertified();
    void markSuperseded();
    void collectPending();
    void resolveLink(PendingPair& pair) const;
    bool isInUse(const KeyObject& key) const;

    CardObjects m_objects;
    std::vector<CertifiedPair> m_certified;
    std::vector<PendingPair> m_pending;
};

}  // namespace cardlibs::contents

#endif
