#include "hosts/console/certificate_entry.h"
#include "tests/support/printing.h"

#include <gtest/gtest.h>

using namespace console;
namespace keys = renew_context;

namespace {

const QDate today(2026, 11, 21);

EntrySources sources()
{
    return {today,
            [](Kind kind, int number) {
                return kind == Kind::authentication && number == 2
                           ? QStringLiteral("subject#2.5.4.3=Other CA#iut")
                           : QString();
            },
            [](RenewRecord&) { return QStringLiteral("20300120000000"); }};
}

RenewRecord record(const QString& mode = QString())
{
    RenewRecord fields;
    fields.insert(keys::subjectDN, QStringLiteral("2.5.4.6=IT,2.5.4.3=VERDI ADA"));
    fields.insert(keys::issuerDN, QStringLiteral("2.5.4.3=Castelvane Demo CA"));
    fields.insert(keys::notAfter, QStringLiteral("20261221000000"));
    fields.insert(keys::serialNumber, QStringLiteral("0A"));
    fields.insert(keys::renewalId, QStringLiteral("code:iut::0A"));
    if (!mode.isEmpty()) {
        fields.insert(keys::renewalMode, mode);
    }
    return fields;
}

CertificateEntry only(const QString& row, const RenewRecord& fields)
{
    RenewContext context;
    context.insert(keys::settingsRow, {{keys::reader, QStringLiteral("x")}});
    context.insert(row, fields);
    const auto entries = certificateEntries(context, sources());
    EXPECT_EQ(entries.size(), 1U);
    return entries.empty() ? CertificateEntry() : entries.front();
}

}  // namespace

TEST(CertificateEntries, recordToRenew_showsWhatTheCardSays)
{
    const CertificateEntry entry = only(QStringLiteral("AUT: 1"), record());
    EXPECT_EQ(entry.number, 1);
    EXPECT_EQ(entry.row, QStringLiteral("AUT: 1"));
    EXPECT_EQ(entry.kindName, QStringLiteral("authentication"));
    EXPECT_EQ(entry.holder, QStringLiteral("VERDI ADA"));
    EXPECT_EQ(entry.issuer, QStringLiteral("Castelvane Demo CA"));
    EXPECT_EQ(entry.validUntil, QDate(2026, 12, 21));
    EXPECT_EQ(entry.renewalId, QStringLiteral("code:iut::0A"));
    EXPECT_EQ(entry.expectedEnd, QStringLiteral("20300120000000"));
    EXPECT_TRUE(entry.canBeChosen());
    EXPECT_EQ(entry.verdictText,
              QStringLiteral("to be renewed; afterwards valid until 2030-01-20"));
}

TEST(CertificateEntries, eachMode_givesItsVerdict)
{
    struct Row {
        QString mode;
        Verdict verdict;
        const char* text;
    };
    const Row cases[] = {
        {keys::notYetDue, Verdict::notYetDue, "not yet due: can be renewed from 2026-09-21"},
        {keys::autExpired, Verdict::expired, "expired: can no longer be renewed"},
        {keys::praExpired, Verdict::expired, "expired: can no longer be renewed"},
        {keys::cnsExpired, Verdict::expired, "expired: can no longer be renewed"},
        {QStringLiteral("Altro\tmotivo"), Verdict::otherReason, "Altro?motivo"},
    };
    for (const Row& row : cases) {
        SCOPED_TRACE(row.mode.toStdString());
        const CertificateEntry entry = only(QStringLiteral("PRA: 3"), record(row.mode));
        EXPECT_EQ(entry.verdict, row.verdict);
        EXPECT_EQ(entry.verdictText, QString::fromUtf8(row.text));
        EXPECT_FALSE(entry.canBeChosen());
        EXPECT_TRUE(entry.expectedEnd.isEmpty());
    }
}

TEST(CertificateEntries, otherAuthority_issuerComesFromTheDescriptor)
{
    RenewRecord fields = record(keys::notRenewable);
    fields.insert(keys::issuerDN, keys::autAuthorities);
    const CertificateEntry entry = only(QStringLiteral("AUT: 2"), fields);
    EXPECT_EQ(entry.issuer, QStringLiteral("Other CA"));
    EXPECT_EQ(
        entry.verdictText,
        QStringLiteral("cannot be renewed: only certificates issued by castelvane, norbelta can"));
    EXPECT_EQ(only(QStringLiteral("CNS: 1"), fields).issuer, QStringLiteral("-"));
}

TEST(CertificateEntries, recoveryRecord_canBeChosenWithoutDate)
{
    const RenewRecord fields = {{keys::action, keys::recoverCertificate},
                                {keys::renewalMode, keys::freeOfCharge},
                                {keys::pendingKey, QStringLiteral("AUT1")}};
    const CertificateEntry entry = only(QStringLiteral("AUT: 0"), fields);
    EXPECT_EQ(entry.verdict, Verdict::recovery);
    EXPECT_TRUE(entry.canBeChosen());
    EXPECT_FALSE(entry.validUntil.isValid());
    EXPECT_EQ(entry.pendingKey, QStringLiteral("AUT1"));
}

TEST(CertificateEntries, keyBegunEarlier_isMentioned)
{
    RenewRecord fields = record();
    fields.insert(keys::pendingKey, QStringLiteral("AUT1"));
    EXPECT_TRUE(only(QStringLiteral("AUT: 1"), fields)
                    .verdictText.endsWith(
                        QStringLiteral("; begun earlier, its new key waits on the card")));
}

TEST(CertificateEntries, roleCertificate_isNamedSo)
{
    RenewRecord fields = record();
    fields.insert(keys::renewalLabel, keys::roleCertificate);
    EXPECT_EQ(only(QStringLiteral("PRA: 1"), fields).kindName, QStringLiteral("role signature"));
    fields.insert(keys::renewalLabel, keys::signatureCertificate);
    EXPECT_EQ(only(QStringLiteral("PRA: 1"), fields).kindName, QStringLiteral("signature"));
    EXPECT_EQ(only(QStringLiteral("CNS: 1"), fields).kindName, QStringLiteral("CNS"));
}

TEST(CertificateEntries, manyRows_areOrderedByKindAndNumber)
{
    RenewContext context;
    for (const char* row :
         {"CNS: 1", "AUT: 10", "PRA: 0", "AUT: 2", "AUT: x", "SettingsApplicazione"}) {
        context.insert(QString::fromUtf8(row), record());
    }
    QStringList order;
    for (const CertificateEntry& entry : certificateEntries(context, sources())) {
        EXPECT_EQ(entry.number, order.size() + 1);
        order.append(entry.row);
    }
    const QStringList expected = {QStringLiteral("AUT: 2"), QStringLiteral("AUT: 10"),
                                  QStringLiteral("PRA: 0"), QStringLiteral("CNS: 1")};
    EXPECT_EQ(order, expected);
}

TEST(CertificateEntries, unreadableDate_isUnknown)
{
    RenewRecord fields = record(keys::notYetDue);
    fields.insert(keys::notAfter, QStringLiteral("soon"));
    const CertificateEntry entry = only(QStringLiteral("AUT: 1"), fields);
    EXPECT_FALSE(entry.validUntil.isValid());
    EXPECT_EQ(entry.verdictText, QStringLiteral("not yet due"));
}
