#include "tests/support/inventory_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string completed =
    "[*]: Lettura certificati e riempimento Tabella Certificati completate.\n\n";

class FillScObjects : public InventoryTest {
protected:
    // Which kinds' checks wrote their log, in order.
    std::string checksInLog()
    {
        std::string kinds;
        const std::string text = log();
        const std::string mark = "[*]: Controllo pendig ";
        for (std::size_t at = text.find(mark); at != std::string::npos;
             at = text.find(mark, at + 1))
            kinds += text.substr(at + mark.size(), 6) + " ";
        return kinds;
    }
};

TEST_F(FillScObjects, eightCharactersNotAscii_areHandedOverAsUtf8)
{
    setting(renew_context::pin, QString::fromUtf8("1234567\xc3\xa0"));
    setting(renew_context::reader, QString::fromUtf8("L\xc3\xa8"));
    setScript({call("rinnovo_Card_readCerts").returning(100)});
    EXPECT_EQ(fill_sc_objects(&context), -88);
    EXPECT_EQ(calls(),
              (std::vector<std::string>{called("rinnovo_Card_readCerts", "L\xc3\xa8",
                                               "1234567\xc3\xa0", 3, applicationFolder())}));
}

TEST_F(FillScObjects, readerMissing_emptyNameIsHandedOver)
{
    setting(renew_context::reader, QString());
    setScript({call("rinnovo_Card_readCerts").returning(100)});
    EXPECT_EQ(fill_sc_objects(&context), -88);
    EXPECT_EQ(calls()[0], called("rinnovo_Card_readCerts", "", "12345678", 3, applicationFolder()));
}

TEST_F(FillScObjects, threeKinds_checksRunInOrderAndTheOutcomeIsCleared)
{
    CardContents card;
    card.cnsStore = {"1", foreign("C1")};
    card.praStore = {"2", foreign("P1"), foreign("P2")};
    card.autStore = {"1", foreign("A1")};
    card.pendingCns = 1;
    card.pendingKeyPra = -2;
    card.pendingKeyAut = 3;
    card.labelPra = "DS3";
    card.labelAut = "AUT2";
    card.cnsExpiry = "20300101";
    setOutcomeFromBefore();
    setScript({call("rinnovo_Card_readCerts").reading(card)});
    EXPECT_EQ(fill_sc_objects(&context), inventory_result::completed);
    EXPECT_EQ(calls(), (std::vector<std::string>{called("rinnovo_Card_readCerts", "Lettore",
                                                        "12345678", 3, applicationFolder())}));
    EXPECT_THAT(log(), StartsWith(readLines(0, card) + countLines(1, 2, 1, 4)));
    EXPECT_THAT(log(), EndsWith(completed));
    EXPECT_EQ(checksInLog(), "CNS: 0 PRA: 0 PRA: 1 AUT: 0 ");
    EXPECT_EQ(numCertCNS, 1);
    EXPECT_EQ(numCertsPRA, 2);
    EXPECT_EQ(numCertsAUT, 1);
    EXPECT_EQ(CertificateNumbers, 4);
    EXPECT_EQ(rows, 4);
    EXPECT_EQ(pending_CNS, 1);
    EXPECT_EQ(pendingKey_PRA, -2);
    EXPECT_EQ(pendingKey_AUT, 3);
    EXPECT_STREQ(pendingLabel_PRA, "DS3");
    EXPECT_STREQ(pendingLabel_AUT, "AUT2");
    EXPECT_STREQ(expiryCNSdate, "20300101");
    EXPECT_STREQ(CertPRAStore[2], foreign("P2").c_str());
    EXPECT_EQ(ErrorOccurred, 0);
    EXPECT_EQ(ErrorCode, 0);
    EXPECT_EQ(ErrorMessage, QString());
    const PlainContext read = plain(context);
    for (const char* row : {"CNS: 1", "PRA: 1", "PRA: 2", "AUT: 1", "SettingsApplicazione"})
        EXPECT_EQ(read.count(row), 1U) << row;
    EXPECT_EQ(read.size(), 5U);
}

