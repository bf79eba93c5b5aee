#include "bench/renewal/bench_card.h"

#include "cardlibs/x509/issued.h"
#include "tools/softcard/card_making.h"
#include "tools/softcard/card_token.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace bench {

namespace fs = std::filesystem;

namespace {

using cardlibs::Bytes;
using cardlibs::token::Access;
using cardlibs::token::Session;

constexpr int daysLeft = 30;
constexpr int daysIssued = 3 * 365;

enum class Standing {
    certified,
    // Ours, for a certificate that has left the card.
    pending,
    // Somebody else's, alone or with a certificate that is of none of our kinds.
    foreign,
    foreignCertified,
};

struct PairRow {
    Standing standing;
    const char* kind;
    int number;

    bool hasCertificate() const
    {
        return standing == Standing::certified || standing == Standing::foreignCertified;
    }
};

// Small cards have the first ones; every standing is met early, and most pairs have a certificate,
// which is another object to read.
constexpr std::array<PairRow, mostPairs> pairRows = {{
    {Standing::certified, "aut", 0},
    {Standing::pending, "aut", 1},
    {Standing::foreignCertified, "aut", 1},
    {Standing::certified, "pra", 0},
    {Standing::certified, "cns", 0},
    {Standing::foreign, "aut", 2},
    {Standing::certified, "aut", 2},
    {Standing::pending, "pra", 1},
    {Standing::certified, "role", 2},
    {Standing::foreignCertified, "aut", 3},
}};

Bytes drawn(std::size_t size)
{
    Bytes bytes(size);
    if (RAND_bytes(bytes.data(), static_cast<int>(size)) != 1) {
        throw std::runtime_error("no random numbers to be had");
    }
    return bytes;
}

CK_SLOT_ID slotOfCard()
{
    cardlibs::token::Module& module = softcard::startModule();
    for (const CK_SLOT_ID slot : module.slotsWithToken(true)) {
        if (module.tokenInfo(slot).has(CKF_TOKEN_INITIALIZED)) {
            return slot;
        }
    }
    throw std::runtime_error("SoftHSM2 does not show the card");
}

void addPair(Session& session, const softcard::DemoAuthority& authority,
             const softcard::KeyType keyType, const PairRow& row)
{
    softcard::CertifiedKeyOrder order =
        softcard::orderFor(softcard::findKind(row.kind), row.number, keyType, daysLeft);
    const bool isForeign =
        row.standing == Standing::foreign || row.standing == Standing::foreignCertified;
    if (isForeign) {
        order.label = "mail " + std::to_string(row.number);
        order.profile = {"critical,digitalSignature", "emailProtection", ""};
    }
    if (row.hasCertificate()) {
        softcard::addCertifiedKey(session, authority, order);
        return;
    }
    // A pending pair bears a link of 20 bytes; any other length is none of ours.
    order.id = drawn(isForeign ? 8 : 20);
    softcard::addKey(session, order);
}

}  // namespace

BenchCard::BenchCard(const fs::path& folder, softcard::KeyType keyType, int pairs)
    : m_folder(folder)
    , m_keyType(keyType)
    , m_pairs(pairs)
{
    m_folder.prepare();
    fs::create_directories(workFolder());
    softcard::makeCard(m_folder, {tokenLabel, {pairRows[0].kind}, keyType, daysLeft},
                       softcard::Secret(std::string(cardPin)),
                       softcard::Secret(std::string("87654321")));
    {
        const auto authority = softcard::DemoAuthority::open(m_folder.authority());
        const CK_SLOT_ID slot = slotOfCard();
        Session session(softcard::startModule(), slot, Access::readWrite);
        session.login(cardPin);
        for (std::size_t i = 1; i < static_cast<std::size_t>(pairs); ++i) {
            addPair(session, authority, keyType, pairRows.at(i));
        }
    }
    fs::copy(m_folder.tokens(), m_folder.root() / "kept", fs::copy_options::recursive);
    const cardlibs::contents::CardObjects made = objects();
    const auto first = std::find_if(made.certificates.begin(), made.certificates.end(),
                                    [](const auto& object) { return object.label == "AUT0"; });
    if (first == made.certificates.end() ||
        made.privateKeys.size() != static_cast<std::size_t>(pairs)) {
        throw std::runtime_error("the card was not made as it should be");
    }
    m_oldId = cardlibs::hexadecimal(first->id);
}

void BenchCard::restore() const
{
    fs::remove_all(m_folder.tokens());
    fs::copy(m_folder.root() / "kept", m_folder.tokens(), fs::copy_options::recursive);
    m_folder.useConfiguration();
}

std::string BenchCard::issue(const std::string& requestPem) const
{
    return softcard::DemoAuthority::open(m_folder.authority())
        .issue(requestPem, {std::time(nullptr), softcard::validityFor(daysIssued).notAfter}, "");
}

cardlibs::contents::CardObjects BenchCard::objects() const
{
    m_folder.useConfiguration();
    const CK_SLOT_ID slot = slotOfCard();
    Session session(softcard::startModule(), slot, Access::readOnly);
    session.login(cardPin);
    return cardlibs::contents::readObjects(session);
}

void BenchCard::expectRenewed(const std::string& issuedPem) const
{
    const auto issued = cardlibs::x509::parseIssued(Bytes(issuedPem.begin(), issuedPem.end()));
    const cardlibs::contents::CardObjects found = objects();
    const auto certified = std::count_if(pairRows.begin(), pairRows.begin() + m_pairs,
                                         [](const PairRow& row) { return row.hasCertificate(); });
    const bool hasNew =
        issued.size() == 1 &&
        std::any_of(found.certificates.begin(), found.certificates.end(),
                    [&](const auto& o) { return o.certificate.der() == issued.front().der(); }) &&
        std::any_of(found.privateKeys.begin(), found.privateKeys.end(),
                    [&](const auto& key) { return key.publicKey == issued.front().publicKey(); });
    const auto pairs = static_cast<std::size_t>(m_pairs);
    if (!hasNew || found.certificates.size() != static_cast<std::size_t>(certified) ||
        found.privateKeys.size() != pairs || found.publicKeys.size() != pairs) {
        throw std::runtime_error("the certificate on the card was not renewed");
    }
}

}  // namespace bench
