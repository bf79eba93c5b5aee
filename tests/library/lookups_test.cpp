#include "tests/support/library_fixture.h"

#include <QHash>

#include <gtest/gtest.h>

#include <functional>

using namespace support;

namespace {

using Lookup = std::function<bool(RenewContext*, const QString&, RenewRecord*)>;

struct LookupRow {
    const char* name;
    const char* key;
    Lookup find;
};

const LookupRow lookupTable[] = {
    {"find_certid_in_conf", "RENEW_CERTID",
     [](RenewContext* context, const QString& value, RenewRecord* record) {
         return find_certid_in_conf(context, value, record);
     }},
    {"find_ckaid_in_conf", "pendingKey",
     [](RenewContext* context, const QString& value, RenewRecord* record) {
         return find_ckaid_in_conf(context, value, record);
     }},
};

class Lookups : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    }

    void TearDown() override
    {
        EXPECT_EQ(log(), "");
        LibraryTest::TearDown();
    }

    // Looks, and expects nothing: neither a result nor a change.
    void expectNotFound(const Lookup& find, const QString& value)
    {
        RenewRecord record{{QStringLiteral("kept"), QStringLiteral("yes")}};
        EXPECT_FALSE(find(&context, value, &record));
        EXPECT_EQ(plain(record), (PlainRecord{{"kept", "yes"}}));
    }
};

TEST_F(Lookups, contextEmptyOrSettingsAlone_nothingIsFound)
{
    for (const LookupRow& row : lookupTable) {
        SCOPED_TRACE(row.name);
        expectNotFound(row.find, QStringLiteral("x"));
        expectNotFound(row.find, QString());
    }
    RenewRecord record{{QStringLiteral("kept"), QStringLiteral("yes")}};
    EXPECT_FALSE(find_pending_cert_dict(&context, &record));
    context.clear();
    EXPECT_FALSE(find_pending_cert_dict(&context, &record));
    EXPECT_EQ(plain(record), (PlainRecord{{"kept", "yes"}}));
    for (const LookupRow& row : lookupTable)
        expectNotFound(row.find, QStringLiteral("x"));
}

TEST_F(Lookups, rowMatches_itsCopyCarriesTheRowKey)
{
    for (const LookupRow& row : lookupTable) {
        SCOPED_TRACE(row.name);
        const QString key = QString::fromLatin1(row.key);
        context[QStringLiteral("AUT: 1")] = {{key, QStringLiteral("wanted")},
                                             {QStringLiteral("iut"), QStringLiteral("7")}};
        context[QStringLiteral("AUT: 2")] = {{key, QStringLiteral("other")}};
        const PlainContext before = plain(context);
        RenewRecord record{{QStringLiteral("old"), QStringLiteral("gone")}};
        EXPECT_TRUE(row.find(&context, QStringLiteral("wanted"), &record));
        EXPECT_EQ(plain(record),
                  (PlainRecord{{row.key, "wanted"}, {"iut", "7"}, {"Cert_type", "AUT: 1"}}));
        EXPECT_EQ(plain(context), before);
        context.clear();
    }
}

TEST_F(Lookups, valueNearlyTheSame_isNotFound)
{
    for (const LookupRow& row : lookupTable) {
        SCOPED_TRACE(row.name);
        context[QStringLiteral("PRA: 1")] = {
            {QString::fromLatin1(row.key), QStringLiteral("Code:1::A")}};
        for (const char* value : {"code:1::A", "CODE:1::A", " Code:1::A", "Code:1::A ",
                                  "Code:1::", "Code:1::AB", "", "Code:1:A"}) {
            SCOPED_TRACE(value);
            expectNotFound(row.find, QString::fromLatin1(value));
        }
    }
}

TEST_F(Lookups, valueUnderAnotherKey_isNotFound)
{
    context[QStringLiteral("PRA: 1")] = {{QStringLiteral("iut"), QStringLiteral("wanted")},
                                         {QStringLiteral("renew_certid"), QStringLiteral("wanted")},
                                         {QStringLiteral("PENDINGKEY"), QStringLiteral("wanted")},
                                         {QStringLiteral("wanted"), QStringLiteral("x")}};
    for (const LookupRow& row : lookupTable) {
        SCOPED_TRACE(row.name);
        expectNotFound(row.find, QStringLiteral("wanted"));
    }
}

