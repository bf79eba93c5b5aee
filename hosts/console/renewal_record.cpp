#include "hosts/console/renewal_record.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/issued_certificate.h"

#include <QCryptographicHash>
#include <QJsonDocument>

#include <algorithm>
#include <array>
#include <tuple>

namespace console {

namespace {

const QString schemaName = QStringLiteral("tarvelo-renew/record");
constexpr int schemaVersion = 1;

template <typename Value>
struct Named {
    Value value;
    const char* name;
};

constexpr std::array<Named<RecordState>, 4> stateNames{{
    {RecordState::requested, "requested"},
    {RecordState::submitted, "submitted"},
    {RecordState::deferred, "deferred"},
    {RecordState::issued, "issued"},
}};

constexpr std::array<Named<Kind>, 3> kindNames{{
    {Kind::authentication, "authentication"},
    {Kind::signature, "signature"},
    {Kind::cns, "cns"},
}};

template <typename Table, typename Value>
QString nameIn(const Table& table, Value value)
{
    const auto* row = std::find_if(table.begin(), table.end(),
                                   [value](const auto& named) { return named.value == value; });
    return QLatin1String(row->name);
}

QDateTime wholeSeconds(const QDateTime& time)
{
    return QDateTime::fromSecsSinceEpoch(time.toSecsSinceEpoch(), Qt::UTC);
}

// Says what is wrong with one record, naming its file.
class Complaints {
public:
    explicit Complaints(QString path)
        : m_path(std::move(path))
    {
    }

    [[noreturn]] void unusable(const QString& why) const
    {
        throw Stop(ExitCode::fileFailed,
                   Text("L'annotazione di rinnovo %1 non è utilizzabile: %2.",
                        "The renewal record %1 cannot be used: %2.")
                       .arg(m_path, why),
                   Text("Spostare il file altrove. Il rinnovo si può finire anche senza, con la "
                        "carta e il certificato emesso.",
                        "Move the file away. The renewal can be finished without it, with the card "
                        "and the issued certificate."));
    }
    [[noreturn]] void newerVersion(int version) const
    {
        throw Stop(ExitCode::fileFailed,
                   Text("L'annotazione di rinnovo %1 è di una versione più recente del programma "
                        "(formato %2, qui si conosce il formato %3).",
                        "The renewal record %1 is that of a newer version of this program (format "
                        "%2, format %3 is known here).")
                       .arg(m_path, QString::number(version), QString::number(schemaVersion)),
                   Text("Finire questo rinnovo con quella versione; il file resta com'è.",
                        "Finish this renewal with that version; the file stays as it is."));
    }
    [[noreturn]] void noJson(const QString& why) const
    {
        unusable(Text("non è JSON (%1)", "it is no JSON (%1)").arg(why));
    }
    [[noreturn]] void missing(const QString& field) const
    {
        unusable(Text("manca il campo %1", "the field %1 is missing").arg(field));
    }
    [[noreturn]] void isNot(const QString& field, const QString& what) const
    {
        unusable(Text("il campo %1 non è %2", "the field %1 is not %2").arg(field, what));
    }
    [[noreturn]] void certificateAndStateDiffer() const
    {
        unusable(Text("c'è un certificato se e solo se lo stato è issued",
                      "there is a certificate if and only if the state is issued"));
    }

private:
    QString m_path;
};

// The fields of one JSON object; a field inside another is named with a dot.
class Fields {
public:
    Fields(QJsonObject object, QString prefix, const Complaints& complaints)
        : m_object(std::move(object))
        , m_prefix(std::move(prefix))
        , m_complaints(complaints)
    {
    }

    QString text(const char* name) const
    {
        const QJsonValue value = present(name);
        if (!value.isString()) {
            m_complaints.isNot(fullName(name), Text("un testo", "text"));
        }
        return value.toString();
    }

    QJsonObject object(const char* name) const
    {
        const QJsonValue value = present(name);
        if (!value.isObject()) {
            m_complaints.isNot(fullName(name), Text("un oggetto", "an object"));
        }
        return value.toObject();
    }

    Fields inside(const char* name) const { return {object(name), fullName(name), m_complaints}; }

    bool isNull(const char* name) const { return present(name).isNull(); }

    template <typename Value, size_t size>
    Value oneOf(const char* name, const std::array<Named<Value>, size>& table) const
    {
        const QString given = text(name);
        QStringList names;
        for (const Named<Value>& row : table) {
            if (given == QLatin1String(row.name)) {
                return row.value;
            }
            names.append(QLatin1String(row.name));
        }
        m_complaints.isNot(fullName(name),
                           Text("uno di %1", "one of %1").arg(names.join(QStringLiteral(", "))));
    }

