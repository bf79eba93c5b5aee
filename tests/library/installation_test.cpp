#include "tests/support/renewal_fixture.h"

#include <gtest/gtest.h>

#include <vector>

using namespace support;

namespace {

const std::string freeLabelCall = called("rinnovo_Card_findFreeCKAID", "Lettore", "12345678");

std::string searchLine(const std::string& certId)
{
    return "[*]: Tarvelo_install_cert Ricerca del CERT_ID: " + certId + "\n";
}

std::string labelSearchLines(const std::string& reader, int result)
{
    return "[*]: Rinnovo assumo chiave pending assente! \n"
           "[*]: Calcolo il Free-CKAID per PRA e AUT:\n"
           "[*]: Reader = " +
           reader +
           "\n"
           "[*]: Funzione rinnovo_Card_findFreeCKAID: INIZIO\n"
           "[*]: Funzione rinnovo_Card_findFreeCKAID: FINE - ReturnCode= " +
           std::to_string(result) + "\n";
}

const char* const notFound = "[*]: Tarvelo_install_cert Cert_ID non trovato\n";
const char* const rescueFound = "[*]: Tarvelo_install_cert Rescue cert TROVATO!\n";
const char* const rescueNotFound = "[*]: Tarvelo_install_cert Rescue cert non trovato\n";
const char* const success = "[*]: Funzione Tarvelo_install_cert: terminata con Successo!\n";
const char* const failure = "[*]: Funzione Tarvelo_install_cert: terminata con Errore..\n";

class InstallCertificate : public RenewalTest {
protected:
    void TearDown() override
    {
        EXPECT_EQ(certificate, unchanged);
        RenewalTest::TearDown();
    }

    int install(const char* certId = "ID")
    {
        return Tarvelo_install_cert(&context, QString::fromUtf8(certId), certificate.data());
    }

    // Starts the log afresh with this one record in the context.
    void oneRecord(const char* rowKey)
    {
        startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
        removeRows();
        addRecord(QString::fromLatin1(rowKey), QStringLiteral("ID"));
    }

