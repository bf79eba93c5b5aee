// Certificates whose keys or dates are not the usual ones.

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/certificate.h"
#include "tests/cardlibs/proxy_fixture.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::SizeIs;

using cardlibs::renewing::KeySpec;
using cardlibs::x509::PublicKey;
namespace fault = cardlibs::state::fault;

class UnusualCertificate : public ProxyFixture {
protected:
    // An AUT certificate over a key of a kind that softcard does not make.
    void addCertified(const KeySpec& spec)
    {
        const auto order =
            softcard::orderFor(softcard::findKind("aut"), 0, softcard::KeyType::p256, 30);
        const auto authority = softcard::DemoAuthority::open(folder().authority());
        onCard([&](cardlibs::token::Session& session) {
            cardlibs::renewing::NewKey wanted;
            wanted.label = order.label;
            wanted.id = {0xAB, 0xCD};
            const auto key = cardlibs::renewing::makeKey(session, spec, wanted);
            const auto der = authority.certify(softcard::nameOf(order.subject).get(),
                                               cardlibs::x509::evpKey(key.publicKey).get(),
                                               order.validity, order.profile);
            softcard::addCertificate(session, order.label, wanted.id, der);
        });
        startProxy();
    }

    PublicKey keyOf(const std::vector<std::string>& descriptor)
    {
        for (const auto& object : certificates())
            if (object.certificate.serialNumber() == descriptor[serialField])
                return object.certificate.publicKey().value();
        ADD_FAILURE() << "the certificate is not on the card";
        return {};
    }
};

TEST_F(UnusualCertificate, rsa4096_isRenewedWithAKeyOfThatLength)
{
    makeCard({});
    addCertified({PublicKey::Algorithm::rsa, 4096, 0});
    const auto before = read();
    ASSERT_THAT(before.aut, SizeIs(1));
    const RequestResult made = request(Function::aut, before.aut[0]);
    ASSERT_EQ(made.result, 0) << lastError().text;
    ASSERT_EQ(save(Function::aut, before.aut[0][ckaIdField], issue(made.pem)), 0)
        << lastError().text;
    const auto after = read();
    ASSERT_THAT(after.aut, SizeIs(1));
    EXPECT_NE(after.aut[0][serialField], before.aut[0][serialField]);
    EXPECT_EQ(keyOf(after.aut[0]).bits(), 4096u);
    EXPECT_EQ(workingPairs(), 1u);
}

TEST_F(UnusualCertificate, p521_isListedAndItsRequestRefusedBeforeAKeyIsMade)
{
    makeCard({});
    addCertified({PublicKey::Algorithm::ec, 521, NID_secp521r1});
    const auto stores = read();
    ASSERT_THAT(stores.aut, SizeIs(1));
    const auto objects = objectNames();
    const RequestResult made = request(Function::aut, stores.aut[0]);
    EXPECT_NE(made.result, 0);
    EXPECT_EQ(made.pem, "");
    EXPECT_EQ(lastError().number, static_cast<int>(fault::keyNotSupported)) << lastError().text;
    EXPECT_EQ(proxy().count("C_GenerateKeyPair"), 0u);
    EXPECT_EQ(objectNames(), objects);
}

// From 2050 on certificates write their dates in another form (RFC 5280, 4.1.2.5).
TEST_F(UnusualCertificate, yearsFrom2050_datesAreReadAndRenewed)
{
    struct Row {
        const char* what;
        std::time_t notAfter;
        const char* date;
    };
    for (const Row& row : {Row{"last second of 2049", 2524607999, "20491231"},
                           Row{"first second of 2050", 2524608000, "20500101"},
                           Row{"last second of 2099", 4102444799, "20991231"},
                           Row{"first of March 2100", 4107542400, "21000301"}}) {
        SCOPED_TRACE(row.what);
        folder().clear();
        folder().prepare();
        makeCard({});
        proxy().reset();
        for (const char* kind : {"aut", "cns"}) {
            auto order =
                softcard::orderFor(softcard::findKind(kind), 0, softcard::KeyType::p256, 30);
            order.validity.notAfter = row.notAfter;
            addCertificate(order);
        }
        startProxy();
        const auto before = read();
        ASSERT_EQ(before.result, 0) << lastError().text;
        ASSERT_THAT(before.aut, SizeIs(1));
        EXPECT_EQ(before.aut[0][notAfterField], std::string(row.date) + "000000");
        EXPECT_EQ(before.cnsExpiry, row.date);
        const RequestResult made = request(Function::aut, before.aut[0]);
        ASSERT_EQ(made.result, 0) << lastError().text;
        const std::string issued = issue(made.pem, {std::time(nullptr), row.notAfter});
        ASSERT_EQ(save(Function::aut, before.aut[0][ckaIdField], issued), 0) << lastError().text;
        const auto after = read();
        ASSERT_THAT(after.aut, SizeIs(1));
        EXPECT_NE(after.aut[0][serialField], before.aut[0][serialField]);
        EXPECT_EQ(after.aut[0][notAfterField], std::string(row.date) + "000000");
    }
}

TEST_F(UnusualCertificate, beginsIn2050_refusedUnchanged)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const RequestResult made = request(Function::aut, descriptor);
    ASSERT_EQ(made.result, 0) << lastError().text;
    const auto objects = objectNames();
    EXPECT_NE(save(Function::aut, descriptor[ckaIdField],
                   issue(made.pem, {2524608000, 2524608000 + 86400})),
              0);
    EXPECT_EQ(lastError().number, static_cast<int>(fault::issuedNotYetValid)) << lastError().text;
    EXPECT_EQ(objectNames(), objects);
}

}  // namespace
}  // namespace cardlibs_test
