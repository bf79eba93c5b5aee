#include "tests/cardlibs/card_fixture.h"

#include "cardlibs/renewing/key_signer.h"
#include "cardlibs/state/card_error.h"
#include "cardlibs/state/shared_state.h"
#include "tools/softcard/card_token.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace cardlibs_test {

using cardlibs::Bytes;
using cardlibs::token::Access;
using cardlibs::token::Session;

namespace {

constexpr char shippedTable[] = "[software SoftHSM2]\n"
                                "module = softhsm2\n"
                                "manufacturer = SoftHSM project\n"
                                "model = SoftHSM v2\n";

std::filesystem::path makeFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "cardlibs-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot make a temporary folder");
    return pattern;
}

}  // namespace

TemporaryFolder::TemporaryFolder()
    : m_path(makeFolder())
{
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

softcard::CertifiedKeyOrder pairWithoutCertificate(const std::string& label, int number)
{
    auto order = softcard::orderFor(softcard::findKind("aut"), number, softcard::KeyType::p256, 30);
    order.label = label;
    order.id = {1, 2, static_cast<unsigned char>(number)};
    order.subject = {{"2.5.4.3", "Un altro"}};
    return order;
}

void CardFixture::SetUpTestSuite()
{
    // libpcsclite reads the variable at its first call and keeps it.
    ASSERT_EQ(setenv("PCSCLITE_CSOCK_NAME", "/nonexistent/pcscd.comm", 1), 0);
}

CardFixture::CardFixture()
    : m_folder(m_temporary.path() / "card")
{
    // What another test of the same process left must not decide this one.
    cardlibs::state::sharedState() = {};
    m_folder.prepare();
    writeTable(shippedTable);
    cardlibs::state::sharedState().tablePath = tablePath();
    softcard::startModule();
}

void CardFixture::makeCard(const std::vector<std::string>& kinds, softcard::KeyType keyType,
                           int daysToExpiry)
{
    softcard::makeCard(m_folder, {"Carta di prova", kinds, keyType, daysToExpiry},
                       softcard::Secret(std::string(cardPin)),
                       softcard::Secret(std::string("87654321")));
}

CK_SLOT_ID CardFixture::slot()
{
    cardlibs::token::Module& module = softcard::startModule();
    for (const CK_SLOT_ID slot : module.slotsWithToken(true))
        if (module.tokenInfo(slot).has(CKF_TOKEN_INITIALIZED))
            return slot;
    throw std::runtime_error("there is no card");
}

void CardFixture::onCard(const std::function<void(Session&)>& work)
{
    const CK_SLOT_ID at = slot();
    Session session(softcard::startModule(), at, Access::readWrite);
    session.login(cardPin);
    work(session);
}

Bytes CardFixture::addCertificate(const softcard::CertifiedKeyOrder& order)
{
    Bytes der;
    onCard([&](Session& session) {
        der = softcard::addCertifiedKey(session,
                                        softcard::DemoAuthority::open(m_folder.authority()), order);
    });
    return der;
}

Bytes CardFixture::addCertificate(const std::string& kind, int number, int daysToExpiry)
{
    return addCertificate(softcard::orderFor(softcard::findKind(kind), number,
                                             softcard::KeyType::p256, daysToExpiry));
}

void CardFixture::addKey(const softcard::CertifiedKeyOrder& order)
{
    onCard([&](Session& session) { softcard::addKey(session, order); });
}

std::vector<std::string> CardFixture::objectNames()
{
    std::vector<std::string> names;
    onCard([&](Session& session) {
        const auto objects = cardlibs::contents::readObjects(session);
        const auto add = [&](const char* what, const auto& object) {
            names.push_back(std::string(what) + " " + object.label + " " +
                            cardlibs::hexadecimal(object.id));
        };
        for (const auto& key : objects.privateKeys)
            add("private", key);
        for (const auto& key : objects.publicKeys)
            add("public", key);
        for (const auto& certificate : objects.certificates)
            add("certificate", certificate);
    });
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<cardlibs::contents::CertificateObject> CardFixture::certificates()
{
    std::vector<cardlibs::contents::CertificateObject> found;
    onCard(
        [&](Session& session) { found = cardlibs::contents::readObjects(session).certificates; });
    return found;
}

std::size_t CardFixture::workingPairs()
{
    std::size_t working = 0;
    onCard([&](Session& session) {
        const auto objects = cardlibs::contents::readObjects(session);
        for (const auto& certificate : objects.certificates)
            for (const auto& key : objects.privateKeys) {
                if (!key.publicKey || key.publicKey != certificate.certificate.publicKey())
                    continue;
                cardlibs::renewing::KeySigner(session,
                                              {key.handle, *key.publicKey, key.wantsPinEachTime},
                                              session.module().mechanisms(session.slot()), cardPin)
                    .prove();
                ++working;
            }
    });
    return working;
}

std::string CardFixture::reader()
{
    const std::vector<std::string> readers = softcard::cardReaders(m_folder);
    return readers.empty() ? std::string() : readers.front();
}

std::string CardFixture::tablePath() const
{
    return (m_temporary.path() / "table.ini").string();
}

void CardFixture::writeTable(const std::string& text) const
{
    std::ofstream(tablePath()) << text;
}

}  // namespace cardlibs_test