    const std::string unchanged = "CERT \xff\xe0 \"not UTF-8\"\n";
    std::string certificate = unchanged;
};

struct KindRow {
    const char* rowKey;
    const char* function;
    const char* label;     // handed to the card
    const char* labelAut;  // left in the variable
};

const KindRow kindTable[] = {
    {"AUT: 1", "rinnovo_Card_saveCertAUT", "AUT4", "AUT4"},
    {"PRA: 1", "rinnovo_Card_saveCertPRA", "DS3", "AUT4"},
    {"CNS: 1", "rinnovo_Card_saveCertAUT", "CNS0", "CNS0"},
    {"AUT: 0", "rinnovo_Card_saveCertAUT", "AUT4", "AUT4"},
    {"PRA: 0", "rinnovo_Card_saveCertPRA", "DS3", "AUT4"},
    {"CNS: 0", "rinnovo_Card_saveCertAUT", "CNS0", "CNS0"},
    {"", "rinnovo_Card_saveCertAUT", "AUT4", "AUT4"},
    {"pra: 1", "rinnovo_Card_saveCertAUT", "AUT4", "AUT4"},
    {"cns: 1", "rinnovo_Card_saveCertAUT", "AUT4", "AUT4"},
    {"CNS and PRA", "rinnovo_Card_saveCertPRA", "DS3", "AUT4"},
};

TEST_F(InstallCertificate, everyKind_cardSavesTheCertificate)
{
    for (const KindRow& row : kindTable) {
        SCOPED_TRACE(row.rowKey);
        oneRecord(row.rowKey);
        setScript(
            {call("rinnovo_Card_findFreeCKAID").writing({"DS3", "AUT4"}), call(row.function)});
        EXPECT_EQ(install(), 1);
        EXPECT_EQ(calls(), (std::vector<std::string>{freeLabelCall,
                                                     called(row.function, "12345678", "C0FFEE",
                                                            row.label, unchanged, false)}));
        EXPECT_EQ(log(), searchLine("ID") + labelSearchLines("Lettore", 0) +
                             labelLines("DS3", "AUT4") + success);
        EXPECT_STREQ(pendingLabel_PRA, "DS3");
        EXPECT_STREQ(pendingLabel_AUT, row.labelAut);
        EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    }
}

TEST_F(InstallCertificate, identifierUnknown_recoveryRecordIsUsed)
{
    for (const KindRow& row : kindTable) {
        SCOPED_TRACE(row.rowKey);
        startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
        removeRows();
        addRecord(QStringLiteral("AUT: 7"), QStringLiteral("another"));
        addRecoveryRecord(QString::fromLatin1(row.rowKey));
        setScript(
            {call("rinnovo_Card_findFreeCKAID").writing({"DS3", "AUT4"}), call(row.function)});
        EXPECT_EQ(install("unknown"), 1);
        EXPECT_EQ(calls()[1], called(row.function, "12345678", "", row.label, unchanged, false));
        EXPECT_EQ(log(), searchLine("unknown") + notFound + rescueFound +
                             labelSearchLines("Lettore", 0) + labelLines("DS3", "AUT4") + success);
    }
}

TEST_F(InstallCertificate, identifierKnown_recoveryRecordIsNotConsulted)
{
    oneRecord("AUT: 1");
    addRecoveryRecord(QStringLiteral("PRA: 0"));
    setScript({call("rinnovo_Card_findFreeCKAID").writing({"", "AUT4"}),
               call("rinnovo_Card_saveCertAUT")});
    EXPECT_EQ(install(), 1);
    EXPECT_EQ(log(),
              searchLine("ID") + labelSearchLines("Lettore", 0) + labelLines("", "AUT4") + success);
}

TEST_F(InstallCertificate, neitherRecord_threeLinesBeforeAnySettingIsLookedAt)
{
    struct Row {
        const char* condition;
        bool settings;
    };
    for (const Row& row : {Row{"settings complete", true}, Row{"no settings", false}}) {
        SCOPED_TRACE(row.condition);
        oneRecord("AUT: 1");
        if (!row.settings)
            context.remove(renew_context::settingsRow);
        rememberContext();
        write(pendingLabel_PRA, 32, "OLD");
        EXPECT_EQ(install("unknown"), 0);
        EXPECT_EQ(log(), searchLine("unknown") + notFound + rescueNotFound);
        EXPECT_STREQ(pendingLabel_PRA, "OLD");
        EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    }
    EXPECT_EQ(calls(), std::vector<std::string>{});
}

TEST_F(InstallCertificate, settingsIncomplete_cardIsNotTouched)
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
    for (const bool isRecovery : {false, true}) {
        for (const Row& row : table) {
            SCOPED_TRACE(std::string(row.condition) + (isRecovery ? ", recovery" : ""));
            startSession();
            removeRows();
            if (isRecovery)
                addRecoveryRecord(QStringLiteral("PRA: 0"));
            else
                addRecord(QStringLiteral("PRA: 1"), QStringLiteral("ID"));
            if (row.settings) {
                setting(renew_context::reader, QString::fromUtf8(row.reader));
                setting(renew_context::pin, QString::fromUtf8(row.pin));
            } else {
                context.remove(renew_context::settingsRow);
            }
            rememberContext();
            EXPECT_EQ(install(), 0);
            EXPECT_EQ(log(),
                      searchLine("ID") +
                          (isRecovery ? std::string(notFound) + rescueFound : std::string()) +
                          row.line);
        }
    }
    EXPECT_STREQ(pendingLabel_PRA, "OLD");
    EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    EXPECT_EQ(calls(), std::vector<std::string>{});
}

TEST_F(InstallCertificate, labelOfTheKind_decides)
{
    struct Row {
        const char* rowKey;
        int result;
        const char* labelPra;
        const char* labelAut;
        const char* missing;   // null: the certificate is saved
        const char* function;  // that saves it
        const char* label;
    };
    const Row table[] = {
        {"PRA: 1", 0, "DS3", "", nullptr, "rinnovo_Card_saveCertPRA", "DS3"},
        {"AUT: 1", 0, "", "AUT4", nullptr, "rinnovo_Card_saveCertAUT", "AUT4"},
        {"CNS: 1", 0, "", "AUT4", nullptr, "rinnovo_Card_saveCertAUT", "CNS0"},
        {"PRA: 1", 0, "", "AUT4", "pendingLabel_PRA", nullptr, nullptr},
        {"AUT: 1", 0, "DS3", "", "pendingLabel_AUT", nullptr, nullptr},
        {"CNS: 1", 0, "DS3", "", "pendingLabel_AUT", nullptr, nullptr},
        {"PRA: 1", 1, "DS3", "AUT4", "pendingLabel_PRA", nullptr, nullptr},
        {"AUT: 1", -1, "DS3", "AUT4", "pendingLabel_AUT", nullptr, nullptr},
        {"CNS: 1", -12345, "", "", "pendingLabel_AUT", nullptr, nullptr},
        {"", 3, "", "", "pendingLabel_AUT", nullptr, nullptr},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(called(row.rowKey, row.labelPra, row.labelAut));
        oneRecord(row.rowKey);
        std::vector<Step> steps{call("rinnovo_Card_findFreeCKAID")
                                    .returning(row.result)
                                    .writing({row.labelPra, row.labelAut})};
        if (row.function != nullptr)
            steps.push_back(call(row.function));
        setScript(steps);
        EXPECT_EQ(install(), row.missing == nullptr ? 1 : 0);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
        const std::string begun = searchLine("ID") + labelSearchLines("Lettore", row.result);
        if (row.missing != nullptr) {
            // The last line ends with a flush.
            EXPECT_EQ(logOnDisk(),
                      begun + "[*]: FATAL!!!rinnovo_Card_findFreeCKAID:" + row.missing + "\n");
            EXPECT_STREQ(pendingLabel_PRA, row.labelPra);
            EXPECT_STREQ(pendingLabel_AUT, row.labelAut);
        } else {
            EXPECT_EQ(log(), begun + labelLines(row.labelPra, row.labelAut) + success);
            EXPECT_EQ(calls()[1],
                      called(row.function, "12345678", "C0FFEE", row.label, unchanged, false));
        }
        EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    }
}