TEST_F(FillScObjects, oneAuthenticationCertificate_wholeTranscript)
{
    Descriptor descriptor;
    descriptor.notAfter = inDays(30);
    descriptor.pending = "AUT:5";
    CardContents card;
    card.cnsStore = {"0"};
    card.praStore = {"0"};
    card.autStore = {"1", authenticationText(descriptor)};
    card.labelPra = "DS1";
    card.labelAut = "AUT5";
    setScript({call("rinnovo_Card_readCerts").reading(card)});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    const std::string separator = "[*]: " + std::string(67, '-') + "\n";
    EXPECT_EQ(log(),
              readLines(0, card) + countLines(0, 0, 1, 1) + separator +
                  "[*]: Controllo pendig AUT: 0\n"
                  "[*]: subjectDN: 2.5.4.6=IT,2.5.4.5=ABCDEF12G34H567I,2.5.4.3=Anna Verdi\n"
                  "[*]: issuerDN: 2.5.4.6=IT,2.5.4.10=Castelvane,2.5.4.3=Castelvane Demo CA\n"
                  "[*]: policy: 1.3.76.16.2.1\n"
                  "[*]: serialCert: 0A1B2C\n"
                  "[*]: notBefore: 20240101000000\n"
                  "[*]: notAfter: " +
                  inDays(30) +
                  "\n"
                  "[*]: CkaidCert PRA: C0FFEE\n"
                  "[*]: Fiscal Code: ABCDEF12G34H567I\n" +
                  separator +
                  "[*]: Chiave Pending AUT: AUT:5\n\n"
                  "[*]: Certificato AUT. IUT: 2026500000001\n\n" +
                  completed);
    PlainRecord record = certificateRecord(descriptor, "ABCDEF12G34H567I");
    record["CERTIFICATO DA RINNOVARE"] = "Certificato di AUTENTICAZIONE";
    EXPECT_EQ(plain(context)["AUT: 1"], record);
}

TEST_F(FillScObjects, everyCertificateSkipped_errorMessageIsEmptyAllTheSame)
{
    CardContents card;
    card.autStore = {"1", foreign("A1")};
    card.labelPra = "DS1";
    setScript({call("rinnovo_Card_readCerts").reading(card)});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    EXPECT_EQ(ErrorMessage, QString());
    EXPECT_EQ(plain(context)["AUT: 1"]["MODALITA' RINNOVO"], "Non rinnovabile");
}

TEST_F(FillScObjects, resultMinus500_isSuccess)
{
    CardContents card;
    card.autStore = {"1", foreign("A1")};
    card.labelPra = "DS1";
    setScript({call("rinnovo_Card_readCerts").returning(-500).reading(card)});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    EXPECT_THAT(log(), StartsWith(readLines(-500, card) + countLines(0, 0, 1, 1)));
    EXPECT_EQ(ErrorCode, 0);
}

TEST_F(FillScObjects, pendingKeysWithoutCertificates_giveOneMoreRow)
{
    struct Row {
        const char* condition;
        const char* counts[3];  // CNS, PRA, AUT
        int pending[3];
        int rows;
        std::vector<std::string> recovery;
    };
    const Row table[] = {
        {"authentication key alone", {"0", "0", "0"}, {0, 0, 1}, 1, {"AUT: 0"}},
        {"signature key alone", {"0", "0", "0"}, {0, 1, 0}, 1, {"PRA: 0"}},
        {"CNS key alone", {"0", "0", "0"}, {1, 0, 0}, 1, {"CNS: 0"}},
        {"all three alone", {"0", "0", "0"}, {1, 1, 1}, 1, {"AUT: 0", "CNS: 0", "PRA: 0"}},
        {"key of a kind that has a certificate", {"0", "0", "1"}, {0, 0, 1}, 1, {}},
        {"key of another kind", {"0", "0", "1"}, {0, 5, 0}, 2, {"PRA: 0"}},
        {"negative flag", {"0", "0", "1"}, {-1, 0, 0}, 2, {"CNS: 0"}},
        {"counts missing", {"", "", ""}, {0, 0, 1}, 1, {"AUT: 0"}},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
        context.remove(QStringLiteral("AUT: 0"));
        context.remove(QStringLiteral("PRA: 0"));
        context.remove(QStringLiteral("CNS: 0"));
        CardContents card;
        card.cnsStore = {row.counts[0]};
        card.praStore = {row.counts[1]};
        card.autStore = {row.counts[2], foreign("A1")};
        card.pendingCns = row.pending[0];
        card.pendingKeyPra = row.pending[1];
        card.pendingKeyAut = row.pending[2];
        card.labelPra = "DS0";
        card.labelAut = "AUT0";
        setScript({call("rinnovo_Card_readCerts").reading(card)});
        EXPECT_EQ(fill_sc_objects(&context), 0);
        EXPECT_EQ(rows, row.rows);
        EXPECT_THAT(log(), HasSubstr("Numero di righe nella Tabella Certificati: " +
                                     std::to_string(row.rows) + "\n\n"));
        std::vector<std::string> recovery;
        for (const auto& entry : plain(context)) {
            if (entry.second.count("AZIONE") != 0)
                recovery.push_back(entry.first);
        }
        EXPECT_EQ(recovery, row.recovery);
        EXPECT_EQ(ErrorOccurred, 0);
    }
}

