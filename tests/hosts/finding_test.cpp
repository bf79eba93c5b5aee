// The table of findings, and what a diagnosis means.

#include "hosts/console/finding.h"
#include "hosts/console/machine_findings.h"
#include "hosts/console/reader_findings.h"
#include "hosts/console/reference/finding_page.h"

#include <QFile>
#include <QRegularExpression>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

using namespace console;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string contentOf(const char* path)
{
    QFile file(QStringLiteral(TARVELOQT_SOURCE_DIR "/") + QString::fromLatin1(path));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path;
    return file.readAll().toStdString();
}

std::vector<std::string> namesOf(const std::vector<Finding>& findings, Severity severity)
{
    std::vector<std::string> names;
    for (const Finding& finding : findings) {
        if (finding.severity == severity) {
            names.emplace_back(rowOf(finding.id).name);
        }
    }
    return names;
}

// A card that can be used, in a reader of this name.
ReaderDiagnosis usableReader(const QString& name)
{
    ReaderDiagnosis reader;
    reader.name = name;
    reader.card = CardState::present;
    reader.entry.match = MatchReason::atr;
    reader.isModuleLoaded = true;
    reader.slotCount = 1;
    reader.token.flags = token_flag::tokenInitialised | token_flag::userPinInitialised;
    reader.token.isActivated = true;
    reader.token.pinTries = PinTries::notLow;
    return reader;
}

ReaderDiagnosis failingReader(const QString& name, long number, const QString& text)
{
    ReaderDiagnosis reader = usableReader(name);
    reader.token = {};
    reader.error = ToldError{number, text};
    return reader;
}

QDateTime noonOf(int year, int month, int day)
{
    return {QDate(year, month, day), QTime(12, 0)};
}

}  // namespace

TEST(FindingTable, everyIdentifier_hasOneRowWithItsOwnName)
{
    std::set<FindingId> ids;
    std::set<std::string> names;
    const QRegularExpression kebab(QStringLiteral("^[a-z0-9]+(-[a-z0-9]+)*$"));
    for (const FindingRow& row : findingRows()) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(ids.insert(row.id).second);
        EXPECT_TRUE(names.insert(row.name).second);
        EXPECT_TRUE(kebab.match(QString::fromLatin1(row.name)).hasMatch());
    }
    EXPECT_EQ(ids.size(), static_cast<std::size_t>(lastFindingId) + 1);
}

TEST(FindingTable, bothLanguages_sayOfTheSameThingsAndMendWhatIsNotWell)
{
    for (const FindingRow& row : findingRows()) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.cure.has_value(), row.severity != Severity::ok);
        const QString italian = row.what.in(Language::italian);
        const QString english = row.what.in(Language::english);
        EXPECT_NE(italian, english);
        for (const char* place : {"%1", "%2"}) {
            EXPECT_EQ(italian.contains(QLatin1String(place)),
                      english.contains(QLatin1String(place)));
        }
        if (row.cure) {
            EXPECT_NE(row.cure->in(Language::italian), row.cure->in(Language::english));
        }
    }
}

TEST(FindingTable, everyFinding_isReachedByATest)
{
    const std::string tests = contentOf("tests/hosts/doctor_test.cpp") +
                              contentOf("tests/hosts/doctor_readers_test.cpp") +
                              contentOf("tests/hosts/finding_test.cpp");
    for (const FindingRow& row : findingRows()) {
        EXPECT_NE(tests.find(std::string("\"") + row.name + "\""), std::string::npos) << row.name;
    }
}

TEST(FindingTable, page_isTheTable)
{
    EXPECT_EQ(contentOf("docs/doctor.md"), reference::findingPage())
        << "build the target doctor-page";
}

TEST(Finding, subjectThatLooksLikeAPlace_staysAsItIs)
{
    setLanguage(Language::english);
    const Finding finding(FindingId::cardUnknown, QStringLiteral("Reader %2"),
                          QStringLiteral("%1\x1b[2J"));
    EXPECT_EQ(finding.what().toStdString(),
              "Reader %2: the card is not in the table of cards (ATR %1?[2J).");
    EXPECT_EQ(finding.whatOfSubject().toStdString(),
              "The card is not in the table of cards (ATR %1?[2J).");
}