    QDate dateOrNull(const char* name) const
    {
        if (isNull(name)) {
            return {};
        }
        const QString given = text(name);
        const QDate date = QDate::fromString(given, Qt::ISODate);
        // Qt is lenient; writing it again shows whether it is the one form.
        if (date.toString(Qt::ISODate) != given || given.isEmpty()) {
            m_complaints.isNot(fullName(name),
                               Text("una data (2029-12-31)", "a date (2029-12-31)"));
        }
        return date;
    }

    QDateTime time(const char* name) const
    {
        const QString given = text(name);
        QDateTime time = QDateTime::fromString(given, Qt::ISODate);
        if (!time.isValid() || time.timeSpec() != Qt::UTC || time.toString(Qt::ISODate) != given) {
            m_complaints.isNot(fullName(name), Text("un'ora UTC (2029-12-31T23:59:59Z)",
                                                    "a time in UTC (2029-12-31T23:59:59Z)"));
        }
        return time;
    }

    QString fullName(const char* name) const
    {
        const QString own = QLatin1String(name);
        return m_prefix.isEmpty() ? own : m_prefix + QLatin1Char('.') + own;
    }

private:
    QJsonValue present(const char* name) const
    {
        QJsonValue value = m_object.value(QLatin1String(name));
        if (value.isUndefined()) {
            m_complaints.missing(fullName(name));
        }
        return value;
    }

    QJsonObject m_object;
    QString m_prefix;
    const Complaints& m_complaints;
};

void requireSchema(const QJsonObject& root, const Complaints& complaints)
{
    if (root.value(QLatin1String("schema")).toString() != schemaName) {
        complaints.isNot(QStringLiteral("schema"), schemaName);
    }
    const QJsonValue version = root.value(QLatin1String("version"));
    const int number = version.toInt(0);
    if (number < 1) {
        complaints.isNot(QStringLiteral("version"),
                         Text("un numero intero da 1", "a whole number from 1"));
    }
    if (number > schemaVersion) {
        complaints.newerVersion(number);
    }
}

// Whether the text holds a certificate for this public key.
bool isCertificateFor(const QByteArray& publicKey, const QByteArray& certificatePem)
{
    return certificateFor(publicKey, readCertificates(certificatePem)).has_value();
}

void requireOneKey(const RenewalRecord& record, const Complaints& complaints)
{
    const std::optional<QByteArray> publicKey = requestPublicKey(record.request);
    if (!publicKey) {
        complaints.isNot(QStringLiteral("request"),
                         Text("una richiesta firmata dalla sua chiave (PEM)",
                              "a request signed by its own key (PEM)"));
    }
    if (record.publicKeyDigest != keyDigest(*publicKey)) {
        complaints.isNot(QStringLiteral("publicKeySha256"),
                         Text("quello della chiave nella richiesta", "that of the request's key"));
    }
    if (record.state == RecordState::issued && !isCertificateFor(*publicKey, record.certificate)) {
        complaints.isNot(QStringLiteral("certificate"),
                         Text("un certificato per la chiave della richiesta (PEM)",
                              "a certificate for the request's key (PEM)"));
    }
}

// `fields` over what the field held before, so that unknown fields in it stay.
void setInside(QJsonObject& root, const char* name,
               std::initializer_list<std::pair<const char*, QJsonValue>> fields)
{
    QJsonObject inside = root.value(QLatin1String(name)).toObject();
    for (const auto& [key, value] : fields) {
        inside.insert(QLatin1String(key), value);
    }
    root.insert(QLatin1String(name), inside);
}

}  // namespace

RenewalRecord recordOfRequest(const QByteArray& requestPem, const QDateTime& now)
{
    const std::optional<QByteArray> publicKey = requestPublicKey(requestPem);
    if (!publicKey) {
        throw Stop(ExitCode::requestFailed,
                   Text("Ciò che la carta ha dato non è una richiesta di certificato valida.",
                        "What the card gave is no valid certificate request."));
    }
    RenewalRecord record;
    record.request = requestPem;
    record.publicKeyDigest = keyDigest(*publicKey);
    record.requestedAt = wholeSeconds(now);
    record.changedAt = record.requestedAt;
    return record;
}

void keepCertificate(RenewalRecord& record, const QByteArray& certificatePem, const QDateTime& now)
{
    const std::optional<QByteArray> publicKey = requestPublicKey(record.request);
    if (!publicKey || !isCertificateFor(*publicKey, certificatePem)) {
        throw Stop(ExitCode::certificateRefused,
                   Text("La sua chiave pubblica non è quella della richiesta.",
                        "Its public key is not the one in the request."));
    }
    record.certificate = certificatePem;
    record.state = RecordState::issued;
    record.changedAt = wholeSeconds(now);
}

QByteArray toJson(const RenewalRecord& record)
{
    const auto textOrNull = [](const QString& text) {
        return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
    };
    QJsonObject root = record.asRead;
    const std::initializer_list<std::pair<const char*, QJsonValue>> fields = {
        {"schema", schemaName},
        {"version", schemaVersion},
        {"state", nameIn(stateNames, record.state)},
        {"requestedAt", record.requestedAt.toUTC().toString(Qt::ISODate)},
        {"changedAt", record.changedAt.toUTC().toString(Qt::ISODate)},
        {"kind", nameIn(kindNames, record.kind)},
        {"publicKeySha256", record.publicKeyDigest},
        {"request", QString::fromLatin1(record.request)},
        {"reader", record.reader},
        {"policy", record.policy},
        {"expectedEnd", textOrNull(record.expectedEnd.toString(Qt::ISODate))},
        {"certificate", textOrNull(QString::fromLatin1(record.certificate))},
    };
    for (const auto& [name, value] : fields) {
        root.insert(QLatin1String(name), value);
    }
    setInside(root, "replaces",
              {{"issuer", record.replaces.issuer},
               {"serialNumber", record.replaces.serialNumber},
               {"holder", record.replaces.holder}});
    setInside(root, "token",
              {{"model", record.token.model}, {"serialNumber", record.token.serialNumber}});
    setInside(root, "authority",
              {{"way", record.authority.name}, {"state", record.authority.state}});
    return QJsonDocument(root).toJson();
}

RenewalRecord recordFromJson(const QByteArray& json, const QString& path)
{
    const Complaints complaints(path);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError) {
        complaints.noJson(error.errorString());
    }
    if (!document.isObject()) {
        complaints.unusable(Text("non contiene un oggetto JSON", "it holds no JSON object"));
    }
    RenewalRecord record;
    record.asRead = document.object();
    requireSchema(record.asRead, complaints);

