#include "tests/support/inventory_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using testing::StartsWith;

namespace {

const std::string noFreeLabel =
    "[*]: Un momentaneo problema tecnico impedisce il rinnovo del certificato.\n"
    "Attendere qualche istante, quindi riavviarla per riprendere il rinnovo.";

class FillScObjectsFailure : public InventoryTest {};

TEST_F(FillScObjectsFailure, pinNotEightCharacters_cardIsNotTouched)
{
    struct Row {
        const char* condition;
        const char* pin;  // null: no key
    };
    const Row table[] = {{"seven", "1234567"},
                         {"nine", "123456789"},
                         {"empty", ""},
                         {"none", nullptr},
                         {"eight bytes, seven characters", "123456\xc3\xa0"}};
    setOutcomeFromBefore();
    rows = 5;
    numCertsAUT = 4;
    pendingLabel_PRA[0] = 'D';
    CertAUTStore[0] = lib;
    std::string expectedLog;
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        setting(renew_context::pin, QString::fromUtf8(row.pin));
        EXPECT_EQ(fill_sc_objects(&context), inventory_result::pinLength);
        expectedLog += begun() + "[*]: Pin non settato correttamente\n";
        EXPECT_EQ(logOnDisk(), expectedLog);
    }
    context.clear();
    EXPECT_EQ(fill_sc_objects(&context), -89);
    EXPECT_TRUE(context.isEmpty());
    EXPECT_EQ(ErrorOccurred, 7);
    EXPECT_EQ(ErrorCode, 8);
    EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    EXPECT_EQ(rows, 5);
    EXPECT_EQ(numCertsAUT, 4);
    EXPECT_STREQ(pendingLabel_PRA, "D");
    EXPECT_EQ(CertAUTStore[0], lib);
    EXPECT_EQ(CertPRAStore[0], nullptr);
    EXPECT_EQ(calls(), std::vector<std::string>{});
}

TEST_F(FillScObjectsFailure, unsupportedCard_isReported)
{
    CardContents card;
    card.autStore = {"3"};
    card.pendingKeyAut = 1;
    card.labelAut = "AUT1";
    rows = 9;
    numCertsAUT = 8;
    setScript({call("rinnovo_Card_readCerts").returning(100).reading(card)});
    const PlainContext before = plain(context);
    EXPECT_EQ(fill_sc_objects(&context), inventory_result::cardNotSupported);
    EXPECT_EQ(static_cast<int>(inventory_result::cardNotSupported), -88);
    EXPECT_EQ(ErrorMessage, QStringLiteral("Carta NON supportata"));
    EXPECT_EQ(ErrorOccurred, 1);
    EXPECT_EQ(ErrorCode, inventory_error::cardNotSupported);
    EXPECT_EQ(static_cast<int>(inventory_error::cardNotSupported), -100);
    EXPECT_EQ(logOnDisk(), readLines(100, card));
    EXPECT_EQ(rows, 9);
    EXPECT_EQ(numCertsAUT, 8);
    EXPECT_EQ(plain(context), before);
}

TEST_F(FillScObjectsFailure, cardError_lastErrorTextIsReported)
{
    struct Row {
        int result;
        int textResult;
        std::string text;
        std::string message;
    };
    const Row table[] = {
        {1, 0, "Carta estratta", "Carta estratta"},
        {-1, 0, "gi\xc3\xa0 letta", "gi\xc3\xa0 letta"},
        {101, 1, "ignored", ""},
        {-499, 0, "", ""},
        {-501, 0, std::string(254, 'e'), std::string(254, 'e')},
        {0xA0, 0, std::string("ab\0cd", 5), "ab"},
    };
    const PlainContext before = plain(context);
    rows = 9;
    std::string expectedLog;
    for (const Row& row : table) {
        SCOPED_TRACE(row.result);
        setOutcomeFromBefore();
        setScript({call("rinnovo_Card_readCerts").returning(row.result),
                   call("mvLastError").returning(row.textResult).writing({row.text}),
                   call("mvLastErrno").returning(3)});
        EXPECT_EQ(fill_sc_objects(&context), inventory_result::cardError);
        EXPECT_EQ(ErrorMessage.toStdString(), row.message);
        EXPECT_EQ(ErrorOccurred, 1);
        EXPECT_EQ(ErrorCode, inventory_error::cardError);
        EXPECT_EQ(rows, 9);
        EXPECT_EQ(plain(context), before);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
        expectedLog += readLines(row.result, {}) +
                       "[*]: Si e' verificato il seguente errore: " + row.message + "\n";
        EXPECT_EQ(log(), expectedLog);
    }
    EXPECT_EQ(static_cast<int>(inventory_result::cardError), -86);
    EXPECT_EQ(static_cast<int>(inventory_error::cardError), -1000);
}

