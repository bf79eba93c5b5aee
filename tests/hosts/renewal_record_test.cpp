#include "certificate_maker.h"
#include "hosts/console/issued_certificate.h"
#include "hosts/console/renewal_record.h"
#include "json_schema.h"
#include "stop_expectation.h"
#include "tests/support/printing.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <functional>

using namespace console;
using hosts::expectStop;

namespace {

const char* const recordSchema = "record.schema.json";
const QString path = QStringLiteral("/home/ada/.brisko/renewals/x.json");

QDateTime atNoon()
{
    return {QDate(2026, 11, 21), QTime(12, 0), Qt::UTC};
}

class RenewalRecordTest : public testing::Test {
protected:
    RenewalRecord fullRecord() const
    {
        RenewalRecord record = recordOfRequest(m_request, atNoon());
        record.state = RecordState::deferred;
        record.kind = Kind::signature;
        record.replaces = {QStringLiteral("CN=Autorità \"1\", O=Castelvane"),
                           QStringLiteral("0A1B"), QStringLiteral("Ada Lovelace")};
        record.reader = QStringLiteral("Reader 00 00");
        record.token = {QStringLiteral("Soft card"), QStringLiteral("12345678")};
        record.policy = QStringLiteral("1.3.76.36.1.1.1");
        record.expectedEnd = QDate(2030, 1, 20);
        record.authority = {QStringLiteral("command"), {{QStringLiteral("ticket"), 17}}};
        return record;
    }
    RenewalRecord issuedRecord() const
    {
        RenewalRecord record = fullRecord();
        keepCertificate(record, m_certificate, atNoon().addDays(1));
        return record;
    }

    const hosts::Key m_key = hosts::newKey();
    const QByteArray m_request = hosts::requestFor(m_key.get(), m_key.get());
    const QByteArray m_certificate = hosts::pemOf(hosts::certificateFrom(m_key.get(), "Ada").get());
};

QJsonObject objectOf(const RenewalRecord& record)
{
    return QJsonDocument::fromJson(toJson(record)).object();
}

QByteArray bytesOf(const QJsonObject& object)
{
    return QJsonDocument(object).toJson();
}

// The object with the field replaced, or removed by an undefined value; "a.b" is b inside a.
QJsonObject changed(QJsonObject object, const QString& field, const QJsonValue& value)
{
    const QString outer = field.section(QLatin1Char('.'), 0, 0);
    const QString inner = field.section(QLatin1Char('.'), 1);
    QJsonValue replacement = value;
    if (!inner.isEmpty()) {
        replacement = changed(object.value(outer).toObject(), inner, value);
    }
    if (replacement.isUndefined()) {
        object.remove(outer);
    } else {
        object.insert(outer, replacement);
    }
    return object;
}

QJsonValue text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

}  // namespace

TEST_F(RenewalRecordTest, ofARequest_hasItsKeyAndTime)
{
    const QDateTime now =
        QDateTime(QDate(2026, 11, 21), QTime(13, 0, 5, 678), Qt::OffsetFromUTC, 3600);
    const RenewalRecord record = recordOfRequest(m_request, now);
    EXPECT_EQ(record.request, m_request);
    EXPECT_EQ(record.publicKeyDigest, keyDigest(requestPublicKey(m_request).value()));
    EXPECT_EQ(record.requestedAt, QDateTime(QDate(2026, 11, 21), QTime(12, 0, 5), Qt::UTC));
    EXPECT_EQ(record.changedAt, record.requestedAt);
    EXPECT_EQ(record.state, RecordState::requested);
    EXPECT_EQ(hosts::schemaComplaint(recordSchema, toJson(record).toStdString()), "");
}

TEST_F(RenewalRecordTest, ofWhatIsNoRequest_isRefused)
{
    const hosts::Key other = hosts::newKey();
    for (const QByteArray& request :
         {QByteArray(), QByteArray("no"), hosts::requestFor(m_key.get(), other.get())}) {
        expectStop(ExitCode::requestFailed, {"no valid certificate request"},
                   [&] { recordOfRequest(request, atNoon()); });
    }
}

// Independent of the code: sha256 of the octets 30 00.
TEST(KeyDigest, octets_areHashed)
{
    EXPECT_EQ(keyDigest(QByteArray::fromHex("3000")),
              QStringLiteral("e4f60d0aa6d7f3d3b6a6494b1c861b99f649c6f9ec51abaf201b20f297327c95"));
}

