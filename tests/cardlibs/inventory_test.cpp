// What rinnovo_Card_readCerts and rinnovo_Card_findFreeCKAID tell of a SoftHSM2 token.

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/certificate.h"
#include "imports/tarvelo.h"
#include "tests/cardlibs/renewal_steps.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using softcard::KeyType;

class Inventory : public RenewalFixture {};

softcard::CertifiedKeyOrder orderOf(const std::string& kind, int number)
{
    return softcard::orderFor(softcard::findKind(kind), number, KeyType::p256, 30);
}

TEST_F(Inventory, authenticationCertificate_tenFields)
{
    makeCard({"aut"});
    const ReadResult result = read();
    ASSERT_EQ(result.result, 0);
    EXPECT_EQ(result.autCount, "1");
    ASSERT_THAT(result.aut, SizeIs(1));
    const std::vector<std::string>& fields = result.aut[0];
    ASSERT_THAT(fields, SizeIs(10));
    const auto card = certificates();
    ASSERT_THAT(card, SizeIs(1));
    EXPECT_EQ(fields[0], "2.5.4.6=IT,2.5.4.10=Ente Dimostrativo,2.5.4.4=Valdestri,"
                         "2.5.4.42=Nicol\xC3\xB2,2.5.4.5=VLDNCL85M12F205X,"
                         "2.5.4.46=20269107350001,2.5.4.3=Valdestri Nicol\xC3\xB2");
    EXPECT_EQ(fields[1], "2.5.4.6=IT,2.5.4.10=Castelvane,2.5.4.3=Castelvane Demo CA");
    EXPECT_EQ(fields[2], "20269107350001");
    EXPECT_EQ(fields[3], "1.3.76.36.1.1.10");
    EXPECT_EQ(fields[4], card[0].certificate.serialNumber());
    EXPECT_EQ(fields[5], cardlibs::x509::utcDate(softcard::validityFor(30).notBefore) + "000000");
    EXPECT_EQ(fields[6], cardlibs::x509::utcDate(softcard::validityFor(30).notAfter) + "000000");
    EXPECT_EQ(fields[7], cardlibs::hexadecimal(card[0].id));
    EXPECT_EQ(fields[8], "");
    EXPECT_EQ(fields[9], "VLDNCL85M12F205X");
}

TEST_F(Inventory, signatureCertificate_elevenFieldsAndPrefixOffTheFiscalCode)
{
    makeCard({"pra"});
    const ReadResult result = read();
    EXPECT_EQ(result.praCount, "1");
    ASSERT_THAT(result.pra, SizeIs(1));
    ASSERT_THAT(result.pra[0], SizeIs(11));
    EXPECT_THAT(result.pra[0][0], HasSubstr("2.5.4.5=IT:VLDNCL85M12F205X"));
    EXPECT_EQ(result.pra[0][3], "1.3.76.36.1.1.1");
    EXPECT_EQ(result.pra[0][10], "VLDNCL85M12F205X");
}

TEST_F(Inventory, allKinds_eachInItsStore)
{
    makeCard({"aut", "pra", "role", "cns"});
    const ReadResult result = read();
    EXPECT_EQ(result.result, 0);
    EXPECT_THAT(result.aut, SizeIs(1));
    EXPECT_THAT(result.pra, SizeIs(2));
    ASSERT_THAT(result.cns, SizeIs(1));
    EXPECT_EQ(result.cns[0][3], "1.3.76.16.2.1");
    EXPECT_EQ(result.cnsExpiry, cardlibs::x509::utcDate(softcard::validityFor(30).notAfter));
    EXPECT_EQ(result.autLabel, "AUT1");
    EXPECT_EQ(result.praLabel, "DS2");
}

TEST_F(Inventory, cnsLikeCertificate_inTheCnsStoreByItsPosition)
{
    makeCard({"cns-like"});
    const ReadResult result = read();
    EXPECT_THAT(result.aut, IsEmpty());
    ASSERT_THAT(result.cns, SizeIs(1));
    EXPECT_EQ(result.cns[0][3], "1.3.76.36.1.1.10");
}

TEST_F(Inventory, cnsPolicyInAnotherPosition_isCns)
{
    makeCard({});
    for (const char* policy : {"1.3.76.16.2.1", "1.3.76.39.1.1.2"}) {
        SCOPED_TRACE(policy);
        auto order = orderOf("aut", 0);
        order.label = std::string("Etichetta ") + policy;
        order.profile.policy = policy;
        addCertificate(order);
    }
    const ReadResult result = read();
    EXPECT_EQ(result.result, -500);
    EXPECT_THAT(result.aut, IsEmpty());
    EXPECT_THAT(result.cns, SizeIs(1));
}