    const Fields fields(record.asRead, {}, complaints);
    record.state = fields.oneOf("state", stateNames);
    record.requestedAt = fields.time("requestedAt");
    record.changedAt = fields.time("changedAt");
    record.kind = fields.oneOf("kind", kindNames);
    record.publicKeyDigest = fields.text("publicKeySha256");
    record.request = fields.text("request").toUtf8();
    record.reader = fields.text("reader");
    record.policy = fields.text("policy");
    record.expectedEnd = fields.dateOrNull("expectedEnd");
    const bool hasCertificate = !fields.isNull("certificate");
    if (hasCertificate != (record.state == RecordState::issued)) {
        complaints.certificateAndStateDiffer();
    }
    if (hasCertificate) {
        record.certificate = fields.text("certificate").toUtf8();
    }
    const Fields replaces = fields.inside("replaces");
    record.replaces = {replaces.text("issuer"), replaces.text("serialNumber"),
                       replaces.text("holder")};
    const Fields token = fields.inside("token");
    record.token = {token.text("model"), token.text("serialNumber")};
    const Fields authority = fields.inside("authority");
    record.authority = {authority.text("way"), authority.object("state")};

    requireOneKey(record, complaints);
    return record;
}

QString keyDigest(const QByteArray& subjectPublicKeyInfo)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(subjectPublicKeyInfo, QCryptographicHash::Sha256).toHex());
}

std::optional<RenewalRecord> recordForKey(const std::vector<RenewalRecord>& records,
                                          const QByteArray& subjectPublicKeyInfo)
{
    const QString digest = keyDigest(subjectPublicKeyInfo);
    const auto found =
        std::find_if(records.begin(), records.end(), [&digest](const RenewalRecord& record) {
            return record.publicKeyDigest == digest;
        });
    return found != records.end() ? std::make_optional(*found) : std::nullopt;
}

std::vector<RenewalRecord> recordsReplacing(const std::vector<RenewalRecord>& records,
                                            const QString& issuer, const QString& serialNumber)
{
    std::vector<RenewalRecord> found;
    std::copy_if(records.begin(), records.end(), std::back_inserter(found),
                 [&](const RenewalRecord& record) {
                     return record.replaces.issuer == issuer &&
                            record.replaces.serialNumber == serialNumber;
                 });
    return found;
}

void sortByAge(std::vector<RenewalRecord>& records)
{
    std::sort(records.begin(), records.end(),
              [](const RenewalRecord& one, const RenewalRecord& other) {
                  return std::tie(one.requestedAt, one.publicKeyDigest) <
                         std::tie(other.requestedAt, other.publicKeyDigest);
              });
}

}  // namespace console