TEST(ReaderFindings, errorsOfTheCardLibraries_haveFindingsOfTheirOwn)
{
    const struct {
        long number;
        const char* finding;
    } rows[] = {
        {card_error::readerAmbiguous, "reader-ambiguous"},
        {card_error::slotNotFound, "slot-not-found"},
        {card_error::slotAmbiguous, "slot-ambiguous"},
        {0x30, "card-unusable"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.finding);
        const ReaderDiagnosis reader =
            failingReader(QStringLiteral("Lettore"), row.number, QStringLiteral("Guasto."));
        EXPECT_THAT(namesOf(findingsOf(reader), Severity::problem), ElementsAre(row.finding));
    }
}

TEST(ReaderFindings, tableThatCannotBeUsed_isNotRepeatedForEachReader)
{
    EXPECT_THAT(
        findingsOf(failingReader(QStringLiteral("Lettore"), card_error::tableUnreadable, {})),
        IsEmpty());
}

TEST(ReaderFindings, oneCardCanBeUsed_otherReadersOnlyWarn)
{
    Diagnosis diagnosis;
    diagnosis.isTold = true;
    diagnosis.service = ServiceState::running;
    diagnosis.readers = {usableReader(QStringLiteral("Uno")),
                         failingReader(QStringLiteral("Due"), card_error::slotNotFound, {})};
    const DiagnosisFindings open = findingsOf(diagnosis, {});
    EXPECT_THAT(namesOf(open.readers, Severity::ok), ElementsAre("reader-ready"));
    EXPECT_THAT(namesOf(open.readers, Severity::warning), ElementsAre("slot-not-found"));

    const DiagnosisFindings named = findingsOf(diagnosis, QStringLiteral("Due"));
    EXPECT_THAT(namesOf(named.readers, Severity::problem), ElementsAre("slot-not-found"));
    EXPECT_THAT(namesOf(named.readers, Severity::ok), IsEmpty());
}

TEST(ReaderFindings, softwareModuleMissing_onlyWarnsWhereThereIsASmartCardReader)
{
    Diagnosis diagnosis;
    diagnosis.isTold = true;
    diagnosis.service = ServiceState::running;
    diagnosis.obstacles = {
        {{card_error::moduleNotLoaded, QStringLiteral("Guasto.")}, QStringLiteral("softhsm2")}};
    EXPECT_THAT(namesOf(findingsOf(diagnosis, {}).surroundings, Severity::problem),
                ElementsAre("module-not-loaded"));

    ReaderDiagnosis empty;
    empty.name = QStringLiteral("Lettore");
    empty.kind = ReaderKind::pcsc;
    empty.card = CardState::absent;
    diagnosis.readers = {empty};
    const DiagnosisFindings findings = findingsOf(diagnosis, {});
    EXPECT_THAT(namesOf(findings.surroundings, Severity::warning),
                ElementsAre("module-not-loaded"));
    EXPECT_THAT(namesOf(findings.readers, Severity::problem), ElementsAre("no-card"));
}

TEST(ReaderFindings, nothingKnown_claimsNothing)
{
    EXPECT_THAT(findingsOf(ReaderDiagnosis()), IsEmpty());
}

TEST(ClockFinding, daysAroundTheLimits_areJudgedByTheDay)
{
    const QDateTime installed = noonOf(2026, 3, 10);
    const struct {
        QDateTime now;
        FindingId finding;
    } rows[] = {
        {noonOf(2026, 3, 8), FindingId::clockBehind},
        {noonOf(2026, 3, 9), FindingId::clockPlausible},
        {noonOf(2026, 3, 10), FindingId::clockPlausible},
        {noonOf(2046, 3, 10), FindingId::clockPlausible},
        {noonOf(2046, 3, 11), FindingId::clockAhead},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(clockFinding(row.now, installed).id, row.finding)
            << row.now.toString(Qt::ISODate).toStdString();
    }
}
