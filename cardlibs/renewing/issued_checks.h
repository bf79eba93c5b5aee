// What an issued certificate must be before anything is written.

#ifndef TARVELOQT_CARDLIBS_RENEWING_ISSUED_CHECKS_H
#define TARVELOQT_CARDLIBS_RENEWING_ISSUED_CHECKS_H

#include "cardlibs/renewing/installation.h"

namespace cardlibs::renewing {

// The issued certificate that belongs to a key on the card.
struct Target {
    const x509::Certificate* issued = nullptr;
    const contents::KeyObject* privateKey = nullptr;
    contents::Kind kind = contents::Kind::authentication;
    // Null when the certificate is on the card already.
    const contents::PendingPair* pending = nullptr;
};

// The one for a pending key, else one that is on the card with its key already. Throws CardError:
// issuedSeveral for several pending keys; issuedForOtherKey when there is neither, or nothing but
// what a pending pair is to replace.
Target chooseTarget(const contents::CardContents& contents, const InstallationOrder& order);

// The certificate on the card that goes once the target is installed; null when there is none (any
// more). The link of the target's key decides; without one it must be of the same kind and subject
// and older. Throws CardError: replacesOther, linkAmbiguous.
const contents::CertificateObject* replacedBy(const contents::CardContents& contents,
                                              const Target& target, const InstallationOrder& order);

// Throws CardError (the issued... numbers) unless it is for the same holder and kind, valid now or
// within a day, and fits on the card.
void checkIssued(const x509::Certificate& issued, const Target& target,
                 const contents::CertificateObject* replaced, const readers::CardPlace& place,
                 const InstallationOrder& order, std::time_t now);

}  // namespace cardlibs::renewing

#endif
