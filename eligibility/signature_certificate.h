#ifndef TARVELOQT_ELIGIBILITY_SIGNATURE_CERTIFICATE_H
#define TARVELOQT_ELIGIBILITY_SIGNATURE_CERTIFICATE_H

#include "eligibility/kind_rule.h"

#include <QString>

// What signature certificates have besides the rules that all kinds share.
namespace eligibility {

constexpr int signatureExplicitTextField = 8;
constexpr int signaturePendingKeyField = 9;

// The descriptor's pending key; for a descriptor without a field for it of its own (ten fields or
// fewer) the card's pending label when the space marker is present.
QString signaturePendingKey(const Candidate& candidate);

// signaturePendingKey when it is a signature key's label, which contains "DS"; else empty.
QString usableSignaturePendingKey(const Candidate& candidate);

// For a policy with a limitation of use to the holder's organisation: the working policy keeps the
// limitation, unless the user, who is asked for one customer's certificates, has it removed.
void decideLimitationOfUse(Candidate& candidate);

// Personal and role certificates; the working subject of one federation's gets its new name.
Classification classifySignature(Candidate& candidate);

// The subject with the value of its first organizationName (2.5.4.10), up to the next "2.",
// replaced; unchanged when either is missing.
QString withOrganization(const QString& subject, const QString& organization);

}  // namespace eligibility

#endif
