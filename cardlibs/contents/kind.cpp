#include "cardlibs/contents/kind.h"

#include <algorithm>

namespace cardlibs::contents {
namespace {

constexpr char signaturePrefix[] = "DS";
constexpr char authenticationPrefix[] = "AUT";

// Policies of national services cards: the card's own, and the one of a professional body.
constexpr char cnsPolicy[] = "1.3.76.16.2.1";
constexpr char professionalCnsPolicy[] = "1.3.76.39.1.1.2";

std::optional<unsigned long> labelNumber(const std::string& text, const std::string& prefix)
{
    if (text.compare(0, prefix.size(), prefix) != 0)
        return std::nullopt;
    const std::string digits = text.substr(prefix.size());
    const bool allDigits =
        std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (digits.empty() || digits.size() > 9 || !allDigits ||
        (digits.size() > 1 && digits[0] == '0'))
        return std::nullopt;
    return std::stoul(digits);
}

}  // namespace

const char* kindName(Kind kind)
{
    switch (kind) {
    case Kind::signature:
        return "PRA";
    case Kind::cns:
        return "CNS";
    case Kind::authentication:
        break;
    }
    return "AUT";
}

std::string KeyLabel::text() const
{
    if (kind == Kind::cns)
        return cnsLabel;
    return (kind == Kind::signature ? signaturePrefix : authenticationPrefix) +
           std::to_string(number);
}

std::optional<KeyLabel> parseKeyLabel(const std::string& text)
{
    if (text == cnsLabel)
        return KeyLabel{Kind::cns, 0};
    if (const auto number = labelNumber(text, signaturePrefix))
        return KeyLabel{Kind::signature, *number};
    if (const auto number = labelNumber(text, authenticationPrefix))
        return KeyLabel{Kind::authentication, *number};
    return std::nullopt;
}

KeyLabel lowestFreeLabel(Kind kind, const std::multiset<std::string>& labels)
{
    KeyLabel label{kind, 0};
    while (kind != Kind::cns && labels.count(label.text()) != 0)
        ++label.number;
    return label;
}

std::optional<Kind> kindOf(const x509::Certificate& certificate,
                           const std::string& certificateLabel, const std::string& keyLabel)
{
    if (certificate.isAuthority())
        return std::nullopt;
    if (certificateLabel == cnsLabel || keyLabel == cnsLabel || certificate.hasPolicy(cnsPolicy) ||
        certificate.hasPolicy(professionalCnsPolicy))
        return Kind::cns;
    const x509::KeyUsage& usage = certificate.keyUsage();
    if (usage.contentCommitment)
        return Kind::signature;
    if (!usage.present && !certificate.hasExtendedKeyUsage()) {
        // Without either extension anything is allowed; what the key was made for decides.
        const std::optional<KeyLabel> label = parseKeyLabel(keyLabel);
        return label ? label->kind : Kind::authentication;
    }
    const bool maySign = !usage.present || usage.digitalSignature;
    if (maySign && certificate.allowsClientAuthentication())
        return Kind::authentication;
    return std::nullopt;
}

}  // namespace cardlibs::contents
