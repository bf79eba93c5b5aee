#include "tests/support/renewal_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

using namespace support;

namespace {

const std::string freeLabelCall = called("rinnovo_Card_findFreeCKAID", "Lettore", "12345678");

std::string searchLine(const std::string& certId)
{
    return "[*]: Tarvelo_gen_p10_by_certid Ricerca del CERT_ID: " + certId + "\n";
}

std::string labelSearchLines(const std::string& reader, int result)
{
    return "[*]: Tarvelo_gen_p10_by_certid Rinnovo assumo chiave pending assente! \n"
           "[*]: Tarvelo_gen_p10_by_certid Calcolo il Free-CKAID PRA:\n"
           "[*]: Tarvelo_gen_p10_by_certid Reader = " +
           reader +
           "\n"
           "[*]: Funzione rinnovo_Card_findFreeCKAID: INIZIO\n"
           "[*]: Funzione rinnovo_Card_findFreeCKAID: FINE - ReturnCode= " +
           std::to_string(result) + "\n";
}

const std::string success = "[*]: Funzione Tarvelo_gen_p10_by_certid: terminata con Successo!\n";
const std::string failure = "[*]: Funzione Tarvelo_gen_p10_by_certid: terminata con Errore..\n";

class GenerateRequest : public RenewalTest {
protected:
    void SetUp() override
    {
        RenewalTest::SetUp();
        buffer.fill(untouched);
    }

    void TearDown() override
    {
        EXPECT_TRUE(std::all_of(buffer.begin() + requestBufferSize, buffer.end(),
                                [](char byte) { return byte == untouched; }));
        RenewalTest::TearDown();
    }

    bool isBufferUntouched() const
    {
        return std::all_of(buffer.begin(), buffer.end(),
                           [](char byte) { return byte == untouched; });
    }

    int generate(const char* certId = "ID")
    {
        return Tarvelo_gen_p10_by_certid(&context, QString::fromUtf8(certId), buffer.data());
    }

