// The free-label call: the right labels, and no reading of a card that is as it was.

#include "tests/cardlibs/proxy_fixture.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

class FreeLabel : public ProxyFixture {
protected:
    void addData(const std::string& label)
    {
        onCard([&](cardlibs::token::Session& session) {
            cardlibs::token::Template object;
            object.number(CKA_CLASS, CKO_DATA)
                .flag(CKA_TOKEN, true)
                .flag(CKA_PRIVATE, false)
                .text(CKA_LABEL, label);
            session.create(object);
        });
    }

    void removeLabelled(const std::string& label)
    {
        onCard([&](cardlibs::token::Session& session) {
            cardlibs::token::Template sought;
            sought.text(CKA_LABEL, label);
            for (const CK_OBJECT_HANDLE handle : session.find(sought))
                session.destroy(handle);
        });
    }

    // What the call answers, and whether it read any object for that.
    void expectLabels(const std::string& authentication, const std::string& signature,
                      bool readsCard)
    {
        proxy().calls.clear();
        const LabelResult given = findFreeLabels(m_reader, cardPin);
        EXPECT_EQ(given.result, 0) << lastError().text;
        EXPECT_EQ(given.aut, authentication);
        EXPECT_EQ(given.pra, signature);
        EXPECT_EQ(proxy().count("C_GetAttributeValue") > 0, readsCard);
        EXPECT_EQ(proxy().count("C_Login"), 1u);
    }

    std::string m_reader;
};

TEST_F(FreeLabel, noReadingBefore_cardIsRead)
{
    makeCard({"aut", "pra"});
    m_reader = reader();
    expectLabels("AUT1", "DS1", true);
}

TEST_F(FreeLabel, cardAsAtTheInventory_isNotReadAgain)
{
    makeCard({"aut", "pra"});
    m_reader = reader();
    ASSERT_EQ(read().result, 0);
    expectLabels("AUT1", "DS1", false);
    expectLabels("AUT1", "DS1", false);
}

TEST_F(FreeLabel, changedByAnotherProgram_cardIsReadAgain)
{
    struct Row {
        const char* name;
        std::function<void()> change;
        const char* authentication;
        const char* signature;
    };
    const Row rows[] = {
        {"certificate added", [&] { addCertificate("aut", 1); }, "AUT2", "DS1"},
        {"pending pair added", [&] { addKey(pairWithoutCertificate("DS3", 3)); }, "AUT1", "DS3"},
        {"as many objects, one with the label",
         [&] {
             removeLabelled("note");
             addData("AUT1");
         },
         "AUT2", "DS1"},
        {"certificate and keys gone", [&] { removeLabelled("DS0"); }, "AUT1", "DS0"},
    };
    makeCard({"aut", "pra"});
    addData("note");
    m_reader = reader();
    keepCard();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        restoreCard();
        ASSERT_EQ(read().result, 0);
        row.change();
        expectLabels(row.authentication, row.signature, true);
    }
}

TEST_F(FreeLabel, pendingPairThatWasReadIsGone_itsLabelIsFree)
{
    makeCard({"aut", "pra"});
    addKey(pairWithoutCertificate("AUT4", 4));
    m_reader = reader();
    ASSERT_EQ(read().autLabel, "AUT4");
    removeLabelled("AUT4");
    expectLabels("AUT1", "DS1", true);
}

TEST_F(FreeLabel, afterARequest_newPairIsKnownWithoutReading)
{
    makeCard({"aut", "pra"});
    m_reader = reader();
    const ReadResult card = read();
    ASSERT_EQ(request(Function::pra, card.pra.at(0)).result, 0) << lastError().text;
    expectLabels("AUT1", "DS1", false);
    EXPECT_EQ(read().praLabel, "DS1");
    // The pair waits under the label, and a request for another certificate gets the next one.
    ASSERT_EQ(request(Function::aut, card.aut.at(0)).result, 0) << lastError().text;
    expectLabels("AUT1", "DS1", false);
}

TEST_F(FreeLabel, afterARequestUnderAHigherLabel_lowerPendingPairStaysTheAnswer)
{
    makeCard({"aut", "pra"});
    addKey(pairWithoutCertificate("AUT1", 1));
    m_reader = reader();
    const ReadResult card = read();
    ASSERT_EQ(card.autLabel, "AUT1");
    ASSERT_EQ(request(Function::aut, card.aut.at(0), "AUT2").result, 0) << lastError().text;
    expectLabels("AUT1", "DS1", false);
}

TEST_F(FreeLabel, afterARequestUnderALowerLabel_newPairIsTheAnswer)
{
    makeCard({"aut", "pra"});
    addKey(pairWithoutCertificate("AUT3", 3));
    m_reader = reader();
    const ReadResult card = read();
    ASSERT_EQ(card.autLabel, "AUT3");
    ASSERT_EQ(request(Function::aut, card.aut.at(0), "AUT2").result, 0) << lastError().text;
    expectLabels("AUT2", "DS1", false);
}

TEST_F(FreeLabel, afterAnInstallation_cardIsReadAgain)
{
    makeCard({"aut", "pra"});
    m_reader = reader();
    const ReadResult card = read();
    const RequestResult made = request(Function::aut, card.aut.at(0));
    ASSERT_EQ(made.result, 0) << lastError().text;
    ASSERT_EQ(save(Function::aut, card.aut.at(0).at(ckaIdField), issue(made.pem)), 0)
        << lastError().text;
    expectLabels("AUT0", "DS1", true);
}

TEST_F(FreeLabel, otherCardUnderTheSameReaderName_isRead)
{
    makeCard({"aut", "pra"});
    // What no name may hold shows as "_": two cards, one name.
    unsigned char serialNumber = 1;
    proxy().changeTokenInfo = [&](CK_TOKEN_INFO& info) { info.serialNumber[0] = serialNumber; };
    std::string name = reader();
    const std::size_t start = name.rfind(' ') + 1;
    name.at(start) = '_';
    m_reader = name;
    ASSERT_EQ(readCerts(m_reader, cardPin).result, 0) << lastError().text;
    expectLabels("AUT1", "DS1", false);
    serialNumber = 2;
    expectLabels("AUT1", "DS1", true);
}

TEST_F(FreeLabel, cardAsBeforeButWrongPin_isRefused)
{
    makeCard({"aut", "pra"});
    m_reader = reader();
    ASSERT_EQ(read().result, 0);
    EXPECT_NE(findFreeLabels(m_reader, wrongPin).result, 0);
    EXPECT_EQ(lastError().number, CKR_PIN_INCORRECT);
}

}  // namespace
}  // namespace cardlibs_test