TEST_F(RenewalRecordTest, written_isReadBackWhole)
{
    for (const RenewalRecord& record : {fullRecord(), issuedRecord()}) {
        const RenewalRecord read = recordFromJson(toJson(record), path);
        EXPECT_EQ(read.state, record.state);
        EXPECT_EQ(read.kind, record.kind);
        EXPECT_EQ(read.request, record.request);
        EXPECT_EQ(read.publicKeyDigest, record.publicKeyDigest);
        EXPECT_EQ(read.replaces.issuer, record.replaces.issuer);
        EXPECT_EQ(read.replaces.serialNumber, record.replaces.serialNumber);
        EXPECT_EQ(read.replaces.holder, record.replaces.holder);
        EXPECT_EQ(read.reader, record.reader);
        EXPECT_EQ(read.token.model, record.token.model);
        EXPECT_EQ(read.token.serialNumber, record.token.serialNumber);
        EXPECT_EQ(read.policy, record.policy);
        EXPECT_EQ(read.expectedEnd, record.expectedEnd);
        EXPECT_EQ(read.authority.name, record.authority.name);
        EXPECT_EQ(read.authority.state, record.authority.state);
        EXPECT_EQ(read.certificate, record.certificate);
        EXPECT_EQ(read.requestedAt, record.requestedAt);
        EXPECT_EQ(read.changedAt, record.changedAt);
        EXPECT_EQ(toJson(read), toJson(record));
    }
}

TEST_F(RenewalRecordTest, everyStateAndKind_hasADocumentedName)
{
    std::vector<std::string> documents;
    for (const RecordState state : {RecordState::requested, RecordState::submitted,
                                    RecordState::deferred, RecordState::issued}) {
        for (const Kind kind : {Kind::authentication, Kind::signature, Kind::cns}) {
            RenewalRecord record = state == RecordState::issued ? issuedRecord() : fullRecord();
            record.state = state;
            record.kind = kind;
            const RenewalRecord read = recordFromJson(toJson(record), path);
            EXPECT_EQ(read.state, state);
            EXPECT_EQ(read.kind, kind);
            documents.push_back(toJson(record).toStdString());
        }
    }
    const std::vector<std::string> none(documents.size());
    EXPECT_EQ(hosts::schemaComplaints(recordSchema, documents), none);
}

TEST_F(RenewalRecordTest, fieldsOfALaterProgram_surviveARewrite)
{
    QJsonObject object = objectOf(fullRecord());
    const QJsonObject later{{QStringLiteral("deep"), QJsonArray{1, QStringLiteral("two")}}};
    for (const char* field : {"later", "replaces.later", "token.later", "authority.later"}) {
        object = changed(object, QString::fromUtf8(field), later);
    }
    RenewalRecord record = recordFromJson(bytesOf(object), path);
    record.state = RecordState::submitted;
    record.token.model = QStringLiteral("another");
    record.authority.state = QJsonObject();
    const QJsonObject expected =
        changed(changed(changed(object, QStringLiteral("state"), text("submitted")),
                        QStringLiteral("token.model"), text("another")),
                QStringLiteral("authority.state"), QJsonObject());
    EXPECT_EQ(objectOf(record), expected);
    EXPECT_EQ(hosts::schemaComplaint(recordSchema, toJson(record).toStdString()), "");
}

