// What an issued certificate must be before anything is written.

#ifndef TARVELOQT_CARDLIBS_RENEWING_ISSUED_CHECKS_H
#define TARVELOQT_CARDLIBS_RENEWING_ISSUED_CHECKS_H

#include "cardlibs/renewing/installation.h"

namespace cardlibs::renewing {

// The issued certificate that belongs to a key on the card.
struct Target {
    const x509::Certificate* issued = nullptr;
    const contents::KeyObject* privateKey = nullptr;
    // Null when the certificate is on the card already.
    const contents::PendingPair* pending = nullptr;
    bool isStored = false;
};

// Throws CardError (issuedForOtherKey) when no certificate of the order is for a pending key, nor
// on the card with its key already.
Target chooseTarget(const contents::CardContents& contents, const InstallationOrder& order);

// The certificate on the card that goes once the target is installed; null when there is none (any
// more). Throws CardError: replacesOther, linkAmbiguous.
const contents::CertificateObject* replacedBy(const contents::CardContents& contents,
                                              const Target& target, const InstallationOrder& order);

// Throws CardError (the issued... numbers) unless it is for the same holder and kind, valid now or
// within a day, and fits on the card.
void checkIssued(const x509::Certificate& issued, const Target& target,
                 const contents::CertificateObject* replaced, const readers::CardPlace& place,
                 const InstallationOrder& order, std::time_t now);

}  // namespace cardlibs::renewing

#endif