TEST_F(Inventory, emptyCard_noCertificatesAndFirstLabels)
{
    makeCard({});
    const ReadResult result = read();
    EXPECT_EQ(result.result, 0);
    EXPECT_EQ(result.cnsCount, "0");
    EXPECT_EQ(result.praCount, "0");
    EXPECT_EQ(result.autCount, "0");
    EXPECT_EQ(result.praLabel, "DS0");
    EXPECT_EQ(result.autLabel, "AUT0");
    EXPECT_EQ(result.cnsExpiry, "");
}

TEST_F(Inventory, moreThanFourCertificates_nearestExpiryFirstAndRestNamed)
{
    makeCard({});
    const int days[] = {40, -3, 10, 500, -100, 20};
    int number = 0;
    for (const int toExpiry : days)
        addCertificate("aut", number++, toExpiry);
    const ReadResult result = read();
    EXPECT_EQ(result.result, -500);
    EXPECT_EQ(result.autCount, "4");
    ASSERT_THAT(result.aut, SizeIs(4));
    const int shown[] = {10, 20, 40, 500};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(result.aut[i][notAfterField],
                  cardlibs::x509::utcDate(softcard::validityFor(shown[i]).notAfter) + "000000");
    const LastError error = lastError();
    EXPECT_EQ(error.number, static_cast<int>(cardlibs::state::fault::certificatesLeftOut));
    for (const auto& object : certificates()) {
        const bool isLeftOut = object.label == "AUT1" || object.label == "AUT4";
        const bool isNamed =
            error.text.find("AUT " + object.certificate.serialNumber()) != std::string::npos;
        EXPECT_EQ(isNamed, isLeftOut) << object.label;
    }
}

TEST_F(Inventory, expiredCertificates_latestExpiredFirst)
{
    makeCard({});
    addCertificate("aut", 0, -100);
    addCertificate("aut", 1, -3);
    const ReadResult result = read();
    ASSERT_THAT(result.aut, SizeIs(2));
    EXPECT_LT(result.aut[1][notAfterField], result.aut[0][notAfterField]);
}

TEST_F(Inventory, descriptorTooLong_certificateLeftOutNeverCut)
{
    makeCard({"aut"});
    auto order = orderOf("aut", 1);
    order.subject.push_back({"2.5.4.11", std::string(4000, 'x')});
    addCertificate(order);
    const ReadResult result = read();
    EXPECT_EQ(result.result, -500);
    EXPECT_EQ(result.autCount, "1");
    ASSERT_THAT(result.aut, SizeIs(1));
    EXPECT_EQ(result.aut[0][0].find("xxxx"), std::string::npos);
}

TEST_F(Inventory, certificateWithoutKey_authority_encryption_leftOut)
{
    makeCard({});
    addCertificate("aut", 0);
    // The authority's own certificate, and a certificate whose key is elsewhere.
    auto order = orderOf("aut", 7);
    order.profile = {"critical,keyCertSign,digitalSignature", "clientAuth", ""};
    addCertificate(order);
    auto encryption = orderOf("aut", 8);
    encryption.profile = {"critical,keyEncipherment", "", ""};
    addCertificate(encryption);
    auto keyless = orderOf("aut", 9);
    const cardlibs::Bytes der = addCertificate(keyless);
    onCard([&](cardlibs::token::Session& session) {
        for (const auto& key : cardlibs::contents::readObjects(session).privateKeys)
            if (key.label == "AUT9")
                session.destroy(key.handle);
    });
    const ReadResult result = read();
    EXPECT_EQ(result.result, 0);
    ASSERT_THAT(result.aut, SizeIs(2));
    for (const auto& fields : result.aut)
        EXPECT_NE(fields[serialField], cardlibs::x509::Certificate::parse(der)->serialNumber());
}

