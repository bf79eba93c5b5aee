#include "cardlibs/contents/descriptor.h"

#include "cardlibs/x509/name.h"

#include <array>

namespace cardlibs::contents {
namespace {

// In the order in which they are looked for: signature, signature with a limitation of use,
// national services card, that of a professional body.
constexpr std::array<const char*, 4> preferredPolicies = {"1.3.76.36.1.1.1", "1.3.76.36.1.1.23",
                                                          "1.3.76.16.2.1", "1.3.76.39.1.1.2"};

const x509::CertificatePolicy* policyOf(const x509::Certificate& certificate)
{
    for (const char* preferred : preferredPolicies)
        for (const x509::CertificatePolicy& policy : certificate.policies())
            if (policy.identifier == preferred)
                return &policy;
    return certificate.policies().empty() ? nullptr : &certificate.policies().front();
}

std::string explicitTextOf(const x509::Certificate& certificate)
{
    const x509::CertificatePolicy* chosen = policyOf(certificate);
    if (chosen != nullptr && !chosen->explicitText.empty())
        return chosen->explicitText;
    for (const x509::CertificatePolicy& policy : certificate.policies())
        if (!policy.explicitText.empty())
            return policy.explicitText;
    return {};
}

// "IT:RSSMRA..." and "TINIT-RSSMRA..." (ETSI EN 319 412-1) both carry the bare code behind a
// prefix.
std::string fiscalCodeOf(const x509::Certificate& certificate)
{
    const std::string value = x509::firstValue(certificate.subject(), x509::serialNumberType);
    const std::size_t mark = value.find_first_of(":-");
    return mark == std::string::npos ? value : value.substr(mark + 1);
}

}  // namespace

std::string descriptorOf(const CertifiedPair& pair, const std::string& pendingLabel)
{
    static constexpr char midnight[] = "000000";
    const x509::Certificate& certificate = pair.certificate->certificate;
    const x509::CertificatePolicy* policy = policyOf(certificate);
    std::string text;
    const auto add = [&](const std::string& field) { text += field + "#"; };
    add(x509::nameText(certificate.subject()));
    add(x509::nameText(certificate.issuer()));
    add(x509::fieldText(x509::firstValue(certificate.subject(), x509::dnQualifierType)));
    add(policy == nullptr ? "" : policy->identifier);
    add(certificate.serialNumber());
    add(x509::utcDate(certificate.notBefore()) + midnight);
    add(x509::utcDate(certificate.notAfter()) + midnight);
    add(hexadecimal(pair.certificate->id));
    if (pair.kind == Kind::signature)
        add(x509::fieldText(explicitTextOf(certificate)));
    add(pendingLabel);
    return text + x509::fieldText(fiscalCodeOf(certificate));
}

}  // namespace cardlibs::contents
