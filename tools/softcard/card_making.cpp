#include "tools/softcard/card_making.h"

#include "tools/softcard/card_token.h"

#include <algorithm>
#include <map>
#include <stdexcept>

namespace softcard {
namespace {

using cardlibs::token::Access;
using cardlibs::token::Session;

}  // namespace

const std::vector<CertificateKind>& certificateKinds()
{
    static const Profile authentication = {"critical,digitalSignature", "clientAuth",
                                           "1.3.76.36.1.1.10"};
    static const Profile signature = {"critical,nonRepudiation", "", "1.3.76.36.1.1.1"};
    static const Profile services = {"critical,digitalSignature", "clientAuth", "1.3.76.16.2.1"};
    static const std::vector<CertificateKind> kinds = {
        {"aut", "AUT", true, "", "", authentication},
        {"pra", "DS", true, "IT:", "", signature},
        {"role", "DS", true, "IT:", "Revisore", signature},
        {"cns", "CNS0", false, "", "", services},
        {"cns-like", "CNS0", false, "", "", authentication},
    };
    return kinds;
}

const CertificateKind& findKind(const std::string& name)
{
    const std::vector<CertificateKind>& kinds = certificateKinds();
    const auto found = std::find_if(kinds.begin(), kinds.end(),
                                    [&](const CertificateKind& kind) { return name == kind.name; });
    if (found == kinds.end())
        throw std::runtime_error("there is no kind of certificate called " + name);
    return *found;
}

CertifiedKeyOrder orderFor(const CertificateKind& kind, int number, KeyType keyType,
                           int daysToExpiry)
{
    CertifiedKeyOrder order;
    order.label = kind.label + (kind.isLabelNumbered ? std::to_string(number) : std::string());
    order.keyType = keyType;
    order.subject = subjectOf(Holder(), kind.serialPrefix, kind.title);
    order.validity = validityFor(daysToExpiry);
    order.profile = kind.profile;
    return order;
}

void makeCard(const CardFolder& folder, const CardOrder& order, const Secret& pin,
              const Secret& securityOfficerPin)
{
    const CK_SLOT_ID slot = makeToken(folder, order.tokenLabel, pin, securityOfficerPin);
    const DemoAuthority authority = DemoAuthority::make(folder.authority());
    Session session(startModule(), slot, Access::readWrite);
    session.login(pin.text());
    std::map<std::string, int> numbers;
    for (const std::string& name : order.kinds) {
        const CertificateKind& kind = findKind(name);
        addCertifiedKey(session, authority,
                        orderFor(kind, numbers[kind.label]++, order.keyType, order.daysToExpiry));
    }
}

}  // namespace softcard
