// Which certificate of those that come is installed, and which one on the card it replaces.

#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/crafted_card.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

using cardlibs::Bytes;
using softcard::KeyType;
namespace contents = cardlibs::contents;
namespace fault = cardlibs::state::fault;

constexpr std::time_t day = 86400;

class IssuedChoice : public CraftedCard {
protected:
    void expectRefused(int result, unsigned long number)
    {
        EXPECT_NE(result, 0);
        EXPECT_EQ(lastError().number, static_cast<int>(number)) << lastError().text;
    }
};

TEST_F(IssuedChoice, oldAndNewInOneFile_newOneIsInstalled)
{
    makeCard({"aut"});
    const Bytes old = certificates().at(0).certificate.der();
    const auto descriptor = read().aut.at(0);
    const std::string issued = issueFor("aut", descriptor);
    for (const std::string& file : {pemOf(old) + issued, issued + pemOf(old)}) {
        EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], file), 0) << lastError().text;
        const TokenLook token = lookAtToken(cardPin);
        EXPECT_TRUE(token.works(certificateBytes(issued)));
        EXPECT_FALSE(token.holds(old));
    }
}

TEST_F(IssuedChoice, theOldCertificateItself_refusedWhileItsPairIsPending)
{
    makeCard({"aut"});
    const Bytes old = certificates().at(0).certificate.der();
    const auto descriptor = read().aut.at(0);
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], pemOf(old)), 0) << lastError().text;
    issueFor("aut", descriptor);
    const auto before = objectNames();
    expectRefused(save(Function::aut, descriptor[ckaIdField], pemOf(old)),
                  fault::issuedForOtherKey);
    EXPECT_EQ(objectNames(), before);
}

TEST_F(IssuedChoice, twoNewOnesInOneFile_refusedAndOneByOneInstalled)
{
    makeCard({"aut", "pra"});
    const ReadResult card = read();
    const std::string aut = issueFor("aut", card.aut.at(0));
    const std::string pra = issueFor("pra", card.pra.at(0));
    const auto before = objectNames();
    expectRefused(save(Function::aut, card.aut[0][ckaIdField], aut + pra), fault::issuedSeveral);
    expectRefused(save(Function::pra, "", pra + aut), fault::issuedSeveral);
    EXPECT_EQ(objectNames(), before);
    install("aut", card.aut[0], aut);
    // The other one in the file is installed by now.
    EXPECT_EQ(save(Function::pra, card.pra[0][ckaIdField], aut + pra), 0) << lastError().text;
    const TokenLook token = lookAtToken(cardPin);
    EXPECT_TRUE(token.works(certificateBytes(aut)));
    EXPECT_TRUE(token.works(certificateBytes(pra)));
    EXPECT_THAT(token.certificates, SizeIs(2));
}

TEST_F(IssuedChoice, identifiersOfTheToken_newerCertificateIsNeverRemoved)
{
    makeCard({"aut"});
    proxy().choosesIdentifiers = true;
    const auto first = read().aut.at(0);
    const std::time_t now = std::time(nullptr);
    const RequestResult made = request(Function::aut, first);
    const std::string older = issue(made.pem, {now - 100 * day, now + 20 * day});
    install("aut", first, older);
    const auto second = read().aut.at(0);
    const std::string newer = issueFor("aut", second);
    failDestroy(1);
    EXPECT_NE(save(Function::aut, second[ckaIdField], newer), 0);
    failNothing();
    const auto newest = descriptorOf(read(), certificateBytes(newer));
    const auto before = objectNames();
    expectRefused(save(Function::aut, newest[ckaIdField], older), fault::replacesOther);
    EXPECT_EQ(objectNames(), before);
    EXPECT_TRUE(lookAtToken(cardPin).works(certificateBytes(newer)));
}

TEST_F(IssuedChoice, identifiersOfTheTokenAndCutShortAnywhere_repetitionCompletesTheRemoval)
{
    for (const KeyType keyType : {KeyType::p256, KeyType::rsa2048})
        for (const std::size_t removal : {1u, 2u, 3u}) {
            SCOPED_TRACE(std::to_string(removal) + " " + keyTypeName(keyType));
            folder().clear();
            folder().prepare();
            startProxy();
            makeCard({}, keyType);
            addCertificate(orderOf("pra", 0, keyType));
            proxy().choosesIdentifiers = true;
            const auto descriptor = read().pra.at(0);
            const std::string issued = issueFor("pra", descriptor);
            failDestroy(removal);
            EXPECT_NE(save(Function::pra, descriptor[ckaIdField], issued), 0);
            failNothing();
            EXPECT_TRUE(lookAtToken(cardPin).works(certificateBytes(issued)));
            install("pra", descriptor, issued);
            install("pra", descriptor, issued);
            const TokenLook token = lookAtToken(cardPin);
            EXPECT_TRUE(token.works(certificateBytes(issued)));
            EXPECT_EQ(token.objects, 3u);
        }
}

