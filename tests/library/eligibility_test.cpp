// The rules that the three eligibility checks share, on every kind.

#include "tests/support/eligibility_fixture.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

std::string paragraph(const std::string& text)
{
    return "[*]: " + text + "\n\n";
}

class Eligibility : public EligibilityTest {};

TEST_F(Eligibility, noCertificateAndNoKey_contextUntouched)
{
    ErrorMessage = QStringLiteral("from before");
    const PlainContext before = plain(context);
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        run(kind, 0, 0);
        run(kind, 0, -1);
        run(kind, 1, -1);
        EXPECT_TRUE(kind.check(&context, 0, 0, nullptr));
    }
    EXPECT_EQ(plain(context), before);
    EXPECT_EQ(log(), "");
    EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
}

TEST_F(Eligibility, keyWithoutCertificate_givesTheRecoveryRecord)
{
    struct Row {
        const Kind& kind;
        const char* flagName;
        PlainRecord record;  // without the label
        char* label;         // null: the kind has none
    };
    const Row table[] = {
        {aut(),
         "pendingKey_AUT",
         {{"CERTIFICATO DA RINNOVARE", "Pending AUTENTICAZIONE"},
          {"MODALITA' RINNOVO", "GRATUITO"},
          {"AZIONE", "Recupero_Cert"},
          {"Certificato", "Pending Key SOTTOSCRIZIONE"}},
         pendingLabel_AUT},
        {pra(),
         "pendingKey_PRA",
         {{"CERTIFICATO DA RINNOVARE", "Pending SOTTOSCRIZIONE"},
          {"AZIONE", "Recupero_Cert"},
          {"Certificato", "Pending Key SOTTOSCRIZIONE"}},
         pendingLabel_PRA},
        {cns(),
         "pending_CNS",
         {{"CERTIFICATO DA RINNOVARE", "Pending CNS"},
          {"MODALITA' RINNOVO", "GRATUITO"},
          {"AZIONE", "Recupero_Cert"},
          {"Certificato", "CNS0"},
          {"ToPay", "Pending CNS"}},
         nullptr},
    };
    ErrorMessage = QStringLiteral("from before");
    fiscalCode = QStringLiteral("CODE");
    for (const Row& row : table) {
        for (const char* label : {"", "AB7", "1234567890123456789012345678901"}) {
            for (const int flag : {1, -1, 2}) {
                SCOPED_TRACE(row.kind.name + " " + label);
                context.clear();
                context[QString::fromStdString(rowKey(row.kind, 0))]
                       [QStringLiteral("left from before")] = QStringLiteral("x");
                write(pendingLabel_AUT, sizeof pendingLabel_AUT, std::string(32, '\0'));
                write(pendingLabel_PRA, sizeof pendingLabel_PRA, std::string(32, '\0'));
                PlainRecord expected = row.record;
                if (row.label != nullptr) {
                    write(row.label, 32, label);
                    if (*label != '\0')
                        expected["pendingKey"] = label;
                } else {
                    write(pendingLabel_AUT, 32, label);
                }
                run(row.kind, flag, 0);
                EXPECT_EQ(plain(context), (PlainContext{{rowKey(row.kind, 0), expected}}));
                EXPECT_EQ(newLog(),
                          "[*]: Caso: presenza " + std::string(row.flagName) +
                              " ed assenza Certificatio " + row.kind.name +
                              ": \n[*]: verra' tentato il recupero del certificato da file "
                              "system..\n\n");
            }
        }
    }
    EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    EXPECT_EQ(fiscalCode, QStringLiteral("CODE"));
}

TEST_F(Eligibility, keyAndCertificate_noRecoveryRecord)
{
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        context.clear();
        checkAll(kind, {kind.text(renewable(kind))}, 1);
        EXPECT_EQ(plain(context).size(), 1U);
        EXPECT_EQ(plain(context).count(rowKey(kind, 1)), 1U);
    }
}

struct DayRow {
    const char* condition;
    int days;
    char outcome;  // r renewable, n not yet due, e expired
};

const DayRow dayTable[] = {
    {"far ahead", 4000, 'n'},
    {"93 days", 93, 'n'},
    {"92 days", 92, 'n'},
    {"91 days", 91, 'r'},
    {"45 days", 45, 'r'},
    {"tomorrow", 1, 'r'},
    {"today", 0, 'e'},
    {"yesterday", -1, 'e'},
    {"two years ago", -730, 'e'},
    {"a hundred years ago", -36500, 'e'},
};