TEST_F(RenewalRecordTest, damagedRecord_isRefusedWithTheCause)
{
    const hosts::Key other = hosts::newKey();
    const QByteArray otherRequest = hosts::requestFor(other.get(), other.get());
    const QByteArray otherCertificate =
        hosts::pemOf(hosts::certificateFrom(other.get(), "Ada").get());
    const QJsonValue missing(QJsonValue::Undefined);
    struct Row {
        const char* field;
        QJsonValue value;
        const char* told;
        // Whether the schema can tell: it knows forms, not keys.
        bool isAgainstSchema;
    };
    const std::vector<Row> damages = {
        {"schema", missing, "the field schema is not tarvelo-renew/record", true},
        {"schema", text("tarvelo-renew/list"), "the field schema is not", true},
        {"version", missing, "the field version is not a whole number", true},
        {"version", text("1"), "the field version is not a whole number", true},
        {"version", 0, "the field version is not a whole number", true},
        {"version", 1.5, "the field version is not a whole number", true},
        {"state", missing, "the field state is missing", true},
        {"state", text("done"), "one of requested, submitted, deferred, issued", true},
        {"state", 1, "the field state is not text", true},
        {"state", text("issued"), "if and only if the state is issued", true},
        {"kind", text("AUT"), "one of authentication, signature, cns", true},
        {"kind", missing, "the field kind is missing", true},
        {"requestedAt", missing, "the field requestedAt is missing", true},
        {"requestedAt", text("2026-11-21T12:00:00"), "a time in UTC", true},
        {"requestedAt", text("2026-11-21T12:00:00+01:00"), "a time in UTC", true},
        {"requestedAt", text("2026-02-30T12:00:00Z"), "a time in UTC", false},
        {"changedAt", text("yesterday"), "the field changedAt is not a time in UTC", true},
        {"changedAt", QJsonValue(), "the field changedAt is not text", true},
        {"expectedEnd", missing, "the field expectedEnd is missing", true},
        {"expectedEnd", text(""), "the field expectedEnd is not a date", true},
        {"expectedEnd", text("20300120"), "the field expectedEnd is not a date", true},
        {"expectedEnd", text("2030-02-30"), "the field expectedEnd is not a date", false},
        {"publicKeySha256", missing, "the field publicKeySha256 is missing", true},
        {"publicKeySha256", text("00"), "is not that of the request's key", true},
        {"request", missing, "the field request is missing", true},
        {"request", text("no request"), "a request signed by its own key", true},
        {"request", QString::fromLatin1(otherRequest), "that of the request's key", false},
        {"certificate", missing, "the field certificate is missing", true},
        {"certificate", text(""), "if and only if the state is issued", true},
        {"certificate", QString::fromLatin1(m_certificate), "if and only if", true},
        {"replaces", missing, "the field replaces is missing", true},
        {"replaces", text("x"), "the field replaces is not an object", true},
        {"replaces.issuer", missing, "the field replaces.issuer is missing", true},
        {"replaces.serialNumber", 7, "the field replaces.serialNumber is not text", true},
        {"replaces.holder", missing, "the field replaces.holder is missing", true},
        {"reader", missing, "the field reader is missing", true},
        {"token.model", missing, "the field token.model is missing", true},
        {"token.serialNumber", QJsonValue(), "token.serialNumber is not text", true},
        {"policy", missing, "the field policy is missing", true},
        {"authority.way", missing, "the field authority.way is missing", true},
        {"authority.state", text("x"), "the field authority.state is not an object", true},
    };
    std::vector<std::string> documents;
    for (const Row& row : damages) {
        const QJsonObject object =
            changed(objectOf(fullRecord()), QString::fromUtf8(row.field), row.value);
        documents.push_back(bytesOf(object).toStdString());
        SCOPED_TRACE(row.field + std::string(": ") + row.told);
        expectStop(ExitCode::fileFailed, {path.toStdString(), row.told},
                   [&] { recordFromJson(bytesOf(object), path); });
    }
    const std::vector<std::string> complaints = hosts::schemaComplaints(recordSchema, documents);
    for (size_t row = 0; row < damages.size(); ++row) {
        EXPECT_EQ(!complaints[row].empty(), damages[row].isAgainstSchema)
            << damages[row].field << ": " << damages[row].told << ": " << complaints[row];
    }

    QJsonObject issued = objectOf(issuedRecord());
    issued.insert(QStringLiteral("certificate"), QString::fromLatin1(otherCertificate));
    expectStop(ExitCode::fileFailed, {"a certificate for the request's key"},
               [&] { recordFromJson(bytesOf(issued), path); });
    issued.insert(QStringLiteral("certificate"), QString());
    expectStop(ExitCode::fileFailed, {"a certificate for the request's key"},
               [&] { recordFromJson(bytesOf(issued), path); });
}

TEST_F(RenewalRecordTest, whatIsNoJsonObject_isRefused)
{
    const QByteArray whole = toJson(fullRecord());
    for (const QByteArray& bytes :
         {QByteArray(), QByteArray("no"), whole.left(whole.size() / 2), whole + "x",
          QByteArray("[1]"), QByteArray(100000, '['), QByteArray("\xff\xfe{}")}) {
        SCOPED_TRACE(bytes.left(20).toStdString());
        expectStop(ExitCode::fileFailed, {path.toStdString(), "JSON"},
                   [&] { recordFromJson(bytes, path); });
    }
}

