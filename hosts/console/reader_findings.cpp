#include "hosts/console/reader_findings.h"

#include "hosts/console/machine_findings.h"
#include "hosts/console/module_findings.h"

#include <QFileInfo>

#include <algorithm>
#include <iterator>

namespace console {

namespace {

using Findings = std::vector<Finding>;

bool holdsProblem(const Findings& findings)
{
    return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.severity == Severity::problem;
    });
}

void append(Findings& all, Findings more)
{
    all.insert(all.end(), std::make_move_iterator(more.begin()),
               std::make_move_iterator(more.end()));
}

void demote(Findings& findings)
{
    for (Finding& finding : findings) {
        finding.severity = std::min(finding.severity, Severity::warning);
    }
}

std::optional<FindingId> cardFinding(const ReaderDiagnosis& reader)
{
    switch (reader.card.value_or(CardState::present)) {
    case CardState::absent:
        return FindingId::noCard;
    case CardState::mute:
        return FindingId::cardMute;
    case CardState::exclusive:
        return FindingId::cardInUse;
    case CardState::present:
        break;
    }
    return std::nullopt;
}

Finding errorFinding(const ReaderDiagnosis& reader, const ToldError& error)
{
    const bool isModuleSilent =
        reader.isModuleLoaded == true && !reader.slotCount && !reader.token.isTold();
    if (error.number == card_error::readerAmbiguous) {
        return Finding(FindingId::readerAmbiguous, reader.name);
    }
    if (error.number == card_error::slotNotFound) {
        return Finding(FindingId::slotNotFound, reader.name);
    }
    if (error.number == card_error::slotAmbiguous) {
        return Finding(FindingId::slotAmbiguous, reader.name);
    }
    if (isModuleSilent) {
        return failingModule(reader.entry.moduleFile, error.text);
    }
    return Finding(FindingId::cardUnusable, reader.name, error.text);
}

Findings tokenFindings(const ReaderDiagnosis& reader)
{
    const TokenDiagnosis& token = reader.token;
    const auto lacks = [&token](unsigned long flag) { return token.flags && !token.has(flag); };
    if (lacks(token_flag::tokenInitialised)) {
        return {Finding(FindingId::tokenNotInitialised, reader.name)};
    }
    if (token.pinTries == PinTries::locked) {
        return {Finding(FindingId::pinBlocked, reader.name)};
    }
    if (token.has(token_flag::userPinToBeChanged)) {
        return {Finding(FindingId::pinToBeChanged, reader.name)};
    }
    if (lacks(token_flag::userPinInitialised) || token.isActivated == false) {
        return {Finding(FindingId::notActivated, reader.name)};
    }
    if (token.has(token_flag::writeProtected)) {
        return {Finding(FindingId::writeProtected, reader.name)};
    }
    Findings findings = {Finding(FindingId::readerReady, reader.name)};
    if (token.pinTries == PinTries::last) {
        findings.emplace_back(FindingId::pinLastTry, reader.name);
    }
    if (token.pinTries == PinTries::low) {
        findings.emplace_back(FindingId::pinTriesLow, reader.name);
    }
    return findings;
}

Findings serviceFindings(const Diagnosis& diagnosis)
{
    if (!diagnosis.isTold) {
        return {Finding(FindingId::diagnosisUnavailable)};
    }
    if (!diagnosis.service) {
        return {};
    }
    switch (*diagnosis.service) {
    case ServiceState::stopped:
        return {
            Finding(isServiceInstalled() ? FindingId::serviceStopped : FindingId::serviceMissing)};
    case ServiceState::refusing:
        return {Finding(FindingId::serviceRefusing)};
    case ServiceState::failing:
        return {Finding(FindingId::serviceFailing)};
    case ServiceState::running:
        break;
    }
    return {Finding(FindingId::serviceRunning)};
}

bool isAboutTable(const Obstacle& obstacle)
{
    return obstacle.error.number == card_error::tableUnreadable;
}

// What serviceFindings tells already.
bool isAboutService(const Obstacle& obstacle)
{
    return obstacle.module.isEmpty() && obstacle.error.number >= card_error::serviceStopped &&
           obstacle.error.number <= card_error::serviceFailed;
}

// Where the file really lies: the name that leads there can be a link to an administrator's copy.
QString placeOf(const QString& file)
{
    const QString place = QFileInfo(file).canonicalFilePath();
    return place.isEmpty() ? file : place;
}

Findings tableFindings(const Diagnosis& diagnosis)
{
    Findings findings;
    if (std::any_of(diagnosis.obstacles.begin(), diagnosis.obstacles.end(), isAboutTable)) {
        findings.emplace_back(FindingId::tableUnreadable, placeOf(diagnosis.tablePath));
    } else if (!diagnosis.tablePath.isEmpty()) {
        findings.emplace_back(FindingId::tableUsable, placeOf(diagnosis.tablePath));
    }
    for (const QString& complaint : diagnosis.complaints) {
        findings.emplace_back(FindingId::tableMistake, complaint);
    }
    return findings;
}

