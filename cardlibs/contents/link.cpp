#include "cardlibs/contents/link.h"

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/name.h"

#include <openssl/rand.h>

#include <algorithm>

namespace cardlibs::contents {
namespace {

// Cut to the length of a link, as RFC 7093 cuts them to that of a SHA-1.
Bytes shortDigest(const EVP_MD* algorithm, const Bytes& data)
{
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest.data(), &length, algorithm, nullptr) != 1)
        return {};
    digest.resize(linkSize);
    return digest;
}

// What tokens take digests of.
std::vector<Bytes> formsOf(const x509::PublicKey& key)
{
    std::vector<Bytes> forms = {x509::encodedKey(key), x509::subjectPublicKeyInfo(key)};
    if (key.algorithm == x509::PublicKey::Algorithm::rsa) {
        forms.push_back(key.modulus);
        // As a positive DER integer has it.
        Bytes withZero = {0};
        withZero.insert(withZero.end(), key.modulus.begin(), key.modulus.end());
        forms.push_back(std::move(withZero));
    } else {
        const auto coordinate = static_cast<std::ptrdiff_t>(key.point.size() / 2);
        forms.emplace_back(key.point.begin() + 1, key.point.begin() + 1 + coordinate);
        forms.push_back(x509::octetString(key.point));
    }
    return forms;
}

}  // namespace

Bytes newLink(const x509::Certificate& replaced)
{
    Bytes link(linkSize);
    std::copy_n(replaced.digest().begin(), linkDigestSize, link.begin());
    if (RAND_bytes(link.data() + linkDigestSize, static_cast<int>(linkSize - linkDigestSize)) != 1)
        throw state::CardError(state::fault::internal, "RAND_bytes");
    return link;
}

bool linkNames(const Bytes& id, const x509::Certificate& certificate)
{
    return id.size() == linkSize &&
           std::equal(id.begin(), id.begin() + linkDigestSize, certificate.digest().begin());
}

bool looksLikeLink(const Bytes& id, const x509::PublicKey& key)
{
    if (id.size() != linkSize)
        return false;
    const EVP_MD* const algorithms[] = {EVP_sha1(), EVP_sha256(), EVP_sha384(), EVP_sha512()};
    for (const Bytes& form : formsOf(key))
        for (const EVP_MD* algorithm : algorithms)
            if (id == shortDigest(algorithm, form))
                return false;
    return true;
}

bool subjectFits(const Bytes& keySubject, const Bytes& certificateSubject)
{
    return !keySubject.empty() &&
           (keySubject == certificateSubject ||
            keySubject == x509::withReplacedOrganisation(certificateSubject));
}

}  // namespace cardlibs::contents