TEST_F(Inventory, pendingKeys_flagsAndLowestLabels)
{
    makeCard({});
    struct Row {
        const char* label;
        int cns, pra, aut;
        const char* praLabel;
        const char* autLabel;
    };
    const Row rows[] = {
        {"AUT3", 0, 0, 1, "DS0", "AUT3"},
        {"AUT1", 0, 0, 1, "DS0", "AUT1"},
        {"DS5", 0, 1, 1, "DS5", "AUT1"},
        {"CNS0", 1, 1, 1, "DS5", "AUT1"},
        // Not ours: other names, and one with a leading zero.
        {"ssh", 1, 1, 1, "DS5", "AUT1"},
        {"AUT00", 1, 1, 1, "DS5", "AUT1"},
        {"DS", 1, 1, 1, "DS5", "AUT1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        auto order = orderOf("aut", 0);
        order.label = row.label;
        order.id = {static_cast<unsigned char>(row.label[0]),
                    static_cast<unsigned char>(row.label[1]), row.label[2] == '\0'};
        order.id.push_back(static_cast<unsigned char>(std::string(row.label).back()));
        order.id.push_back(static_cast<unsigned char>(std::string(row.label).size()));
        addKey(order);
        const ReadResult result = read();
        EXPECT_EQ(result.result, 0);
        EXPECT_EQ(result.pendingCns != 0, row.cns != 0);
        EXPECT_EQ(result.pendingPra != 0, row.pra != 0);
        EXPECT_EQ(result.pendingAut != 0, row.aut != 0);
        EXPECT_EQ(result.praLabel, row.praLabel);
        EXPECT_EQ(result.autLabel, row.autLabel);
        const LabelResult free = labels();
        EXPECT_EQ(free.pra, row.praLabel);
        EXPECT_EQ(free.aut, row.autLabel);
    }
}

TEST_F(Inventory, labelOfAForeignObject_isNotProposed)
{
    makeCard({});
    onCard([](cardlibs::token::Session& session) {
        cardlibs::token::Template data;
        data.number(CKA_CLASS, CKO_DATA)
            .flag(CKA_TOKEN, true)
            .text(CKA_LABEL, "AUT0")
            .bytes(CKA_VALUE, {1, 2, 3});
        session.create(data);
    });
    EXPECT_EQ(read().autLabel, "AUT1");
}

TEST_F(Inventory, wrongPin_pinIncorrectAndNothingRead)
{
    makeCard({"aut"});
    const ReadResult result = readCerts(reader(), wrongPin);
    EXPECT_NE(result.result, 0);
    EXPECT_NE(result.result, -500);
    EXPECT_NE(result.result, 100);
    EXPECT_EQ(lastError().number, CKR_PIN_INCORRECT);
    EXPECT_EQ(result.autCount, "");
    EXPECT_NE(findFreeLabels(reader(), wrongPin).result, 0);
    EXPECT_EQ(lastError().number, CKR_PIN_INCORRECT);
}

TEST_F(Inventory, cardNotInTable_notSupported)
{
    makeCard({"aut"});
    const std::string name = reader();
    writeTable("[software Other]\nmodule = softhsm2\nmanufacturer = Other\nmodel = Other\n");
    EXPECT_EQ(readCerts(name, cardPin).result, 100);
    EXPECT_EQ(lastError().number, 0xBFC);
}

TEST_F(Inventory, afterTheCall_noSessionIsLeft)
{
    makeCard({"aut"});
    const std::string name = reader();
    ASSERT_EQ(readCerts(name, cardPin).result, 0);
    ASSERT_EQ(findFreeLabels(name, cardPin).result, 0);
    EXPECT_NE(findFreeLabels(name, wrongPin).result, 0);
    // Only a module without open sessions of ours is started anew.
    EXPECT_TRUE(cardlibs::token::Module::load("softhsm2").reinitialise());
}

TEST_F(Inventory, loggedInElsewhereInTheProcess_pinNotCheckedIsAFailure)
{
    makeCard({"aut"});
    const std::string name = reader();
    onCard([&](cardlibs::token::Session&) {
        EXPECT_NE(readCerts(name, cardPin).result, 0);
        EXPECT_EQ(lastError().number, CKR_USER_ALREADY_LOGGED_IN);
    });
}

TEST_F(Inventory, nullArguments_refused)
{
    makeCard({});
    std::string name = reader();
    std::string pin = cardPin;
    char buffer[64] = {};
    EXPECT_NE(rinnovo_Card_findFreeCKAID(name.data(), nullptr, buffer, buffer), 0);
    EXPECT_NE(rinnovo_Card_findFreeCKAID(name.data(), pin.data(), nullptr, buffer), 0);
    int flag = 0;
    EXPECT_NE(rinnovo_Card_readCerts(name.data(), pin.data(), 3, nullptr, nullptr, nullptr, &flag,
                                     &flag, &flag, buffer, buffer, buffer, ""),
              0);
    EXPECT_EQ(lastError().number, static_cast<int>(cardlibs::state::fault::invalidArgument));
}

}  // namespace
}  // namespace cardlibs_test