Finding obstacleFinding(const Obstacle& obstacle)
{
    if (obstacle.module.isEmpty()) {
        return Finding(FindingId::cardLibraryFault, {}, obstacle.error.text);
    }
    if (obstacle.error.number != card_error::moduleNotLoaded) {
        return failingModule(obstacle.module, obstacle.error.text);
    }
    // Which file another name leads to is the card libraries' business.
    return obstacle.module.contains(QLatin1Char('/'))
               ? unloadableModule(obstacle.module, {})
               : Finding(FindingId::moduleNotLoaded, obstacle.module, obstacle.error.text);
}

Findings obstacleFindings(const Diagnosis& diagnosis)
{
    Findings findings;
    for (const Obstacle& obstacle : diagnosis.obstacles) {
        if (!isAboutTable(obstacle) && !isAboutService(obstacle)) {
            findings.push_back(obstacleFinding(obstacle));
        }
    }
    return findings;
}

bool hasSmartCardReader(const Diagnosis& diagnosis)
{
    return std::any_of(
        diagnosis.readers.begin(), diagnosis.readers.end(),
        [](const ReaderDiagnosis& reader) { return reader.kind == ReaderKind::pcsc; });
}

// The modules among the obstacles are those of software cards, and who has a reader seldom has one.
Findings surroundingsOf(const Diagnosis& diagnosis)
{
    Findings all = serviceFindings(diagnosis);
    append(all, tableFindings(diagnosis));
    Findings obstacles = obstacleFindings(diagnosis);
    if (hasSmartCardReader(diagnosis)) {
        demote(obstacles);
    }
    append(all, std::move(obstacles));
    return all;
}

// A service that does not run, or a diagnosis that failed, hides readers, and is told.
bool areAllReadersSeen(const Diagnosis& diagnosis)
{
    return !diagnosis.isTold || diagnosis.service == ServiceState::running;
}

struct ReaderJudgement {
    Findings findings;
    // Nothing between the program and the card's token: what keeps others from being reached is no
    // matter then.
    bool isReached = false;
};

ReaderJudgement judgementOf(const ReaderDiagnosis& reader)
{
    return {findingsOf(reader), !reader.error && reader.token.isTold()};
}

// Of the named reader, or of all.
std::vector<ReaderJudgement> judgements(const Diagnosis& diagnosis, const QString& wantedReader)
{
    if (!wantedReader.isEmpty()) {
        const ReaderDiagnosis* reader = diagnosis.find(wantedReader);
        if (reader == nullptr) {
            return {{{Finding(FindingId::readerNotFound, wantedReader)}}};
        }
        return {judgementOf(*reader)};
    }
    std::vector<ReaderJudgement> all;
    for (const ReaderDiagnosis& reader : diagnosis.readers) {
        all.push_back(judgementOf(reader));
    }
    if (all.empty() && areAllReadersSeen(diagnosis)) {
        all.push_back({{Finding(FindingId::noReader)}});
    }
    return all;
}

bool isUsable(const ReaderJudgement& judgement)
{
    return judgement.isReached && !holdsProblem(judgement.findings);
}

bool isEmptyReader(const Findings& findings)
{
    return findings.size() == 1 && findings.front().id == FindingId::noCard;
}

}  // namespace

std::vector<Finding> findingsOf(const ReaderDiagnosis& reader)
{
    if (const auto card = cardFinding(reader)) {
        return {Finding(*card, reader.name)};
    }
    if (reader.entry.match == MatchReason::none) {
        return {Finding(FindingId::cardUnknown, reader.name, reader.atr)};
    }
    if (reader.isModuleLoaded == false) {
        return {unloadableModule(reader.entry.module, reader.entry.moduleFile)};
    }
    if (reader.error) {
        // That the table cannot be used is told once, and not of each reader.
        return reader.error->number == card_error::tableUnreadable
                   ? Findings()
                   : Findings{errorFinding(reader, *reader.error)};
    }
    return reader.token.isTold() ? tokenFindings(reader) : Findings();
}

DiagnosisFindings findingsOf(const Diagnosis& diagnosis, const QString& wantedReader)
{
    std::vector<ReaderJudgement> readers = judgements(diagnosis, wantedReader);
    const bool isOneReached =
        std::any_of(readers.begin(), readers.end(),
                    [](const ReaderJudgement& reader) { return reader.isReached; });
    const bool isOneUsable = std::any_of(readers.begin(), readers.end(), isUsable);
    DiagnosisFindings all = {surroundingsOf(diagnosis), {}};
    if (isOneReached) {
        demote(all.surroundings);
    }
    for (ReaderJudgement& reader : readers) {
        if (isOneUsable && isEmptyReader(reader.findings)) {
            continue;
        }
        if (isOneUsable) {
            demote(reader.findings);
        }
        append(all.readers, std::move(reader.findings));
    }
    return all;
}

}  // namespace console
