#include "eligibility/cns_certificate.h"

namespace eligibility {

namespace names = renew_context;

Classification classifyCns(Candidate& candidate)
{
    const auto& descriptor = candidate.descriptor;
    if (descriptor.policy() == names::cnsPolicy) {
        if (descriptor.issuer().contains(QStringLiteral("pellaroux"), Qt::CaseInsensitive)) {
            candidate.policy = names::cndcecPolicy;
        }
        return {names::cnsCertificate,
                names::cnsLabel,
                {QStringLiteral("Certificato CNS. IUT: ") + descriptor.iut()}};
    }
    if (descriptor.policy() == names::cndcecPolicy) {
        return {names::cndcecCertificate,
                names::cndcecLabel,
                {QStringLiteral("Certificato CNDCEC CNS. IUT: ") + descriptor.iut()}};
    }
    return {names::cnsLikeCertificate,
            names::cnsLikeLabel,
            {QStringLiteral("Certificato CNS-Like (AUT). IUT: ") + descriptor.iut()}};
}

}  // namespace eligibility