    static constexpr char untouched = 'u';
    std::array<char, requestBufferSize + 16> buffer{};
};

struct KindRow {
    const char* rowKey;
    const char* function;
    const char* label;     // handed to the card
    const char* labelAut;  // left in the variable
};

const KindRow kindTable[] = {
    {"AUT: 1", "rinnovo_Card_createCertRequestAUT", "AUT4", "AUT4"},
    {"AUT: 0", "rinnovo_Card_createCertRequestAUT", "AUT4", "AUT4"},
    {"PRA: 1", "rinnovo_Card_createCertRequestPRA", "DS3", "AUT4"},
    {"PRA: 0", "rinnovo_Card_createCertRequestPRA", "DS3", "AUT4"},
    {"CNS: 1", "rinnovo_Card_createCertRequestAUT", "CNS0", "CNS0"},
    {"CNS: 0", "rinnovo_Card_createCertRequestAUT", "CNS0", "CNS0"},
    {"", "rinnovo_Card_createCertRequestAUT", "AUT4", "AUT4"},
    {"pra: 1", "rinnovo_Card_createCertRequestAUT", "AUT4", "AUT4"},
    {"cns: 1", "rinnovo_Card_createCertRequestAUT", "AUT4", "AUT4"},
    {"Pra", "rinnovo_Card_createCertRequestAUT", "AUT4", "AUT4"},
    {"CNS and PRA", "rinnovo_Card_createCertRequestPRA", "DS3", "AUT4"},
    {"xPRAx", "rinnovo_Card_createCertRequestPRA", "DS3", "AUT4"},
    {"xCNSx", "rinnovo_Card_createCertRequestAUT", "CNS0", "CNS0"},
};

TEST_F(GenerateRequest, everyKind_cardMakesTheRequest)
{
    for (const KindRow& row : kindTable) {
        SCOPED_TRACE(row.rowKey);
        removeRows();
        addRecord(QString::fromLatin1(row.rowKey), QStringLiteral("ID"));
        startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
        rememberContext();
        buffer.fill(untouched);
        setScript({
            call("rinnovo_Card_findFreeCKAID").writing({"DS3", "AUT4"}),
            call(row.function).writing({"-----BEGIN CERTIFICATE REQUEST-----\n"}),
        });
        EXPECT_EQ(generate(), 1);
        EXPECT_EQ(calls(), (std::vector<std::string>{
                               freeLabelCall,
                               called(row.function, row.label, "12345678", "C0FFEE",
                                      "2.5.4.3=Anna Verdi", false),
                           }));
        EXPECT_STREQ(buffer.data(), "-----BEGIN CERTIFICATE REQUEST-----\n");
        EXPECT_EQ(log(), searchLine("ID") + labelSearchLines("Lettore", 0) +
                             labelLines("DS3", "AUT4") + success);
        EXPECT_STREQ(pendingLabel_PRA, "DS3");
        EXPECT_STREQ(pendingLabel_AUT, row.labelAut);
        EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

TEST_F(GenerateRequest, requestFillsTheBuffer_allOfItArrives)
{
    addRecord(QStringLiteral("AUT: 1"), QStringLiteral("ID"));
    const std::string request(requestBufferSize - 1, 'r');
    setScript({call("rinnovo_Card_findFreeCKAID").writing({"DS3", "AUT4"}),
               call("rinnovo_Card_createCertRequestAUT").writing({request})});
    EXPECT_EQ(generate(), 1);
    EXPECT_EQ(std::string(buffer.data()), request);
}

TEST_F(GenerateRequest, cardIsAsked_variablesAndBufferAreReady)
{
    addRecord(QStringLiteral("CNS: 1"), QStringLiteral("ID"));
    write(pendingLabel_PRA, 32, std::string(32, 'p'));
    write(pendingLabel_AUT, 32, std::string(32, 'a'));
    bool bufferUntouchedBefore = false;
    std::string labelAut;
    std::string onDisk = "not looked at";
    setScript({
        call("rinnovo_Card_findFreeCKAID")
            .observing([&] {
                bufferUntouchedBefore = isBufferUntouched();
                onDisk = logOnDisk();
            })
            .writing({"DS3", "A" + std::string(30, 'x')}),
        call("rinnovo_Card_createCertRequestAUT").observing([&] {
            labelAut.assign(pendingLabel_AUT, sizeof pendingLabel_AUT);
        }),
    });
    EXPECT_EQ(generate(), 1);
    EXPECT_TRUE(bufferUntouchedBefore);
    EXPECT_EQ(onDisk, "");
    EXPECT_EQ(labelAut, "CNS0" + std::string(28, '\0'));
    EXPECT_STREQ(pendingLabel_AUT, "CNS0");
    EXPECT_EQ(log(), searchLine("ID") + labelSearchLines("Lettore", 0) +
                         labelLines("DS3", "A" + std::string(30, 'x')) + success);
}

TEST_F(GenerateRequest, recordWithoutItsValues_emptyTextsAreHandedOver)
{
    context[QStringLiteral("AUT: 1")] = {{renew_context::renewalId, QStringLiteral("ID")}};
    rememberContext();
    setScript({call("rinnovo_Card_findFreeCKAID").writing({"DS3", "AUT4"}),
               call("rinnovo_Card_createCertRequestAUT")});
    EXPECT_EQ(generate(), 1);
    EXPECT_EQ(calls()[1],
              called("rinnovo_Card_createCertRequestAUT", "AUT4", "12345678", "", "", false));
}

TEST_F(GenerateRequest, textsNotAscii_areHandedOverAndLoggedAsUtf8)
{
    const char* const id = "C\xc3\xa0:\xe2\x82\xac";
    context[QStringLiteral("PRA: 1")] = {
        {renew_context::renewalId, QString::fromUtf8(id)},
        {renew_context::certificateCkaId, QString::fromUtf8("\xc3\xa8")},
        {renew_context::subjectDN, QString::fromUtf8("2.5.4.3=Nicol\xc3\xb2")}};
    setting(renew_context::reader, QString::fromUtf8("L\xc3\xac"));
    setting(renew_context::pin, QString::fromUtf8("p\xc3\xb9"));
    rememberContext();
    setScript({call("rinnovo_Card_findFreeCKAID").writing({"DS\xc3\xa0", "AUT\xc3\xa8"}),
               call("rinnovo_Card_createCertRequestPRA")});
    EXPECT_EQ(generate(id), 1);
    EXPECT_EQ(calls(), (std::vector<std::string>{
                           called("rinnovo_Card_findFreeCKAID", "L\xc3\xac", "p\xc3\xb9"),
                           called("rinnovo_Card_createCertRequestPRA", "DS\xc3\xa0", "p\xc3\xb9",
                                  "\xc3\xa8", "2.5.4.3=Nicol\xc3\xb2", false)}));
    EXPECT_EQ(log(), searchLine(id) + labelSearchLines("L\xc3\xac", 0) +
                         labelLines("DS\xc3\xa0", "AUT\xc3\xa8") + success);
}

TEST_F(GenerateRequest, identifierUnknown_twoLinesAndNothingElse)
{
    addRecord(QStringLiteral("AUT: 1"), QStringLiteral("ID"));
    addRecoveryRecord(QStringLiteral("PRA: 0"));
    write(pendingLabel_PRA, 32, "OLD");
    std::string expectedLog;
    for (const char* certId : {"id", "ID ", "", "other"}) {
        SCOPED_TRACE(certId);
        EXPECT_EQ(generate(certId), 0);
        expectedLog += searchLine(certId) + "[*]: Tarvelo_gen_p10_by_certid Cert_ID non trovato\n";
        EXPECT_EQ(log(), expectedLog);
    }
    EXPECT_TRUE(isBufferUntouched());
    EXPECT_STREQ(pendingLabel_PRA, "OLD");
    EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    EXPECT_EQ(calls(), std::vector<std::string>{});
}

TEST_F(GenerateRequest, settingsIncomplete_cardIsNotTouched)
{
    struct Row {
        const char* condition;
        bool settings;
        const char* reader;
        const char* pin;
        const char* line;
    };
    const Row table[] = {
        {"no settings", false, nullptr, nullptr, "[*]: Nessun lettore settato...\n"},
        {"no reader", true, nullptr, "12345678", "[*]: Nessun lettore settato...\n"},
        {"empty reader", true, "", "12345678", "[*]: Nessun lettore settato...\n"},
        {"no PIN", true, "Lettore", nullptr, "[*]: Nessun PIN settato...\n"},
        {"empty PIN", true, "Lettore", "", "[*]: Nessun PIN settato...\n"},
    };
    write(pendingLabel_PRA, 32, "OLD");
    std::string expectedLog;
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        if (row.settings) {
            setting(renew_context::reader, QString::fromUtf8(row.reader));
            setting(renew_context::pin, QString::fromUtf8(row.pin));
        } else {
            context.remove(renew_context::settingsRow);
        }
        addRecord(QStringLiteral("PRA: 1"), QStringLiteral("ID"));
        EXPECT_EQ(generate(), 0);
        expectedLog += searchLine("ID") + row.line;
        EXPECT_EQ(log(), expectedLog);
    }
    EXPECT_TRUE(isBufferUntouched());
    EXPECT_STREQ(pendingLabel_PRA, "OLD");
    EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
}

TEST_F(GenerateRequest, labelsMissing_everyKindNeedsBoth)
{
    struct Row {
        const char* condition;
        int result;
        const char* labelPra;
        const char* labelAut;
        const char* missing;
    };
    const Row table[] = {
        {"call fails", 1, "", "", "pendingLabel_PRA"},
        {"call fails with labels", -7, "DS3", "AUT4", "pendingLabel_PRA"},
        {"no signature label", 0, "", "AUT4", "pendingLabel_PRA"},
        {"neither label", 0, "", "", "pendingLabel_PRA"},
        {"no authentication label", 0, "DS3", "", "pendingLabel_AUT"},
    };
    for (const char* rowKey : {"AUT: 1", "PRA: 1", "CNS: 1"}) {
        removeRows();
        addRecord(QString::fromLatin1(rowKey), QStringLiteral("ID"));
        for (const Row& row : table) {
            SCOPED_TRACE(std::string(rowKey) + ", " + row.condition);
            startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
            setScript({call("rinnovo_Card_findFreeCKAID")
                           .returning(row.result)
                           .writing({row.labelPra, row.labelAut})});
            EXPECT_EQ(generate(), 0);
            // The last line ends with a flush.
            EXPECT_EQ(logOnDisk(),
                      searchLine("ID") + labelSearchLines("Lettore", row.result) +
                          "[*]: FATAL!!!Tarvelo_gen_p10_by_certid rinnovo_Card_findFreeCKAID:" +
                          row.missing + "\n");
            EXPECT_TRUE(isBufferUntouched());
            EXPECT_STREQ(pendingLabel_PRA, row.labelPra);
            EXPECT_STREQ(pendingLabel_AUT, row.labelAut);
            EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
        }
    }
}

TEST_F(GenerateRequest, cardFails_lastErrorTextIsReported)
{
    struct Row {
        const char* rowKey;
        const char* function;
        int result;
        int textResult;
        std::string text;
        std::string message;
    };
    const Row table[] = {
        {"AUT: 1", "rinnovo_Card_createCertRequestAUT", 1, 0, "Memoria piena", "Memoria piena"},
        {"PRA: 1", "rinnovo_Card_createCertRequestPRA", -1, 0, "gi\xc3\xa0", "gi\xc3\xa0"},
        {"CNS: 1", "rinnovo_Card_createCertRequestAUT", 0xA0, 1, "ignored", ""},
        {"AUT: 1", "rinnovo_Card_createCertRequestAUT", 5, 0, std::string("ab\0cd", 5), "ab"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.text);
        startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
        removeRows();
        addRecord(QString::fromLatin1(row.rowKey), QStringLiteral("ID"));
        buffer.fill(untouched);
        ErrorMessage = QStringLiteral("from before");
        setScript({
            call("rinnovo_Card_findFreeCKAID").writing({"DS3", "AUT4"}),
            call(row.function).returning(row.result).writing({"half a request"}),
            call("mvLastError").returning(row.textResult).writing({row.text}),
            call("mvLastErrno").returning(9),
        });
        EXPECT_EQ(generate(), 0);
        EXPECT_EQ(log(), searchLine("ID") + labelSearchLines("Lettore", 0) +
                             labelLines("DS3", "AUT4") + failure);
        EXPECT_EQ(ErrorMessage.toStdString(), row.message);
        EXPECT_STREQ(buffer.data(), "half a request");
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

TEST_F(GenerateRequest, secondCall_computesTheLabelsAnew)
{
    addRecord(QStringLiteral("AUT: 1"), QStringLiteral("ID"));
    setScript({
        call("rinnovo_Card_findFreeCKAID").writing({"DS3", "AUT4"}),
        call("rinnovo_Card_createCertRequestAUT").writing({"a long first request"}),
        call("rinnovo_Card_findFreeCKAID").writing({"DS5", "AUT6"}),
        call("rinnovo_Card_createCertRequestAUT").writing({"second"}),
    });
    EXPECT_EQ(generate(), 1);
    EXPECT_EQ(generate(), 1);
    EXPECT_STREQ(buffer.data(), "second");
    EXPECT_STREQ(pendingLabel_AUT, "AUT6");
    EXPECT_EQ(calls()[3], called("rinnovo_Card_createCertRequestAUT", "AUT6", "12345678", "C0FFEE",
                                 "2.5.4.3=Anna Verdi", false));
}

}  // namespace
