#include "cardlibs/contents/stores.h"

#include "cardlibs/contents/descriptor.h"

#include <algorithm>
#include <tuple>

namespace cardlibs::contents {
namespace {

std::size_t roomFor(Kind kind)
{
    return kind == Kind::cns ? 1 : 4;
}

std::vector<const CertifiedPair*> sortedPairs(const CardContents& contents, Kind kind,
                                              std::time_t now)
{
    std::vector<const CertifiedPair*> pairs;
    for (const CertifiedPair& pair : contents.certified())
        if (pair.kind == kind && !pair.isSuperseded)
            pairs.push_back(&pair);
    const auto rank = [&](const CertifiedPair* pair) {
        const x509::Certificate& certificate = pair->certificate->certificate;
        const bool hasExpired = certificate.notAfter() < now;
        const std::time_t order = hasExpired ? -certificate.notAfter() : certificate.notAfter();
        return std::make_tuple(hasExpired, order, certificate.digest());
    };
    std::sort(pairs.begin(), pairs.end(),
              [&](const CertifiedPair* l, const CertifiedPair* r) { return rank(l) < rank(r); });
    return pairs;
}

std::string nameOf(Kind kind, const x509::Certificate& certificate)
{
    return std::string(kindName(kind)) + " " + certificate.serialNumber();
}

}  // namespace

Stores storesOf(const CardContents& contents, std::time_t now)
{
    Stores stores;
    const auto fill = [&](Kind kind, Store& store) {
        for (const CertifiedPair* pair : sortedPairs(contents, kind, now)) {
            const x509::Certificate& certificate = pair->certificate->certificate;
            const PendingPair* pending = contents.pendingFor(certificate);
            std::string descriptor =
                descriptorOf(*pair, pending == nullptr ? "" : pending->label.text());
            if (store.descriptors.size() == roomFor(kind) ||
                descriptor.size() > longestDescriptor) {
                stores.leftOut.push_back(nameOf(kind, certificate));
                continue;
            }
            if (kind == Kind::cns)
                stores.cnsExpiry = x509::utcDate(certificate.notAfter());
            store.descriptors.push_back(std::move(descriptor));
        }
    };
    fill(Kind::cns, stores.cns);
    fill(Kind::signature, stores.signature);
    fill(Kind::authentication, stores.authentication);
    for (const CertificateObject* object : contents.undecided())
        if (const auto kind = kindOf(object->certificate, object->label, object->label))
            stores.leftOut.push_back(nameOf(*kind, object->certificate));
    return stores;
}

}  // namespace cardlibs::contents
