#include "tests/support/eligibility_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using testing::HasSubstr;

namespace {

std::string paragraph(const std::string& text)
{
    return "[*]: " + text + "\n\n";
}

class PraEligibility : public EligibilityTest {
protected:
    static void setSerialNumber(const std::string& serial)
    {
        write(szSerialNumber, sizeof szSerialNumber, std::string(17, '\0'));
        write(szSerialNumber, sizeof szSerialNumber, serial);
    }
};

TEST_F(PraEligibility, explicitText_isLoggedAndNotKept)
{
    Descriptor descriptor = renewable(pra());
    descriptor.explicitText = "Una nota";
    check(pra(), descriptor);
    EXPECT_THAT(log(), HasSubstr("[*]: CkaidCert PRA: C0FFEE\n[*]: explicitTEXT: Una nota\n"));
    EXPECT_EQ(record(pra(), 1), renewableRecord(pra(), descriptor, holder));
}

TEST_F(PraEligibility, pendingKey_isKeptOnlyAsASignatureLabel)
{
    struct Row {
        const char* pending;
        bool isKept;
    };
    for (const Row& row : {Row{"DS1", true}, Row{"ds1", true}, Row{"xDs:2", true},
                           Row{"AUT1", false}, Row{"D S", false}, Row{"", false}}) {
        SCOPED_TRACE(row.pending);
        Descriptor descriptor = renewable(pra());
        descriptor.pending = row.pending;
        check(pra(), descriptor);
        PlainRecord expected = renewableRecord(pra(), descriptor, holder);
        expected["pendingKey"] = row.isKept ? row.pending : "";
        EXPECT_EQ(record(pra(), 1), expected);
        EXPECT_EQ(newLog(),
                  block(pra(), 0, descriptor, holder) +
                      (row.isKept ? paragraph(std::string("Chiave Pending PRA: ") + row.pending)
                                  : std::string()) +
                      paragraph("Certificato PRA. IUT: " + descriptor.iut));
    }
}

TEST_F(PraEligibility, pendingKeyOfASkippedCertificate_staysAsDelivered)
{
    Descriptor descriptor = renewable(pra());
    descriptor.pending = "AUT:1";
    for (const char* issuer : {"castelvane", "Another CA"}) {
        SCOPED_TRACE(issuer);
        descriptor.issuer = issuer;
        descriptor.notAfter = inDays(-1);
        check(pra(), descriptor);
        EXPECT_EQ(record(pra(), 1)["pendingKey"], "AUT:1");
    }
    newLog();
    descriptor.issuer = "castelvane";
    descriptor.pending = "DS:1";
    check(pra(), descriptor);
    EXPECT_EQ(newLog(), block(pra(), 0, descriptor, holder) +
                            paragraph("Chiave Pending PRA: DS:1") +
                            paragraph("PRA scaduto. Certificato saltato."));
}

TEST_F(PraEligibility, fieldCountAndMarker_decideThePendingKey)
{
    struct Row {
        int fields;
        bool marker;
        const char* pendingKey;
        const char* thirdPart;
        const char* cardCode;
    };
    const Row table[] = {
        {11, false, "DS:9", "DS9", "CARDCODE"},
        {11, true, "DS:9", "DS9", "CARDCODE"},
        {10, false, "DS:9", "DS9", ""},
        {10, true, "DS7", "DS9", ""},
        {9, false, "", "", ""},
        {9, true, "DS7", "", ""},
        {8, false, "", "", ""},
        {8, true, "DS7", "", ""},
    };
    setSerialNumber("1301000000000042");
    write(pendingLabel_PRA, sizeof pendingLabel_PRA, "DS7");
    Descriptor descriptor = renewable(pra());
    descriptor.subject = "2.5.4.3=N";
    descriptor.pending = "DS:9";
    const std::string text = signatureText(descriptor);
    const std::string marker = "CkSpace_1301000000000042";
    for (const bool marked : {false, true}) {
        if (marked)
            placeMarker(marker);
        for (const Row& row : table) {
            if (row.marker != marked)
                continue;
            for (const std::string& notAfter : {inDays(30), inDays(300)}) {
                SCOPED_TRACE(std::to_string(row.fields) + (marked ? " marked " : " ") + notAfter);
                Descriptor dated = descriptor;
                dated.notAfter = notAfter;
                checkAll(pra(), {firstFields(signatureText(dated), row.fields)});
                PlainRecord found = record(pra(), 1);
                EXPECT_EQ(found["pendingKey"], row.pendingKey);
                EXPECT_EQ(found["fiscalCode"], row.cardCode);
                EXPECT_EQ(found["RENEW_CERTID"], std::string(row.cardCode) + ":" + descriptor.iut +
                                                     ":" + row.thirdPart + ":" + descriptor.serial);
            }
        }
    }
}

TEST_F(PraEligibility, markedLabelThatIsNoSignatureLabel_isDroppedWhenRenewable)
{
    setSerialNumber("1301");
    placeMarker("CkSpace_1301");
    write(pendingLabel_PRA, sizeof pendingLabel_PRA, "AUT7");
    Descriptor descriptor = renewable(pra());
    checkAll(pra(), {firstFields(signatureText(descriptor), 10)});
    EXPECT_EQ(record(pra(), 1)["pendingKey"], "");
    descriptor.notAfter = inDays(-1);
    checkAll(pra(), {firstFields(signatureText(descriptor), 10)});
    EXPECT_EQ(record(pra(), 1)["pendingKey"], "AUT7");
}

TEST_F(PraEligibility, markerOfAnotherCard_meansNothing)
{
    placeMarker("CkSpace_1301");
    write(pendingLabel_PRA, sizeof pendingLabel_PRA, "DS7");
    const Descriptor descriptor = renewable(pra());
    for (const char* serial : {"13010", "130", "", "1302"}) {
        SCOPED_TRACE(serial);
        setSerialNumber(serial);
        checkAll(pra(), {firstFields(signatureText(descriptor), 9)});
        EXPECT_EQ(record(pra(), 1)["pendingKey"], "");
    }
}

TEST_F(PraEligibility, noSerialNumber_markerNameEndsAfterTheUnderscore)
{
    placeMarker("CkSpace_");
    write(pendingLabel_PRA, sizeof pendingLabel_PRA, "DS7");
    checkAll(pra(), {firstFields(signatureText(renewable(pra())), 9)});
    EXPECT_EQ(record(pra(), 1)["pendingKey"], "DS7");
}

TEST_F(PraEligibility, titleInTheSubject_makesItARoleCertificate)
{
    struct Row {
        const char* condition;
        const char* title;
        const char* issuer;
        const char* label;
        const char* logged;
    };
    const char* const signatureLabel = "certificato di SOTTOSCRIZIONE (FIRMA DIGITALE)";
    const char* const roleLabel = "certificato di RUOLO (FIRMA DIGITALE)";
    const Row table[] = {
        {"no title", "", "castelvane", signatureLabel, "Certificato PRA. IUT: "},
        {"no title, third authority", "", "PELLAROUX", signatureLabel, "Certificato PRA. IUT: "},
        {"title", ",2.5.4.12=Avvocato", "castelvane", roleLabel, "Certificato RUOLO. IUT: "},
        {"title, third authority", ",2.5.4.12=Avvocato", "pellaroux", roleLabel,
         "Certificato RUOLO. IUT: "},
        {"title, second authority", ",2.5.4.12=Avvocato", "NorBelta", signatureLabel,
         "Certificato RUOLO. IUT: "},
        {"title, both names", ",2.5.4.12=Avvocato", "castelvane for norbelta", signatureLabel,
         "Certificato RUOLO. IUT: "},
        {"nearly a title", ",2.5.4.121=Avvocato", "castelvane", signatureLabel,
         "Certificato PRA. IUT: "},
        {"empty title", ",2.5.4.12=", "castelvane", roleLabel, "Certificato RUOLO. IUT: "},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        Descriptor descriptor = renewable(pra());
        descriptor.subject += row.title;
        descriptor.issuer = row.issuer;
        check(pra(), descriptor);
        PlainRecord expected = certificateRecord(descriptor, holder);
        expected["CERTIFICATO DA RINNOVARE"] = row.label;
        expected["Certificato"] = "Certificato di SOTTOSCRIZIONE";
        EXPECT_EQ(record(pra(), 1), expected);
        EXPECT_EQ(newLog(),
                  block(pra(), 0, descriptor, holder) + paragraph(row.logged + descriptor.iut));
    }
}

TEST_F(PraEligibility, roleOfTheFederation_organisationIsRewritten)
{
    struct Row {
        const char* condition;
        std::string before;
        std::string after;
    };
    const std::string head = "2.5.4.5=IT:" + holder + ",2.5.4.12=Presidente";
    const Row table[] = {
        {"organisation in the middle", head + ",2.5.4.10=Squadra,2.5.4.3=N",
         head + ",2.5.4.10=GRATAX/013823210062.5.4.3=N"},
        {"empty organisation", head + ",2.5.4.10=,2.5.4.3=N",
         head + ",2.5.4.10=GRATAX/013823210062.5.4.3=N"},
        {"digits and a dot in the value", head + ",2.5.4.10=Squadra 2.0,2.5.4.3=N",
         head + ",2.5.4.10=GRATAX/013823210062.0,2.5.4.3=N"},
        {"two organisations", head + ",2.5.4.10=A,2.5.4.10=B,2.5.4.3=N",
         head + ",2.5.4.10=GRATAX/013823210062.5.4.10=B,2.5.4.3=N"},
        {"no organisation", head + ",2.5.4.3=N", head + ",2.5.4.3=N"},
        {"nothing behind the organisation", head + ",2.5.4.10=Squadra", head + ",2.5.4.10=Squadra"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        Descriptor descriptor = renewable(pra());
        descriptor.iut = "2026130170001";
        descriptor.subject = row.before;
        check(pra(), descriptor);
        PlainRecord expected = certificateRecord(descriptor, holder);
        expected["subjectDN"] = row.after;
        expected["CERTIFICATO DA RINNOVARE"] = "certificato di RUOLO (FIRMA DIGITALE)";
        expected["Certificato"] = "Certificato di SOTTOSCRIZIONE";
        EXPECT_EQ(record(pra(), 1), expected);
        EXPECT_EQ(newLog(), block(pra(), 0, descriptor, holder) +
                                paragraph("Certificato RUOLO. IUT: 2026130170001") +
                                paragraph("Certificato FIPAV. Rinnovo abilitato."));
    }
}

TEST_F(PraEligibility, federationCodeElsewhere_subjectStays)
{
    struct Row {
        const char* condition;
        const char* iut;
        const char* title;
        int days;
    };
    const Row table[] = {
        {"no title", "2026130170001", "", 30},
        {"code at another place", "130170", ",2.5.4.12=Presidente", 30},
        {"another code", "2026130171001", ",2.5.4.12=Presidente", 30},
        {"skipped", "2026130170001", ",2.5.4.12=Presidente", 300},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        Descriptor descriptor = renewable(pra());
        descriptor.iut = row.iut;
        descriptor.subject =
            "2.5.4.5=IT:" + holder + row.title + std::string(",2.5.4.10=Squadra,2.5.4.3=N");
        descriptor.notAfter = inDays(row.days);
        check(pra(), descriptor);
        EXPECT_EQ(record(pra(), 1)["subjectDN"], descriptor.subject);
        EXPECT_EQ(newLog().find("FIPAV"), std::string::npos);
    }
}

}  // namespace