TEST_F(IssuedChoice, identifiersOfTheTokenAndNothingNamed_saysThatTheOldOneStays)
{
    makeCard({"aut"});
    proxy().choosesIdentifiers = true;
    const auto descriptor = read().aut.at(0);
    const std::string issued = issueFor("aut", descriptor);
    failDestroy(1);
    EXPECT_NE(save(Function::aut, descriptor[ckaIdField], issued), 0);
    failNothing();
    const auto before = objectNames();
    const auto renewed = descriptorOf(read(), certificateBytes(issued));
    for (const std::string& id : {std::string(), renewed[ckaIdField]}) {
        expectRefused(save(Function::aut, id, issued), fault::linkAmbiguous);
        EXPECT_THAT(lastError().text, HasSubstr("scegliere dall'elenco"));
    }
    EXPECT_EQ(objectNames(), before);
    install("aut", descriptor, issued);
    EXPECT_EQ(save(Function::aut, "", issued), 0) << lastError().text;
    EXPECT_EQ(lookAtToken(cardPin).objects, 3u);
}

TEST_F(IssuedChoice, holderWithALongName_otherHoldersCertificateRefusedInARecovery)
{
    makeCard({});
    auto order = orderOf("aut", 0);
    for (int i = 0; i < 40; ++i)
        order.subject.push_back({"2.5.4.11", std::string(60, 'x')});
    addCertificate(order);
    const auto descriptor = read().aut.at(0);
    issueFor("aut", descriptor);
    destroy(CKO_CERTIFICATE, "AUT0");
    auto other = orderOf("aut", 3);
    other.subject = {{"2.5.4.3", "Altra Persona"}, {"2.5.4.5", "ZZZZZZ00A00A000A"}};
    expectRefused(save(Function::aut, "", pemOf(certify("AUT1", other))),
                  fault::issuedForOtherHolder);
    EXPECT_EQ(save(Function::aut, "", pemOf(certify("AUT1", order))), 0) << lastError().text;
}

TEST_F(IssuedChoice, linkToACertificateOfAnotherKind_removesAndHidesNothing)
{
    makeCard({"pra"});
    const auto pra = certificates().at(0).certificate;
    auto crafted = orderOf("aut", 5);
    crafted.id = contents::newLink(pra);
    addKey(crafted);
    EXPECT_EQ(save(Function::aut, "", pemOf(certify("AUT5", crafted))), 0) << lastError().text;
    EXPECT_TRUE(lookAtToken(cardPin).works(pra.der()));
    const ReadResult card = read();
    EXPECT_THAT(card.pra, SizeIs(1));
    EXPECT_THAT(card.aut, SizeIs(1));
    // Repeated, it is the stored certificate whose link is followed.
    EXPECT_EQ(save(Function::aut, "", pemOf(certify("AUT5", crafted))), -1);
    EXPECT_TRUE(lookAtToken(cardPin).works(pra.der()));
}

TEST_F(IssuedChoice, supersededByOneThatIsReplacedItself_neverListedAgain)
{
    makeCard({});
    addCertificate(decryptingOrderOf("aut", 0));
    const auto oldest = read().aut.at(0);
    issueFor("aut", oldest);
    // The authority leaves the decryption out this time.
    auto without = orderOf("aut", 0);
    without.validity = softcard::validityFor(60);
    const std::string middle = pemOf(certify("AUT1", without));
    install("aut", oldest, middle);
    ASSERT_THAT(serials(read().aut), ElementsAre(serialOf(middle)));
    const auto descriptor = read().aut.at(0);
    const std::string newest = issueFor("aut", descriptor);
    install("aut", descriptor, newest);
    const ReadResult card = read();
    EXPECT_THAT(serials(card.aut), ElementsAre(serialOf(newest)));
    EXPECT_EQ(card.pendingAut, 0);
    EXPECT_EQ(count(CKO_PRIVATE_KEY, "AUT0"), 1u);
    EXPECT_EQ(count(CKO_PRIVATE_KEY, "AUT1"), 0u);
    const auto settled = objectNames();
    install("aut", descriptor, newest);
    EXPECT_EQ(objectNames(), settled);
}

TEST_F(IssuedChoice, writtenOneWhoseKeyDoesNotSign_takenBackByTheRepetition)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const std::string issued = issueFor("aut", descriptor);
    const auto before = objectNames();
    ASSERT_EQ(labels().result, 0);
    proxy().corruptsSignatures = true;
    failDestroy(1);
    EXPECT_NE(saveCertificate(Function::aut, cardPin, descriptor[ckaIdField], "AUT1", issued), 0);
    failNothing();
    EXPECT_TRUE(lookAtToken(cardPin).holds(certificateBytes(issued)));
    expectRefused(saveCertificate(Function::aut, cardPin, descriptor[ckaIdField], "AUT1", issued),
                  fault::keyDoesNotSign);
    EXPECT_EQ(objectNames(), before);
    EXPECT_THAT(serials(read().aut), ElementsAre(descriptor[serialField]));
}

TEST_F(IssuedChoice, writtenOneWhoseKeyDoesNotSignAndOldKeyGone_staysOnTheCard)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const std::string issued = issueFor("aut", descriptor);
    failDestroy(2);
    EXPECT_NE(save(Function::aut, descriptor[ckaIdField], issued), 0);
    failNothing();
    ASSERT_EQ(labels().result, 0);
    proxy().corruptsSignatures = true;
    expectRefused(saveCertificate(Function::aut, cardPin, descriptor[ckaIdField], "AUT1", issued),
                  fault::keyDoesNotSign);
    proxy().corruptsSignatures = false;
    EXPECT_TRUE(lookAtToken(cardPin).works(certificateBytes(issued)));
    install("aut", descriptor, issued);
    EXPECT_EQ(lookAtToken(cardPin).objects, 3u);
}

}  // namespace
}  // namespace cardlibs_test