TEST_F(Lookups, emptyValue_matchesOnlyAPresentEmptyEntry)
{
    for (const LookupRow& row : lookupTable) {
        SCOPED_TRACE(row.name);
        context.clear();
        context[QStringLiteral("AUT: 1")] = {{QStringLiteral("iut"), QString()}};
        expectNotFound(row.find, QString());
        context[QStringLiteral("AUT: 2")] = {{QString::fromLatin1(row.key), QStringLiteral("")}};
        RenewRecord record;
        EXPECT_TRUE(row.find(&context, QString(), &record));
        EXPECT_EQ(plain(record)["Cert_type"], "AUT: 2");
    }
}

TEST_F(Lookups, rowHoldsCertType_copyShowsTheRowKeyInstead)
{
    context[QStringLiteral("PRA: 3")] = {{QStringLiteral("RENEW_CERTID"), QStringLiteral("a")},
                                         {QStringLiteral("Cert_type"), QStringLiteral("CNS: 9")}};
    RenewRecord record;
    EXPECT_TRUE(find_certid_in_conf(&context, QStringLiteral("a"), &record));
    EXPECT_EQ(plain(record), (PlainRecord{{"RENEW_CERTID", "a"}, {"Cert_type", "PRA: 3"}}));
    EXPECT_EQ(plain(context)["PRA: 3"]["Cert_type"], "CNS: 9");
}

TEST_F(Lookups, recoveryRecord_isFoundByItsAction)
{
    context[QStringLiteral("AUT: 1")] = {{QStringLiteral("RENEW_CERTID"), QStringLiteral("a")}};
    context[QStringLiteral("PRA: 0")] = {
        {QStringLiteral("AZIONE"), QStringLiteral("Recupero_Cert")},
        {QStringLiteral("pendingKey"), QStringLiteral("DS1")}};
    RenewRecord record;
    EXPECT_TRUE(find_pending_cert_dict(&context, &record));
    EXPECT_EQ(
        plain(record),
        (PlainRecord{{"AZIONE", "Recupero_Cert"}, {"pendingKey", "DS1"}, {"Cert_type", "PRA: 0"}}));
    EXPECT_EQ(plain(context)["PRA: 0"].count("Cert_type"), 0U);
}

TEST_F(Lookups, otherAction_isNotARecoveryRecord)
{
    for (const char* action : {"recupero_cert", "Recupero_Cert ", "Recupero", ""}) {
        SCOPED_TRACE(action);
        context[QStringLiteral("PRA: 0")] = {
            {QStringLiteral("AZIONE"), QString::fromLatin1(action)}};
        RenewRecord record;
        EXPECT_FALSE(find_pending_cert_dict(&context, &record));
        EXPECT_TRUE(record.isEmpty());
    }
}

TEST_F(Lookups, severalRowsMatch_firstInTheContextsOwnOrderWins)
{
    for (int rowCount = 2; rowCount <= 40; ++rowCount) {
        SCOPED_TRACE(rowCount);
        context.clear();
        for (int i = 0; i < rowCount; ++i)
            context[QStringLiteral("Row %1/%2").arg(i).arg(rowCount)] = {
                {QStringLiteral("AZIONE"), QStringLiteral("Recupero_Cert")},
                {QStringLiteral("RENEW_CERTID"), QStringLiteral("same")},
                {QStringLiteral("pendingKey"), QStringLiteral("same")}};
        const std::string first = context.begin().key().toStdString();
        RenewRecord record;
        EXPECT_TRUE(find_pending_cert_dict(&context, &record));
        EXPECT_EQ(plain(record)["Cert_type"], first);
        for (const LookupRow& row : lookupTable) {
            record.clear();
            EXPECT_TRUE(row.find(&context, QStringLiteral("same"), &record));
            EXPECT_EQ(plain(record)["Cert_type"], first);
        }
    }
}

TEST_F(Lookups, recordNotToBeRenewed_isFoundAllTheSame)
{
    context[QStringLiteral("AUT: 1")] = {
        {QStringLiteral("RENEW_CERTID"), QStringLiteral("a")},
        {QStringLiteral("MODALITA' RINNOVO"), QStringLiteral("Non rinnovabile")}};
    RenewRecord record;
    EXPECT_TRUE(find_certid_in_conf(&context, QStringLiteral("a"), &record));
    EXPECT_EQ(plain(record)["MODALITA' RINNOVO"], "Non rinnovabile");
}

}  // namespace
