// The key behind a request: what it is made for, when one that waits is used, how it is made to
// sign.

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/name.h"
#include "tests/cardlibs/crafted_card.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

using softcard::KeyType;
namespace fault = cardlibs::state::fault;

class RequestKey : public CraftedCard {
protected:
    bool privateKeyMay(CK_ATTRIBUTE_TYPE use, const std::string& label)
    {
        bool may = false;
        onCard([&](cardlibs::token::Session& session) {
            cardlibs::token::Template sought;
            sought.number(CKA_CLASS, CKO_PRIVATE_KEY).text(CKA_LABEL, label);
            may = session.read(session.find(sought).at(0), {use}).flag(use).value_or(false);
        });
        return may;
    }
};

TEST_F(RequestKey, usesOfTheOldOne_newKeyMayBePutToThem)
{
    struct Row {
        const char* keyUsage;
        KeyType keyType;
        bool decrypts;
        bool agrees;
    };
    const Row rows[] = {
        {"critical,digitalSignature", KeyType::p256, false, false},
        {"critical,digitalSignature,keyAgreement", KeyType::p256, false, true},
        {"", KeyType::p256, false, true},
        {"critical,digitalSignature", KeyType::rsa2048, false, false},
        {"critical,digitalSignature,keyEncipherment", KeyType::rsa2048, true, false},
        {"critical,digitalSignature,dataEncipherment", KeyType::rsa2048, true, false},
        {"", KeyType::rsa2048, true, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.keyUsage) + " " +
                     std::to_string(static_cast<int>(row.keyType)));
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({});
        auto order = orderOf("aut", 0, row.keyType);
        order.profile.keyUsage = row.keyUsage;
        addCertificate(order);
        ASSERT_EQ(request(Function::aut, read().aut.at(0)).result, 0) << lastError().text;
        EXPECT_EQ(privateKeyMay(CKA_DECRYPT, "AUT1"), row.decrypts);
        EXPECT_EQ(privateKeyMay(CKA_UNWRAP, "AUT1"), row.decrypts);
        EXPECT_EQ(privateKeyMay(CKA_DERIVE, "AUT1"), row.agrees);
    }
}

TEST_F(RequestKey, pairOfTheOtherOrganisation_notUsedAndEitherCertificateIsInstalled)
{
    makeCard({});
    auto order = orderOf("role", 0);
    order.subject = {{"2.5.4.6", "IT"},
                     {"2.5.4.10", "Ente"},
                     {"2.5.4.12", "Arbitro"},
                     {"2.5.4.3", "Mario Rossi"}};
    addCertificate(order);
    const auto plain = read().pra.at(0);
    auto rewritten = plain;
    rewritten[subjectField] = cardlibs::x509::withReplacedOrganisation(plain[subjectField]);
    ASSERT_NE(rewritten[subjectField], plain[subjectField]);
    const std::string first = issueFor("role", plain);
    const std::string second = issueFor("role", rewritten);
    const auto objects = objectNames();
    EXPECT_EQ(issueFor("role", plain).empty(), false);
    EXPECT_EQ(issueFor("role", rewritten).empty(), false);
    EXPECT_EQ(objectNames(), objects);
    install("role", plain, second);
    EXPECT_TRUE(lookAtToken(cardPin).works(certificateBytes(second)));
    EXPECT_EQ(save(Function::pra, "", first), 0) << lastError().text;
    EXPECT_TRUE(lookAtToken(cardPin).works(certificateBytes(first)));
}

TEST_F(RequestKey, cardThatHashesShortDataAlone_rawMechanismIsUsed)
{
    for (const KeyType keyType : {KeyType::p256, KeyType::rsa2048}) {
        SCOPED_TRACE(static_cast<int>(keyType));
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({}, keyType);
        addCertificate(orderOf("aut", 0, keyType));
        const auto descriptor = read().aut.at(0);
        proxy().longestToSign = 64;
        const std::string issued = issueFor("aut", descriptor);
        proxy().longestToSign = 0;
        install("aut", descriptor, issued);
    }
}

TEST_F(RequestKey, subjectTooLongForARequest_refusedBeforeAKeyIsMade)
{
    for (const int names : {110, 150, 250}) {
        SCOPED_TRACE(names);
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({});
        auto order = orderOf("aut", 0);
        for (int i = 0; i < names; ++i)
            order.subject.push_back({"2.5.4.11", std::string(60, 'x')});
        addCertificate(order);
        const auto object = certificates().at(0);
        const std::size_t before = objectNames().size();
        ASSERT_EQ(labels().result, 0);
        const RequestResult made =
            createRequest(Function::aut, "AUT1", cardPin, cardlibs::hexadecimal(object.id),
                          cardlibs::x509::nameText(object.certificate.subject()));
        const bool fits = names < 250;
        EXPECT_EQ(made.result == 0, fits) << lastError().text;
        if (!fits) {
            EXPECT_EQ(lastError().number, static_cast<int>(fault::requestTooLong));
        }
        EXPECT_EQ(objectNames().size(), before + (fits ? 2 : 0));
    }
}

TEST_F(RequestKey, certificateLargerThanTheTableAllows_saysSo)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    writeTable(tableEntry() + "certificate_bytes = 500\n");
    const auto before = objectNames();
    EXPECT_NE(request(Function::aut, descriptor).result, 0);
    EXPECT_EQ(lastError().number, static_cast<int>(fault::issuedTooLarge));
    EXPECT_THAT(lastError().text, Not(HasSubstr("eliminare")));
    EXPECT_EQ(objectNames(), before);
}

TEST_F(RequestKey, cardRefusesTheAttributes_saysWhoHelps)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    for (const CK_RV answer : {CKR_TEMPLATE_INCOMPLETE, CKR_TEMPLATE_INCONSISTENT,
                               CKR_ATTRIBUTE_TYPE_INVALID, CKR_FUNCTION_NOT_SUPPORTED}) {
        SCOPED_TRACE(answer);
        proxy().failingName = "C_GenerateKeyPair";
        proxy().failingCall = proxy().count("C_GenerateKeyPair") + 1;
        proxy().failure = answer;
        EXPECT_NE(request(Function::aut, descriptor).result, 0);
        EXPECT_EQ(lastError().number, static_cast<int>(answer));
        EXPECT_THAT(lastError().text, HasSubstr("rivolgersi all'assistenza"));
        EXPECT_THAT(lastError().text, Not(HasSubstr("reinserirla")));
    }
}

}  // namespace
}  // namespace cardlibs_test
