#include "hosts/console/reader_answer.h"

#include "hosts/console/json_answer.h"
#include "hosts/console/pin_tries.h"
#include "hosts/console/reader_findings.h"
#include "hosts/console/text_layout.h"

#include <QStringList>

#include <algorithm>
#include <utility>

namespace console {

namespace {

constexpr int labelIndent = 2;
// The longest ATR, 66 digits, fits beside it.
constexpr int valueColumn = 12;
constexpr int severityColumn = 14;

template <typename Value>
struct NameRow {
    Value value;
    const char* json;
    Text text;
};

constexpr NameRow<ServiceState> serviceNames[] = {
    {ServiceState::running, "running", {"attivo", "running"}},
    {ServiceState::stopped, "stopped", {"fermo", "stopped"}},
    {ServiceState::refusing, "refusing", {"nega l'accesso", "refusing"}},
    {ServiceState::failing, "failing", {"in errore", "failing"}},
};
constexpr NameRow<ReaderKind> kindNames[] = {
    {ReaderKind::pcsc, "pcsc", {"lettore di smart card", "smart card reader"}},
    {ReaderKind::software, "software", {"carta software", "software card"}},
};
constexpr NameRow<CardState> cardNames[] = {
    {CardState::absent, "absent", {"assente", "absent"}},
    {CardState::present, "present", {"presente", "present"}},
    {CardState::mute, "mute", {"non risponde", "does not answer"}},
    {CardState::exclusive, "exclusive", {"presa da un altro programma", "held by another program"}},
};
constexpr NameRow<MatchReason> matchNames[] = {
    {MatchReason::none, "none", {"nessuna voce della tabella", "no entry of the table"}},
    {MatchReason::atr, "atr", {"stesso ATR", "equal ATR"}},
    {MatchReason::maskedAtr,
     "masked-atr",
     {"stesso ATR dove la maschera lo chiede", "equal ATR where its mask asks for it"}},
    {MatchReason::token, "token", {"stesso produttore e modello", "same manufacturer and model"}},
    {MatchReason::otherCards,
     "default",
     {"voce per tutte le altre carte", "entry for all other cards"}},
};
constexpr NameRow<PinTries> triesNames[] = {
    {PinTries::notLow, "not-low", {"nessun PIN sbagliato", "no wrong PIN"}},
    {PinTries::low, "low", {"pochi", "few"}},
    {PinTries::last, "last", {"l'ultimo", "the last"}},
    {PinTries::locked, "locked", {"bloccato", "blocked"}},
};
constexpr NameRow<Severity> severityNames[] = {
    {Severity::ok, "ok", {"va bene", "ok"}},
    {Severity::warning, "warning", {"attenzione", "warning"}},
    {Severity::problem, "problem", {"problema", "problem"}},
};

struct FlagRow {
    unsigned long flag;
    const char* json;
};

// PKCS#11 v2.40, CK_TOKEN_INFO.
constexpr FlagRow flagNames[] = {
    {0x1, "rng"},
    {0x2, "write-protected"},
    {0x4, "login-required"},
    {0x8, "user-pin-initialized"},
    {0x20, "restore-key-not-needed"},
    {0x40, "clock-on-token"},
    {0x100, "protected-authentication-path"},
    {0x200, "dual-crypto-operations"},
    {0x400, "token-initialized"},
    {0x800, "secondary-authentication"},
    {0x10000, "user-pin-count-low"},
    {0x20000, "user-pin-final-try"},
    {0x40000, "user-pin-locked"},
    {0x80000, "user-pin-to-be-changed"},
    {0x100000, "so-pin-count-low"},
    {0x200000, "so-pin-final-try"},
    {0x400000, "so-pin-locked"},
    {0x800000, "so-pin-to-be-changed"},
    {0x1000000, "error-state"},
};

template <typename Value, std::size_t size>
const NameRow<Value>& nameOf(const NameRow<Value> (&rows)[size], Value value)
{
    for (const NameRow<Value>& row : rows) {
        if (row.value == value) {
            return row;
        }
    }
    return rows[0];
}

template <typename Value, std::size_t size>
QJsonValue nameOrNull(const NameRow<Value> (&rows)[size], std::optional<Value> value)
{
    return value ? QJsonValue(QString::fromUtf8(nameOf(rows, *value).json)) : QJsonValue();
}

template <typename Value>
QJsonValue valueOrNull(std::optional<Value> value)
{
    return value ? QJsonValue(*value) : QJsonValue();
}

// JSON has no integers beyond 53 bits; slots and flags of some modules use all 64.
QJsonValue wideOrNull(std::optional<long> value)
{
    return value ? QJsonValue(static_cast<qint64>(*value)) : QJsonValue();
}

QJsonValue flagsOf(const TokenDiagnosis& token)
{
    if (!token.flags) {
        return {};
    }
    QJsonArray names;
    for (const FlagRow& row : flagNames) {
        if (token.has(row.flag)) {
            names.append(QString::fromUtf8(row.json));
        }
    }
    return names;
}

QJsonValue tokenObject(const TokenDiagnosis& token)
{
    if (!token.isTold()) {
        return {};
    }
    return QJsonObject{{QStringLiteral("label"), textOrNull(token.label)},
                       {QStringLiteral("manufacturer"), textOrNull(token.manufacturer)},
                       {QStringLiteral("model"), textOrNull(token.model)},
                       {QStringLiteral("serialNumber"), textOrNull(token.serialNumber)},
                       {QStringLiteral("flags"), flagsOf(token)},
                       {QStringLiteral("isActivated"), valueOrNull(token.isActivated)},
                       {QStringLiteral("pinTries"), nameOrNull(triesNames, token.pinTries)},
                       {QStringLiteral("pinTriesLeft"), valueOrNull(token.pinTriesLeft)}};
}

QJsonValue errorObject(const std::optional<ToldError>& error)
{
    if (!error) {
        return {};
    }
    const std::optional<long> number =
        error->number != 0 ? std::make_optional(error->number) : std::nullopt;
    return QJsonObject{{QStringLiteral("number"), wideOrNull(number)},
                       {QStringLiteral("text"), textOrNull(error->text)}};
}

QJsonArray obstacleArray(const Diagnosis& diagnosis)
{
    QJsonArray array;
    for (const Obstacle& obstacle : diagnosis.obstacles) {
        array.append(QJsonObject{{QStringLiteral("module"), textOrNull(obstacle.module)},
                                 {QStringLiteral("error"), errorObject(obstacle.error)}});
    }
    return array;
}

// A label and a value that goes on below itself.
QString labelled(const QString& label, const QString& value, int column)
{
    const QString head = fitted(QString(labelIndent, QLatin1Char(' ')) + label, column);
    return head + wrapped(value, column).mid(column);
}

QString line(const Text& label, const QString& value)
{
    return labelled(label, value, valueColumn);
}

void appendKnown(QStringList& lines, const Text& label, const QString& value)
{
    if (!value.isEmpty()) {
        lines.append(line(label, printable(value)));
    }
}

QString moduleText(const EntryDiagnosis& entry)
{
    return entry.moduleFile.isEmpty() || entry.moduleFile == entry.module
               ? entry.module
               : QStringLiteral("%1 (%2)").arg(entry.module, entry.moduleFile);
}

QString matchText(const EntryDiagnosis& entry)
{
    if (!entry.match) {
        return {};
    }
    QString why = nameOf(matchNames, *entry.match).text;
    if (*entry.match == MatchReason::none || !entry.line) {
        return why;
    }
    return Text("riga %1, %2", "line %1, %2").arg(QString::number(*entry.line), why);
}

QStringList entryLines(const EntryDiagnosis& entry)
{
    QStringList lines;
    appendKnown(lines, Text("Modello", "Model"), entry.modelName);
    appendKnown(lines, Text("Modulo", "Module"), moduleText(entry));
    appendKnown(lines, Text("Voce", "Entry"), matchText(entry));
    if (entry.isCns == true) {
        lines.append(line(Text("CNS", "CNS"), Text("sì", "yes")));
    }
    return lines;
}

QStringList tokenLines(const TokenDiagnosis& token)
{
    QStringList lines;
    QStringList identity = {token.label, token.manufacturer, token.model};
    identity.removeAll(QString());
    appendKnown(lines, Text("Carta", "Card"), identity.join(QStringLiteral(", ")));
    appendKnown(lines, Text("Serie", "Serial"), token.serialNumber);
    if (token.isActivated) {
        lines.append(line(Text("Attiva", "Active"),
                          *token.isActivated ? Text("sì", "yes") : Text("no", "no")));
    }
    if (token.isTold()) {
        lines.append(line(Text("PIN", "PIN"), pinTriesSentence(token.pinTries)));
    }
    return lines;
}

// What is so, and below it how to mend it.
QStringList stateLines(const ReaderDiagnosis& reader)
{
    QStringList lines;
    for (const Finding& finding : findingsOf(reader)) {
        lines.append(line(Text("Stato", "State"), finding.whatOfSubject()));
        if (!finding.cure().isEmpty()) {
            lines.append(wrapped(finding.cure(), valueColumn));
        }
    }
    return lines;
}

}  // namespace

QJsonObject entryObject(const EntryDiagnosis& entry)
{
    const bool isThere = entry.match && *entry.match != MatchReason::none;
    return {{QStringLiteral("match"), nameOrNull(matchNames, entry.match)},
            // Of "[default]" the title is empty.
            {QStringLiteral("title"), isThere ? QJsonValue(entry.title) : QJsonValue()},
            {QStringLiteral("line"), valueOrNull(entry.line)},
            {QStringLiteral("modelName"), textOrNull(entry.modelName)},
            {QStringLiteral("module"), textOrNull(entry.module)},
            {QStringLiteral("moduleFile"), textOrNull(entry.moduleFile)},
            {QStringLiteral("isCns"), valueOrNull(entry.isCns)},
            {QStringLiteral("isFerrolux"), valueOrNull(entry.isFerrolux)}};
}

QJsonObject readerObject(const ReaderDiagnosis& reader)
{
    return {{QStringLiteral("name"), reader.name},
            {QStringLiteral("kind"), nameOrNull(kindNames, reader.kind)},
            {QStringLiteral("card"), nameOrNull(cardNames, reader.card)},
            {QStringLiteral("atr"), textOrNull(reader.atr)},
            {QStringLiteral("entry"), entryObject(reader.entry)},
            {QStringLiteral("isModuleLoaded"), valueOrNull(reader.isModuleLoaded)},
            {QStringLiteral("slotCount"), valueOrNull(reader.slotCount)},
            {QStringLiteral("slot"), wideOrNull(reader.slot)},
            {QStringLiteral("token"), tokenObject(reader.token)},
            {QStringLiteral("error"), errorObject(reader.error)},
            {QStringLiteral("findings"), findingArray(findingsOf(reader))}};
}

QJsonObject findingObject(const Finding& finding)
{
    return {{QStringLiteral("id"), QString::fromUtf8(rowOf(finding.id).name)},
            {QStringLiteral("severity"),
             QString::fromUtf8(nameOf(severityNames, finding.severity).json)},
            {QStringLiteral("subject"), textOrNull(finding.subject)},
            {QStringLiteral("text"), finding.what()},
            {QStringLiteral("cure"), textOrNull(finding.cure())}};
}

QJsonArray findingArray(const std::vector<Finding>& findings)
{
    QJsonArray array;
    for (const Finding& finding : findings) {
        array.append(findingObject(finding));
    }
    return array;
}

QJsonObject tableObject(const Diagnosis& diagnosis)
{
    return {{QStringLiteral("isDescribed"), diagnosis.isTold},
            {QStringLiteral("atrTable"), textOrNull(diagnosis.tablePath)},
            {QStringLiteral("tableMistakes"), QJsonArray::fromStringList(diagnosis.complaints)},
            {QStringLiteral("obstacles"), obstacleArray(diagnosis)}};
}

QJsonObject surroundingsObject(const Diagnosis& diagnosis)
{
    QJsonObject object = tableObject(diagnosis);
    object.insert(QStringLiteral("pcscService"), nameOrNull(serviceNames, diagnosis.service));
    return object;
}

QString entryScreen(const EntryDiagnosis& entry)
{
    return entryLines(entry).join(QLatin1Char('\n'));
}

QString readerScreen(const ReaderDiagnosis& reader)
{
    QStringList lines = {wrapped(printable(reader.name))};
    lines += stateLines(reader);
    if (reader.kind) {
        lines.append(line(Text("Tipo", "Kind"), nameOf(kindNames, *reader.kind).text));
    }
    lines += tokenLines(reader.token);
    appendKnown(lines, Text("ATR", "ATR"), reader.atr);
    lines += entryLines(reader.entry);
    return lines.join(QLatin1Char('\n'));
}

QString findingScreen(const std::vector<Finding>& findings)
{
    QStringList lines;
    for (const Finding& finding : findings) {
        lines.append(
            labelled(nameOf(severityNames, finding.severity).text, finding.what(), severityColumn));
        const QString cure = finding.cure();
        if (!cure.isEmpty()) {
            lines.append(wrapped(cure, severityColumn));
        }
    }
    return lines.join(QLatin1Char('\n'));
}

QString mendingScreen(std::vector<Finding> findings)
{
    findings.erase(
        std::remove_if(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.severity == Severity::ok; }),
        findings.end());
    return findingScreen(findings);
}

}  // namespace console
