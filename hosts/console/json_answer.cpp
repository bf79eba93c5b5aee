#include "hosts/console/json_answer.h"

#include "hosts/console/arguments.h"

#include <card_v_func.h>

namespace console {

namespace {

constexpr int schemaVersion = 1;

}  // namespace

QJsonValue textOrNull(const QString& text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QJsonValue dateOrNull(QDate date)
{
    return date.isValid() ? QJsonValue(date.toString(Qt::ISODate)) : QJsonValue();
}

QJsonObject exitObject(const Stop& stop)
{
    const ExitCodeEntry& entry = entryOf(stop.code());
    return {{QStringLiteral("code"), static_cast<int>(stop.code())},
            {QStringLiteral("name"), QString::fromUtf8(entry.name)},
            {QStringLiteral("meaning"), entry.meaning.string()},
            {QStringLiteral("detail"), textOrNull(stop.detail())},
            {QStringLiteral("nextStep"), textOrNull(stop.nextStep())}};
}

QJsonObject documentHead(Command command, const Stop* stop)
{
    const Stop done(ExitCode::done);
    return {{QStringLiteral("schema"),
             QStringLiteral("tarvelo-renew/") + QString::fromUtf8(nameOf(command))},
            {QStringLiteral("version"), schemaVersion},
            {QStringLiteral("program"),
             QJsonObject{{QStringLiteral("name"), QStringLiteral("tarvelo-renew")},
                         {QStringLiteral("version"), versioneLibreria}}},
            {QStringLiteral("exit"), exitObject(stop != nullptr ? *stop : done)}};
}

QJsonObject cardObject(const QString& reader, const CardIdentity& identity)
{
    return {{QStringLiteral("reader"), reader},
            {QStringLiteral("manufacturer"), textOrNull(identity.manufacturer)},
            {QStringLiteral("model"), textOrNull(identity.model)},
            {QStringLiteral("serialNumber"), textOrNull(identity.serialNumber)},
            {QStringLiteral("module"), textOrNull(identity.module)},
            {QStringLiteral("isCns"), identity.isCns}};
}

QJsonObject renewalObject(const RenewalRecord& record)
{
    return {
        {QStringLiteral("id"), record.publicKeyDigest},
        {QStringLiteral("kind"), jsonName(record.kind)},
        {QStringLiteral("state"), jsonName(record.state)},
        {QStringLiteral("holder"), textOrNull(record.replaces.holder)},
        {QStringLiteral("replaces"),
         QJsonObject{{QStringLiteral("issuer"), textOrNull(record.replaces.issuer)},
                     {QStringLiteral("serialNumber"), textOrNull(record.replaces.serialNumber)}}},
        {QStringLiteral("reader"), textOrNull(record.reader)},
        {QStringLiteral("tokenSerialNumber"), textOrNull(record.token.serialNumber)},
        {QStringLiteral("policy"), textOrNull(record.policy)},
        {QStringLiteral("expectedEnd"), dateOrNull(record.expectedEnd)},
        {QStringLiteral("requestedAt"), record.requestedAt.toString(Qt::ISODate)},
        {QStringLiteral("request"), QString::fromLatin1(record.request)}};
}

QString jsonName(RecordState state)
{
    switch (state) {
    case RecordState::requested:
        return QStringLiteral("requested");
    case RecordState::submitted:
        return QStringLiteral("submitted");
    case RecordState::deferred:
        return QStringLiteral("deferred");
    case RecordState::issued:
        break;
    }
    return QStringLiteral("issued");
}

QString jsonName(Kind kind)
{
    switch (kind) {
    case Kind::authentication:
        return QStringLiteral("authentication");
    case Kind::signature:
        return QStringLiteral("signature");
    case Kind::cns:
        break;
    }
    return QStringLiteral("cns");
}

QString jsonName(Verdict verdict)
{
    switch (verdict) {
    case Verdict::toRenew:
        return QStringLiteral("to-renew");
    case Verdict::notYetDue:
        return QStringLiteral("not-yet-due");
    case Verdict::expired:
        return QStringLiteral("expired");
    case Verdict::otherAuthority:
        return QStringLiteral("other-authority");
    case Verdict::recovery:
        return QStringLiteral("recovery");
    case Verdict::otherReason:
        break;
    }
    return QStringLiteral("other-reason");
}

QJsonObject certificateObject(const CertificateEntry& entry, QDate today)
{
    const bool isDated = entry.validUntil.isValid();
    return {{QStringLiteral("number"), entry.number},
            {QStringLiteral("row"), entry.row},
            {QStringLiteral("kind"), jsonName(entry.kind)},
            {QStringLiteral("kindName"), entry.kindName},
            {QStringLiteral("holder"), textOrNull(entry.holder)},
            {QStringLiteral("issuer"), textOrNull(entry.issuer)},
            {QStringLiteral("serialNumber"), textOrNull(entry.serialNumber)},
            {QStringLiteral("renewalId"), textOrNull(entry.renewalId)},
            {QStringLiteral("pendingKey"), textOrNull(entry.pendingKey)},
            {QStringLiteral("policy"), textOrNull(entry.policy)},
            {QStringLiteral("validUntil"), dateOrNull(entry.validUntil)},
            {QStringLiteral("daysLeft"),
             isDated ? QJsonValue(today.daysTo(entry.validUntil)) : QJsonValue()},
            {QStringLiteral("verdict"), jsonName(entry.verdict)},
            {QStringLiteral("verdictText"), entry.verdictText},
            {QStringLiteral("canBeRenewed"), entry.canBeChosen()},
            {QStringLiteral("expectedEnd"), dateOrNull(dateOf(entry.expectedEnd))}};
}

QJsonArray certificateArray(const std::vector<CertificateEntry>& entries, QDate today)
{
    QJsonArray array;
    for (const CertificateEntry& entry : entries) {
        array.append(certificateObject(entry, today));
    }
    return array;
}

}  // namespace console
