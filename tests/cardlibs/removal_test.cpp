// What a renewal takes off the card, and what it never does.

#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/crafted_card.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

using cardlibs::Bytes;
using softcard::KeyType;

class Removal : public CraftedCard {
protected:
    // A foreign key in the place of that of the only AUT certificate, known by its CKA_ID alone.
    void replaceKeyByAForeignOne(bool publicKeyStays)
    {
        const Bytes id = certificates().at(0).id;
        destroy(CKO_PRIVATE_KEY, "AUT0");
        if (!publicKeyStays)
            destroy(CKO_PUBLIC_KEY, "AUT0");
        auto foreign = orderOf("aut", 9);
        foreign.label = "ssh";
        foreign.id = id;
        addKey(foreign);
        destroy(CKO_PUBLIC_KEY, "ssh");
    }
};

TEST_F(Removal, foreignKeyWithTheIdentifier_neverRemoved)
{
    for (const bool publicKeyStays : {false, true}) {
        SCOPED_TRACE(publicKeyStays);
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({"aut"});
        const auto descriptor = read().aut.at(0);
        const std::string issued = issueFor("aut", descriptor);
        replaceKeyByAForeignOne(publicKeyStays);
        install("aut", descriptor, issued);
        EXPECT_EQ(count(CKO_PRIVATE_KEY, "ssh"), 1u);
        const TokenLook token = lookAtToken(cardPin);
        EXPECT_TRUE(token.works(certificateBytes(issued)));
        EXPECT_THAT(serials(read().aut), ElementsAre(serialOf(issued)));
    }
}

TEST_F(Removal, foreignKeyThatWantsThePinEachTime_neverRemoved)
{
    makeCard({"aut"});
    proxy().wantsPinEachTime = true;
    const auto descriptor = read().aut.at(0);
    const std::string issued = issueFor("aut", descriptor);
    replaceKeyByAForeignOne(false);
    install("aut", descriptor, issued);
    EXPECT_EQ(count(CKO_PRIVATE_KEY, "ssh"), 1u);
    EXPECT_TRUE(lookAtToken(cardPin).works(certificateBytes(issued)));
    EXPECT_THAT(serials(read().aut), ElementsAre(serialOf(issued)));
}

TEST_F(Removal, hiddenKeyKnownByItsCertificateAlone_removedOnceProven)
{
    for (const bool pinEachTime : {false, true}) {
        SCOPED_TRACE(pinEachTime);
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({"aut"});
        proxy().wantsPinEachTime = pinEachTime;
        destroy(CKO_PUBLIC_KEY, "AUT0");
        const auto descriptor = read().aut.at(0);
        const std::string issued = issueFor("aut", descriptor);
        install("aut", descriptor, issued);
        const TokenLook token = lookAtToken(cardPin);
        EXPECT_TRUE(token.works(certificateBytes(issued)));
        EXPECT_EQ(token.objects, 3u);
    }
}

TEST_F(Removal, noKeyUsageInTheCertificate_pairStaysToDecrypt)
{
    for (const KeyType keyType : {KeyType::rsa2048, KeyType::p256}) {
        SCOPED_TRACE(keyTypeName(keyType));
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({});
        auto order = orderOf("aut", 0, keyType);
        order.profile.keyUsage.clear();
        order.profile.extendedKeyUsage.clear();
        const Bytes old = addCertificate(order);
        const auto descriptor = read().aut.at(0);
        const std::string issued = issueFor("aut", descriptor);
        install("aut", descriptor, issued);
        EXPECT_TRUE(lookAtToken(cardPin).works(old));
        EXPECT_THAT(serials(read().aut), ElementsAre(serialOf(issued)));
    }
}

TEST_F(Removal, otherCertificateOfTheKeyWithPaddingBehindIt_keyStays)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const Bytes other = certify("AUT0", orderOf("aut", 7));
    Bytes padded = other;
    padded.push_back(0);
    addCertificateObject("altro", {4}, padded, {0x30, 0});
    const std::string issued = issueFor("aut", descriptor);
    install("aut", descriptor, issued);
    EXPECT_EQ(count(CKO_PRIVATE_KEY, "AUT0"), 1u);
    EXPECT_EQ(count(CKO_CERTIFICATE, "altro"), 1u);
    EXPECT_THAT(read().aut, SizeIs(2));
}

TEST_F(Removal, unreadableCertificateWithIdentifierOrSubjectOfTheKey_keyStays)
{
    for (const bool bySubject : {false, true}) {
        SCOPED_TRACE(bySubject);
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({"aut"});
        const auto object = certificates().at(0);
        const auto descriptor = read().aut.at(0);
        addCertificateObject("illeggibile", bySubject ? Bytes{4} : object.id, {0x30, 0x03, 1, 2, 3},
                             bySubject ? object.certificate.subject() : Bytes{0x30, 0});
        const std::string issued = issueFor("aut", descriptor);
        install("aut", descriptor, issued);
        EXPECT_EQ(count(CKO_PRIVATE_KEY, "AUT0"), 1u);
        EXPECT_EQ(count(CKO_PUBLIC_KEY, "AUT0"), 1u);
        EXPECT_EQ(read().pendingAut, 0);
    }
}

TEST_F(Removal, objectsThatTheCardDroppedItself_countAsRemoved)
{
    for (const std::size_t removal : {1u, 2u, 3u}) {
        SCOPED_TRACE(removal);
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({"aut"});
        const auto descriptor = read().aut.at(0);
        const std::string issued = issueFor("aut", descriptor);
        failDestroy(removal, Fault::afterwards, CKR_OBJECT_HANDLE_INVALID);
        install("aut", descriptor, issued);
        failNothing();
        EXPECT_EQ(lookAtToken(cardPin).objects, 3u);
    }
}

TEST_F(Removal, certificateStoredTwice_bothCopiesGoOrBothAreSuperseded)
{
    for (const bool decrypts : {false, true}) {
        SCOPED_TRACE(decrypts);
        folder().clear();
        folder().prepare();
        startProxy();
        makeCard({});
        addCertificate(decrypts ? decryptingOrderOf("aut", 0) : orderOf("aut", 0));
        const auto object = certificates().at(0);
        onCard([&](cardlibs::token::Session& session) {
            softcard::addCertificate(session, object.label, object.id, object.certificate.der());
            softcard::addCertificate(session, "altro", {7, 7}, object.certificate.der());
        });
        const ReadResult card = read();
        ASSERT_THAT(card.aut, SizeIs(1));
        EXPECT_EQ(card.aut[0][ckaIdField], cardlibs::hexadecimal(object.id));
        const std::string issued = issueFor("aut", card.aut[0]);
        install("aut", card.aut[0], issued);
        EXPECT_THAT(serials(read().aut), ElementsAre(serialOf(issued)));
        EXPECT_EQ(lookAtToken(cardPin).holds(object.certificate.der()), decrypts);
        install("aut", card.aut[0], issued);
    }
}

}  // namespace
}  // namespace cardlibs_test