TEST_F(FillScObjectsFailure, signatureLabelMissing_freeLabelsAreSought)
{
    CardContents card;
    card.autStore = {"1", foreign("A1")};
    card.labelAut = "AUT7";
    std::string onDisk;
    setScript(
        {call("rinnovo_Card_readCerts").reading(card), call("rinnovo_Card_findFreeCKAID")
                                                           .observing([&] { onDisk = logOnDisk(); })
                                                           .writing({"DS4", "AUT4"})});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    EXPECT_EQ(calls()[1], called("rinnovo_Card_findFreeCKAID", "Lettore", "12345678"));
    EXPECT_EQ(onDisk, readLines(0, card));
    EXPECT_THAT(log(), StartsWith(readLines(0, card) + freeLabelLines("DS4", "AUT4", 0) +
                                  countLines(0, 0, 1, 1)));
    EXPECT_STREQ(pendingLabel_PRA, "DS4");
    EXPECT_STREQ(pendingLabel_AUT, "AUT4");
}

TEST_F(FillScObjectsFailure, onlyTheAuthenticationLabelMissing_noLabelIsSought)
{
    CardContents card;
    card.autStore = {"1", foreign("A1")};
    card.labelPra = "DS1";
    setScript({call("rinnovo_Card_readCerts").reading(card)});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    EXPECT_STREQ(pendingLabel_AUT, "");
}

TEST_F(FillScObjectsFailure, freeAuthenticationLabelEmpty_isAccepted)
{
    CardContents card;
    card.autStore = {"1", foreign("A1")};
    setScript({call("rinnovo_Card_readCerts").reading(card),
               call("rinnovo_Card_findFreeCKAID").writing({"DS4", ""})});
    EXPECT_EQ(fill_sc_objects(&context), 0);
}

TEST_F(FillScObjectsFailure, noFreeLabel_outcomeVariablesStay)
{
    struct Row {
        const char* condition;
        int result;
        const char* labelPra;
        const char* labelAut;
    };
    const Row table[] = {{"call fails", 5, "", ""},
                         {"call fails with labels", -1, "DS1", "AUT1"},
                         {"no signature label", 0, "", "AUT1"},
                         {"neither", 0, "", ""}};
    CardContents card;
    card.autStore = {"1", foreign("A1")};
    const PlainContext before = plain(context);
    rows = 9;
    numCertsAUT = 8;
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
        setOutcomeFromBefore();
        setScript({call("rinnovo_Card_readCerts").reading(card),
                   call("rinnovo_Card_findFreeCKAID")
                       .returning(row.result)
                       .writing({row.labelPra, row.labelAut})});
        EXPECT_EQ(fill_sc_objects(&context), inventory_result::noFreeKeyLabel);
        EXPECT_EQ(log(), readLines(0, card) +
                             freeLabelLines(row.labelPra, row.labelAut, row.result) + noFreeLabel);
        EXPECT_EQ(ErrorOccurred, 7);
        EXPECT_EQ(ErrorCode, 8);
        EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
        EXPECT_EQ(rows, 9);
        EXPECT_EQ(numCertsAUT, 8);
        EXPECT_EQ(plain(context), before);
        EXPECT_STREQ(pendingLabel_PRA, row.labelPra);
        EXPECT_STREQ(pendingLabel_AUT, row.labelAut);
    }
    EXPECT_EQ(static_cast<int>(inventory_result::noFreeKeyLabel), -85);
}

TEST_F(FillScObjectsFailure, nothingOnTheCard_isReported)
{
    CardContents card;
    card.cnsStore = {"0"};
    card.praStore = {"0"};
    card.autStore = {"0"};
    card.labelPra = "DS0";
    ErrorMessage = QStringLiteral("from before");
    setScript({call("rinnovo_Card_readCerts").reading(card)});
    EXPECT_EQ(fill_sc_objects(&context), inventory_result::nothingOnCard);
    EXPECT_EQ(static_cast<int>(inventory_result::nothingOnCard), -84);
    EXPECT_EQ(ErrorOccurred, 1);
    EXPECT_EQ(ErrorCode, inventory_error::nothingOnCard);
    EXPECT_EQ(static_cast<int>(inventory_error::nothingOnCard), -1001);
    EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    EXPECT_EQ(rows, 0);
    EXPECT_EQ(log(), readLines(0, card) + countLines(0, 0, 0, 0) +
                         "[*]: Nessuna riga nella Tabella Certificati\n");
    EXPECT_EQ(plain(context).size(), 1U);
}

}  // namespace