TEST_F(Eligibility, daysToExpiry_decide)
{
    for (const Kind& kind : allKinds()) {
        for (const DayRow& row : dayTable) {
            SCOPED_TRACE(kind.name + ", " + row.condition);
            context.clear();
            ErrorMessage = QStringLiteral("from before");
            Descriptor descriptor = renewable(kind);
            descriptor.notAfter = inDays(row.days);
            check(kind, descriptor);
            std::string lines = block(kind, 0, descriptor, holder);
            PlainRecord expected;
            QString message;
            if (row.outcome == 'n') {
                expected =
                    skippedRecord(kind, descriptor, holder, "Certificati non ancora in scadenza");
                message = QStringLiteral("Certificati non ancora in scadenza");
                lines += paragraph(kind.notYetDueLine);
            } else if (row.outcome == 'e') {
                expected = skippedRecord(kind, descriptor, holder, kind.expiredLine);
                message = QStringLiteral("Certificati scaduti");
                lines += paragraph(kind.expiredLine);
            } else {
                expected = renewableRecord(kind, descriptor, holder);
                message = QStringLiteral("from before");
                lines += paragraph(kind.renewableLine + descriptor.iut);
            }
            EXPECT_EQ(plain(context), (PlainContext{{rowKey(kind, 1), expected}}));
            EXPECT_EQ(ErrorMessage, message);
            EXPECT_EQ(newLog(), lines);
        }
    }
}

TEST_F(Eligibility, today_isTheLocalDay)
{
    // Local time is one hour ahead of UTC, so these lie on different days there and here.
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        Descriptor descriptor = renewable(kind);
        descriptor.notAfter = "20270115000000";
        setLocalTime(QDateTime(QDate(2027, 1, 15), QTime(0, 20)));
        check(kind, descriptor);
        EXPECT_EQ(record(kind, 1)["MODALITA' RINNOVO"], kind.expiredLine);
        setLocalTime(QDateTime(QDate(2027, 1, 14), QTime(23, 40)));
        check(kind, descriptor);
        EXPECT_EQ(record(kind, 1), renewableRecord(kind, descriptor, holder));
        setLocalTime(QDateTime(QDate(2026, 10, 16), QTime(0, 20)));
        check(kind, descriptor);
        EXPECT_EQ(record(kind, 1), renewableRecord(kind, descriptor, holder));
        setLocalTime(QDateTime(QDate(2026, 10, 15), QTime(23, 40)));
        check(kind, descriptor);
        EXPECT_EQ(record(kind, 1)["MODALITA' RINNOVO"], "Certificati non ancora in scadenza");
    }
}

TEST_F(Eligibility, formOfNotAfter_onlyTheFirstEightCharactersCount)
{
    const std::string day = inDays(30).substr(0, 8);
    struct Row {
        const char* condition;
        std::string notAfter;
        bool isReadable;
    };
    const Row table[] = {
        {"date alone", day, true},
        {"time of day", day + "235959Z", true},
        {"anything behind", day + "x", true},
        {"empty", "", false},
        {"too short", "2030010", false},
        {"not a date", "mai piu'", false},
        {"no such day", "20300230000000", false},
        {"dashes", "2030-01-01", false},
    };
    for (const Kind& kind : allKinds()) {
        for (const Row& row : table) {
            SCOPED_TRACE(kind.name + ", " + row.condition);
            context.clear();
            Descriptor descriptor = renewable(kind);
            descriptor.notAfter = row.notAfter;
            check(kind, descriptor);
            EXPECT_EQ(record(kind, 1),
                      row.isReadable ? renewableRecord(kind, descriptor, holder)
                                     : skippedRecord(kind, descriptor, holder, kind.expiredLine));
        }
    }
}

TEST_F(Eligibility, issuer_decidesByTheNamesItContains)
{
    struct Row {
        const char* issuer;
        bool isAccepted;
        bool isAcceptedForAut;
    };
    const Row table[] = {
        {"2.5.4.10=castelvane", true, true},         {"2.5.4.10=CASTELVANE S.p.A.", true, true},
        {"2.5.4.10=theCastelVaneGroup", true, true}, {"2.5.4.10=norbelta", true, true},
        {"2.5.4.3=NORBELTA CA 3", true, true},       {"2.5.4.10=pellaroux", true, false},
        {"2.5.4.10=PellaRoux", true, false},         {"2.5.4.10=Another CA", false, false},
        {"2.5.4.10=castel vane", false, false},      {"", false, false},
    };
    for (const Kind& kind : allKinds()) {
        for (const Row& row : table) {
            SCOPED_TRACE(kind.name + ", " + row.issuer);
            context.clear();
            ErrorMessage = QStringLiteral("from before");
            Descriptor descriptor = renewable(kind);
            descriptor.issuer = row.issuer;
            descriptor.policy = "1.3.76.39.1.1.2";
            descriptor.pending = "DS:1";
            check(kind, descriptor);
            const bool isAccepted = kind.name == "AUT" ? row.isAcceptedForAut : row.isAccepted;
            PlainRecord found = record(kind, 1);
            EXPECT_EQ(found.count("MODALITA' RINNOVO"), isAccepted ? 0U : 1U);
            EXPECT_EQ(found["issuerDN"], isAccepted ? row.issuer : kind.acceptedAuthorities);
            const std::string lines = newLog();
            if (!isAccepted) {
                EXPECT_EQ(found, skippedRecord(kind, descriptor, holder, "Non rinnovabile"));
                EXPECT_EQ(ErrorMessage, QStringLiteral("Certificati non Rinnovabili"));
                EXPECT_EQ(lines,
                          block(kind, 0, descriptor, holder) + paragraph(kind.notRenewableLine));
            }
        }
    }
}