TEST_F(FillScObjects, onlyAPendingKey_wholeTranscript)
{
    CardContents card;
    card.cnsStore = {"0"};
    card.praStore = {"0"};
    card.autStore = {"0"};
    card.pendingKeyAut = 1;
    card.labelPra = "DS0";
    card.labelAut = "AUT3";
    setScript({call("rinnovo_Card_readCerts").reading(card)});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    EXPECT_EQ(CertificateNumbers, 0);
    EXPECT_EQ(log(), readLines(0, card) + countLines(0, 0, 0, 1) +
                         "[*]: Caso: presenza pendingKey_AUT ed assenza Certificatio AUT: \n"
                         "[*]: verra' tentato il recupero del certificato da file system..\n\n" +
                         completed);
    EXPECT_EQ(plain(context)["AUT: 0"],
              (PlainRecord{{"CERTIFICATO DA RINNOVARE", "Pending AUTENTICAZIONE"},
                           {"MODALITA' RINNOVO", "GRATUITO"},
                           {"AZIONE", "Recupero_Cert"},
                           {"pendingKey", "AUT3"},
                           {"Certificato", "Pending Key SOTTOSCRIZIONE"}}));
}

TEST_F(FillScObjects, countTexts_areReadByTheirLeadingDigits)
{
    struct Row {
        const char* text;
        int count;
    };
    for (const Row& row : {Row{"2", 2}, Row{"02", 2}, Row{"2abc", 2}, Row{"", 0}, Row{"abc", 0},
                           Row{"-3", 0}, Row{"0", 0}}) {
        SCOPED_TRACE(row.text);
        CardContents card;
        card.cnsStore = {"1", foreign("C1")};
        card.autStore = {row.text, foreign("A1"), foreign("A2"), foreign("A3")};
        card.labelPra = "DS1";
        setScript({call("rinnovo_Card_readCerts").reading(card)});
        EXPECT_EQ(fill_sc_objects(&context), 0);
        EXPECT_EQ(numCertsAUT, row.count);
        EXPECT_EQ(CertificateNumbers, row.count + 1);
        EXPECT_EQ(rows, row.count + 1);
    }
}

TEST_F(FillScObjects, secondInventory_startsAfreshButKeepsTheRowsItDoesNotWrite)
{
    CardContents first;
    first.praStore = {"2", foreign("P1"), foreign("P2")};
    first.labelPra = "DS1";
    first.labelAut = "AUT1";
    first.cnsExpiry = "20300101";
    setScript({call("rinnovo_Card_readCerts").reading(first)});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    char* const oldBuffers[] = {CertCNSStore[0], CertCNSStore[1], CertPRAStore[0], CertPRAStore[1],
                                CertPRAStore[4], CertAUTStore[0], CertAUTStore[4]};

    CardContents second;
    second.praStore = {"1", foreign("P3")};
    second.labelPra = "DS2";
    setScript({call("rinnovo_Card_readCerts").reading(second)});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    EXPECT_EQ(plain(context)["PRA: 1"]["serialCert"], "P3");
    EXPECT_EQ(plain(context)["PRA: 2"]["serialCert"], "P2");
    EXPECT_STREQ(pendingLabel_PRA, "DS2");
    EXPECT_STREQ(pendingLabel_AUT, "");
    EXPECT_STREQ(expiryCNSdate, "");
    char* const newBuffers[] = {CertCNSStore[0], CertCNSStore[1], CertPRAStore[0], CertPRAStore[1],
                                CertPRAStore[4], CertAUTStore[0], CertAUTStore[4]};
    for (std::size_t i = 0; i < 7; ++i)
        EXPECT_NE(oldBuffers[i], newBuffers[i]) << i;
    // The earlier buffers stay readable for the life of the process.
    EXPECT_STREQ(oldBuffers[2], "2");
    EXPECT_EQ(oldBuffers[3], foreign("P1"));
}

TEST_F(FillScObjects, textsNotAscii_areReadAsUtf8)
{
    Descriptor descriptor;
    descriptor.subject = "2.5.4.3=Nicol\xc3\xb2 \xe2\x82\xac";
    descriptor.issuer = "2.5.4.3=Citt\xc3\xa0";
    CardContents card;
    card.autStore = {"1", authenticationText(descriptor)};
    card.pendingKeyPra = 1;
    card.labelPra = "DS\xc3\xa0";
    card.labelAut = "AUT\xc3\xa8";
    setScript({call("rinnovo_Card_readCerts").reading(card)});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    EXPECT_EQ(plain(context)["AUT: 1"]["subjectDN"], descriptor.subject);
    EXPECT_EQ(plain(context)["PRA: 0"]["pendingKey"], "DS\xc3\xa0");
    EXPECT_THAT(log(), StartsWith(readLines(0, card)));
    EXPECT_THAT(log(), HasSubstr("[*]: subjectDN: 2.5.4.3=Nicol\xc3\xb2 \xe2\x82\xac\n"
                                 "[*]: issuerDN: 2.5.4.3=Citt\xc3\xa0\n"));
}

}  // namespace