TEST_F(InstallCertificate, cardIsAsked_variablesAreReady)
{
    oneRecord("CNS: 1");
    write(pendingLabel_PRA, 32, std::string(32, 'p'));
    write(pendingLabel_AUT, 32, std::string(32, 'a'));
    std::string labelAut;
    setScript({
        call("rinnovo_Card_findFreeCKAID").writing({"", std::string(31, 'x')}),
        call("rinnovo_Card_saveCertAUT").observing([&] {
            labelAut.assign(pendingLabel_AUT, sizeof pendingLabel_AUT);
        }),
    });
    EXPECT_EQ(install(), 1);
    EXPECT_EQ(labelAut, "CNS0" + std::string(28, '\0'));
}

TEST_F(InstallCertificate, cardFails_lastErrorTextIsReported)
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
        {"AUT: 1", "rinnovo_Card_saveCertAUT", 1, 0, "Memoria piena", "Memoria piena"},
        {"PRA: 1", "rinnovo_Card_saveCertPRA", -1, 0, "gi\xc3\xa0", "gi\xc3\xa0"},
        {"CNS: 1", "rinnovo_Card_saveCertAUT", 0xA0, 1, "ignored", ""},
        {"PRA: 1", "rinnovo_Card_saveCertPRA", 5, 0, std::string("ab\0cd", 5), "ab"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.text);
        oneRecord(row.rowKey);
        ErrorMessage = QStringLiteral("from before");
        setScript({
            call("rinnovo_Card_findFreeCKAID").writing({"DS3", "AUT4"}),
            call(row.function).returning(row.result),
            call("mvLastError").returning(row.textResult).writing({row.text}),
            call("mvLastErrno").returning(9),
        });
        EXPECT_EQ(install(), 0);
        EXPECT_EQ(log(), searchLine("ID") + labelSearchLines("Lettore", 0) +
                             labelLines("DS3", "AUT4") + failure);
        EXPECT_EQ(ErrorMessage.toStdString(), row.message);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

TEST_F(InstallCertificate, textsNotAscii_areHandedOverAndLoggedAsUtf8)
{
    const char* const id = "C\xc3\xa0:\xe2\x82\xac";
    context[QStringLiteral("AUT: 1")] = {
        {renew_context::renewalId, QString::fromUtf8(id)},
        {renew_context::certificateCkaId, QString::fromUtf8("\xc3\xa8")}};
    setting(renew_context::reader, QString::fromUtf8("L\xc3\xac"));
    setting(renew_context::pin, QString::fromUtf8("p\xc3\xb9"));
    rememberContext();
    setScript({call("rinnovo_Card_findFreeCKAID").writing({"", "AUT\xc3\xa8"}),
               call("rinnovo_Card_saveCertAUT")});
    EXPECT_EQ(install(id), 1);
    EXPECT_EQ(calls(), (std::vector<std::string>{
                           called("rinnovo_Card_findFreeCKAID", "L\xc3\xac", "p\xc3\xb9"),
                           called("rinnovo_Card_saveCertAUT", "p\xc3\xb9", "\xc3\xa8",
                                  "AUT\xc3\xa8", unchanged, false)}));
    EXPECT_EQ(log(), searchLine(id) + labelSearchLines("L\xc3\xac", 0) +
                         labelLines("", "AUT\xc3\xa8") + success);
}

TEST_F(InstallCertificate, emptyCertificate_isHandedOverAllTheSame)
{
    oneRecord("AUT: 1");
    char empty[] = "";
    setScript({call("rinnovo_Card_findFreeCKAID").writing({"", "AUT4"}),
               call("rinnovo_Card_saveCertAUT")});
    EXPECT_EQ(Tarvelo_install_cert(&context, QStringLiteral("ID"), empty), 1);
    EXPECT_EQ(calls()[1],
              called("rinnovo_Card_saveCertAUT", "12345678", "C0FFEE", "AUT4", "", false));
}

}  // namespace