TEST_F(Eligibility, skipCheckMarker_overridesTheDatesButNotTheIssuer)
{
    placeMarker("skipCheck.rnw");
    for (const Kind& kind : allKinds()) {
        for (const std::string& notAfter :
             {inDays(-730), inDays(0), inDays(92), std::string("mai")}) {
            SCOPED_TRACE(kind.name + ", " + notAfter);
            context.clear();
            ErrorMessage = QStringLiteral("from before");
            Descriptor descriptor = renewable(kind);
            descriptor.notAfter = notAfter;
            check(kind, descriptor);
            EXPECT_EQ(record(kind, 1), renewableRecord(kind, descriptor, holder));
            EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
            EXPECT_EQ(newLog(), block(kind, 0, descriptor, holder) +
                                    paragraph(kind.renewableLine + descriptor.iut));
            descriptor.issuer = "2.5.4.3=Another CA";
            check(kind, descriptor);
            EXPECT_EQ(record(kind, 1), skippedRecord(kind, descriptor, holder, "Non rinnovabile"));
            newLog();
        }
    }
}

TEST_F(Eligibility, severalCertificates_areNumberedAndTheLastReasonStays)
{
    for (const Kind& kind : {aut(), pra()}) {
        SCOPED_TRACE(kind.name);
        context.clear();
        std::vector<Descriptor> descriptors(4, renewable(kind));
        descriptors[0].issuer = "2.5.4.3=Another CA";
        descriptors[1].notAfter = inDays(500);
        descriptors[2].notAfter = inDays(-3);
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < descriptors.size(); ++i) {
            descriptors[i].serial = "S" + std::to_string(i);
            texts.push_back(kind.text(descriptors[i]));
        }
        checkAll(kind, texts);
        EXPECT_EQ(
            plain(context),
            (PlainContext{
                {rowKey(kind, 1), skippedRecord(kind, descriptors[0], holder, "Non rinnovabile")},
                {rowKey(kind, 2),
                 skippedRecord(kind, descriptors[1], holder, "Certificati non ancora in scadenza")},
                {rowKey(kind, 3), skippedRecord(kind, descriptors[2], holder, kind.expiredLine)},
                {rowKey(kind, 4), renewableRecord(kind, descriptors[3], holder)},
            }));
        EXPECT_EQ(ErrorMessage, QStringLiteral("Certificati scaduti"));
        EXPECT_EQ(newLog(),
                  block(kind, 0, descriptors[0], holder) + paragraph(kind.notRenewableLine) +
                      block(kind, 1, descriptors[1], holder) + paragraph(kind.notYetDueLine) +
                      block(kind, 2, descriptors[2], holder) + paragraph(kind.expiredLine) +
                      block(kind, 3, descriptors[3], holder) +
                      paragraph(kind.renewableLine + descriptors[3].iut));
    }
}

TEST_F(Eligibility, rowFromBefore_isReplacedWhole)
{
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        Descriptor descriptor = renewable(kind);
        descriptor.notAfter = inDays(-1);
        check(kind, descriptor);
        descriptor.notAfter = inDays(1);
        check(kind, descriptor);
        EXPECT_EQ(record(kind, 1), renewableRecord(kind, descriptor, holder));
    }
}

TEST_F(Eligibility, subjectWithoutCode_recordUsesTheDescriptorsAndTheOldOneStays)
{
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        fiscalCode = QStringLiteral("OLDCODE");
        Descriptor descriptor = renewable(kind);
        for (const char* subject : {"2.5.4.3=Anna Verdi", "", "2.5.4.5:X", "2.5.4.05=X"}) {
            SCOPED_TRACE(subject);
            descriptor.subject = subject;
            check(kind, descriptor);
            EXPECT_EQ(record(kind, 1), renewableRecord(kind, descriptor, "CARDCODE"));
            EXPECT_EQ(fiscalCode, QStringLiteral("OLDCODE"));
            EXPECT_EQ(newLog(), block(kind, 0, descriptor, "OLDCODE") +
                                    paragraph(kind.renewableLine + descriptor.iut));
        }
    }
}