TEST_F(RenewalRecordTest, newerVersion_isLeftToTheNewerProgram)
{
    // Nothing else is looked at: a newer version may name everything otherwise.
    const QJsonObject newer{{QStringLiteral("schema"), QStringLiteral("tarvelo-renew/record")},
                            {QStringLiteral("version"), 2}};
    try {
        recordFromJson(bytesOf(newer), path);
        FAIL() << "it was read";
    } catch (const Stop& stop) {
        EXPECT_EQ(stop.code(), ExitCode::fileFailed);
        EXPECT_TRUE(stop.detail().contains(QStringLiteral("newer version of this program")));
        EXPECT_TRUE(stop.detail().contains(path));
        EXPECT_TRUE(stop.nextStep().contains(QStringLiteral("with that version")));
    }
}

TEST_F(RenewalRecordTest, complaints_areInTheLanguageSet)
{
    setLanguage(Language::italian);
    expectStop(ExitCode::fileFailed, {"non è utilizzabile", "manca il campo state"}, [&] {
        recordFromJson(bytesOf(changed(objectOf(fullRecord()), QStringLiteral("state"),
                                       QJsonValue(QJsonValue::Undefined))),
                       path);
    });
    setLanguage(Language::english);
}

TEST_F(RenewalRecordTest, issuedCertificate_isKeptWhenItIsOfTheKey)
{
    RenewalRecord record = fullRecord();
    const hosts::Key other = hosts::newKey();
    const QByteArray before = toJson(record);
    for (const QByteArray& refused :
         {QByteArray("no"), hosts::pemOf(hosts::certificateFrom(other.get(), "Ada").get())}) {
        expectStop(ExitCode::certificateRefused, {"not the one in the request"},
                   [&] { keepCertificate(record, refused, atNoon().addDays(1)); });
        EXPECT_EQ(toJson(record), before);
    }
    keepCertificate(record, m_certificate, atNoon().addDays(1));
    EXPECT_EQ(record.state, RecordState::issued);
    EXPECT_EQ(record.certificate, m_certificate);
    EXPECT_EQ(record.changedAt, atNoon().addDays(1));
    EXPECT_EQ(record.requestedAt, atNoon());
}

TEST_F(RenewalRecordTest, ofAnIssuedCertificate_isFoundByItsKey)
{
    const hosts::Key other = hosts::newKey();
    const RenewalRecord own = fullRecord();
    const RenewalRecord strange =
        recordOfRequest(hosts::requestFor(other.get(), other.get()), atNoon());
    const std::vector<RenewalRecord> records = {strange, own};

    const auto certificates = readCertificates(m_certificate);
    ASSERT_EQ(certificates.size(), 1U);
    const auto found = recordForKey(records, certificates[0].publicKey);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->publicKeyDigest, own.publicKeyDigest);
    EXPECT_FALSE(recordForKey({strange}, certificates[0].publicKey));
}

TEST_F(RenewalRecordTest, ofOneCertificate_areAllFoundInTheirOrder)
{
    std::vector<RenewalRecord> records(4, fullRecord());
    records[0].requestedAt = atNoon().addDays(2);
    records[1].replaces.serialNumber = QStringLiteral("0A1C");
    records[2].replaces.issuer = QStringLiteral("CN=other");
    records[3].requestedAt = atNoon().addDays(-2);
    sortByAge(records);
    const auto found =
        recordsReplacing(records, fullRecord().replaces.issuer, QStringLiteral("0A1B"));
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].requestedAt, atNoon().addDays(-2));
    EXPECT_EQ(found[1].requestedAt, atNoon().addDays(2));
    EXPECT_TRUE(recordsReplacing(records, QStringLiteral("CN=none"), {}).empty());
}

TEST(JsonSchema, unusableValidatorInput_isNoSilentPass)
{
    EXPECT_THROW(hosts::schemaComplaint("no-such.schema.json", "{}"), std::runtime_error);
    EXPECT_NE(hosts::schemaComplaint(recordSchema, "{"), "");
    EXPECT_NE(hosts::schemaComplaint(recordSchema, "[]"), "");
}
