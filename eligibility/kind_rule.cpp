#include "eligibility/kind_rule.h"

#include "eligibility/cns_certificate.h"
#include "eligibility/signature_certificate.h"

#include <algorithm>

namespace eligibility {

namespace {

namespace names = renew_context;

constexpr int plainPendingKeyField = 8;

QString plainPendingKey(const Candidate& candidate)
{
    return candidate.descriptor.field(plainPendingKeyField);
}

void prepareNothing(Candidate& /*candidate*/) {}

Classification classifyAuthentication(Candidate& candidate)
{
    // The label stands on every record of this kind already.
    return {names::authenticationCertificate,
            {},
            {QStringLiteral("Certificato AUT. IUT: ") + candidate.descriptor.iut()}};
}

std::vector<KindRule> makeRules()
{
    const QString castelvane = QStringLiteral("castelvane");
    const QString norbelta = QStringLiteral("norbelta");
    const QString pellaroux = QStringLiteral("pellaroux");
    return {
        {CertificateKind::aut,
         QStringLiteral("AUT"),
         names::autRowPrefix,
         /*storeCapacity=*/4,
         plainPendingKeyField,
         /*fiscalCodeField=*/9,
         /*fiscalCodeSpan=*/24,
         /*fiscalCodePrefix=*/8,
         names::authenticationCertificate,
         /*explicitTextField=*/-1,
         {castelvane, norbelta},
         names::autAuthorities,
         QStringLiteral("AUT non rinnovabile: CA non Castelvane/Norbelta. Certificato saltato"),
         QStringLiteral("AUT non ancora in scadenza. Certificato saltato."),
         names::autExpired,
         {names::pendingAut, names::freeOfCharge, names::pendingKeyLabel,
          /*toPay=*/QString(), /*namesPendingKey=*/true,
          QStringLiteral("Caso: presenza pendingKey_AUT ed assenza Certificatio AUT: ")},
         plainPendingKey,
         plainPendingKey,
         prepareNothing,
         classifyAuthentication},
        {CertificateKind::pra,
         QStringLiteral("PRA"),
         names::praRowPrefix,
         /*storeCapacity=*/4,
         signaturePendingKeyField,
         /*fiscalCodeField=*/10,
         /*fiscalCodeSpan=*/27,
         /*fiscalCodePrefix=*/11,
         /*labelOfEveryRecord=*/QString(),
         signatureExplicitTextField,
         {castelvane, norbelta, pellaroux},
         names::praAuthorities,
         QStringLiteral("PRA non rinnovabile: CA non Castelvane/Norbelta. Certificato saltato"),
         QStringLiteral("PRA non ancora in scadenza. Certificato saltato"),
         names::praExpired,
         {names::pendingPra, /*renewalMode=*/QString(), names::pendingKeyLabel,
          /*toPay=*/QString(), /*namesPendingKey=*/true,
          QStringLiteral("Caso: presenza pendingKey_PRA ed assenza Certificatio PRA: ")},
         signaturePendingKey,
         usableSignaturePendingKey,
         decideLimitationOfUse,
         classifySignature},
        {CertificateKind::cns,
         QStringLiteral("CNS"),
         names::cnsRowPrefix,
         /*storeCapacity=*/1,
         plainPendingKeyField,
         /*fiscalCodeField=*/9,
         /*fiscalCodeSpan=*/24,
         /*fiscalCodePrefix=*/8,
         /*labelOfEveryRecord=*/QString(),
         /*explicitTextField=*/-1,
         {castelvane, norbelta, pellaroux},
         names::cnsAuthorities,
         QStringLiteral(
             "CNS non rinnovabile: CA non Castelvane/Norbelta/Pellaroux. Certificato saltato"),
         QStringLiteral("CNS non ancora in scadenza. Certificato saltato"),
         names::cnsExpired,
         {names::pendingCns, names::freeOfCharge, names::cnsKeyLabel, names::pendingCns,
          /*namesPendingKey=*/false,
          QStringLiteral("Caso: presenza pending_CNS ed assenza Certificatio CNS: ")},
         plainPendingKey,
         plainPendingKey,
         prepareNothing,
         classifyCns},
    };
}

}  // namespace

const std::vector<KindRule>& kindRules()
{
    static const std::vector<KindRule> rules = makeRules();
    return rules;
}

const KindRule& ruleOf(CertificateKind kind)
{
    const auto& rules = kindRules();
    return *std::find_if(rules.cbegin(), rules.cend(),
                         [kind](const KindRule& rule) { return rule.kind == kind; });
}

}  // namespace eligibility