TEST_F(Eligibility, subjectWithCode_codeIsCutFromIt)
{
    struct Row {
        const char* condition;
        const char* subject;
        const char* code;           // AUT and CNS
        const char* signatureCode;  // PRA
    };
    const Row table[] = {
        {"sixteen characters and more attributes", "2.5.4.5=ABCDEF12G34H567I,2.5.4.3=N",
         "ABCDEF12G34H567I", "DEF12G34H567I,2."},
        {"with its prefix", "2.5.4.3=N,2.5.4.5=IT:ABCDEF12G34H567I,2.5.4.6=IT", "IT:ABCDEF12G34H5",
         "ABCDEF12G34H567I"},
        {"longer value", "2.5.4.5=IT:ABCDEF12G34H567I9999", "IT:ABCDEF12G34H5", "ABCDEF12G34H567I"},
        {"shorter value", "2.5.4.5=SHORT,2.5.4.3=NAME AND MORE", "SHORT,2.5.4.3:NA",
         "RT,2.5.4.3:NAME "},
        {"at the very end", "2.5.4.3=N,2.5.4.5=AB", "AB", ""},
        {"ten characters in all", "2.5.4.5=IT", "IT", ""},
        {"no value", "2.5.4.5=", "", ""},
        {"first occurrence counts", "2.5.4.5=AAAAAAAAAAAAAAAAAAAA,2.5.4.5=BBBBBBBBBBBBBBBBBBB",
         "AAAAAAAAAAAAAAAA", "AAAAAAAAAAAAAAAA"},
        {"marker twice", "2.5.4.5=AB2.5.4.5=CDEFGHIJKLMNOP", "ABCDEFGH", ".5.4.5:CDEFGHIJK"},
        {"signature marker twice", "2.5.4.5=IT:AB2.5.4.5=IT:CDEFGHIJKLM", "IT:ABIT:", "ABCDE"},
        {"equals signs", "2.5.4.5=A=B=C=D=E=F=G=H=I=J", "A:B:C:D:E:F:G:H:", ":C:D:E:F:G:H:I:J"},
        {"not ASCII",
         "2.5.4.5=\xc3\xa0\xc3\xa8\xc3\xac\xc3\xb2\xc3\xb9"
         "ABCDEFGHIJKLMNOP",
         "\xc3\xa0\xc3\xa8\xc3\xac\xc3\xb2\xc3\xb9"
         "ABCDEFGHIJK",
         "\xc3\xb2\xc3\xb9"
         "ABCDEFGHIJKLMN"},
        {"inside another attribute's text", "2.5.4.3=X2.5.4.5=IT:ABCDEF12G34H567I",
         "IT:ABCDEF12G34H5", "ABCDEF12G34H567I"},
    };
    for (const Kind& kind : allKinds()) {
        for (const Row& row : table) {
            SCOPED_TRACE(kind.name + ", " + row.condition);
            const std::string code = kind.name == "PRA" ? row.signatureCode : row.code;
            Descriptor descriptor = renewable(kind);
            descriptor.subject = row.subject;
            check(kind, descriptor);
            EXPECT_EQ(fiscalCode.toStdString(), code);
            EXPECT_EQ(record(kind, 1), renewableRecord(kind, descriptor, code));
            EXPECT_EQ(newLog(), block(kind, 0, descriptor, code) +
                                    paragraph(kind.renewableLine + descriptor.iut));
        }
    }
}

TEST_F(Eligibility, codeOfAnEarlierCertificate_isShownForTheNextOneWithout)
{
    Descriptor first = renewable(aut());
    Descriptor second = renewable(aut());
    second.subject = "2.5.4.3=Senza";
    checkAll(aut(), {authenticationText(first), authenticationText(second)});
    EXPECT_EQ(log(), block(aut(), 0, first, holder) +
                         paragraph("Certificato AUT. IUT: " + first.iut) +
                         block(aut(), 1, second, holder) +
                         paragraph("Certificato AUT. IUT: " + second.iut));
    EXPECT_EQ(record(aut(), 2), renewableRecord(aut(), second, "CARDCODE"));
}

TEST_F(Eligibility, fieldsAtTheirLimits_areCarriedUnchanged)
{
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        Descriptor descriptor = renewable(kind);
        descriptor.iut = " ";
        descriptor.serial = "\t";
        descriptor.notBefore = "";
        descriptor.ckaId = ":::";
        descriptor.fiscalCode = "";
        descriptor.policy = "1.3.76.16.2.1";
        check(kind, descriptor);
        EXPECT_EQ(record(kind, 1), renewableRecord(kind, descriptor, holder));
    }
}

}  // namespace
