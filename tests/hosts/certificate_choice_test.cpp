#include "hosts/console/certificate_choice.h"
#include "hosts/console/exit_code.h"
#include "tests/support/printing.h"

#include <QByteArray>

#include <gtest/gtest.h>
#include <unistd.h>

using namespace console;

namespace {

// Standard input holds the given text while it lives; standard output goes nowhere.
class Answers {
public:
    explicit Answers(const QByteArray& text)
        : m_savedInput(::dup(STDIN_FILENO))
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe(ends), 0);
        EXPECT_EQ(::write(ends[1], text.constData(), static_cast<size_t>(text.size())),
                  static_cast<ssize_t>(text.size()));
        ::close(ends[1]);
        ::dup2(ends[0], STDIN_FILENO);
        ::close(ends[0]);
    }
    ~Answers()
    {
        ::dup2(m_savedInput, STDIN_FILENO);
        ::close(m_savedInput);
    }
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;
    Answers(Answers&&) = delete;
    Answers& operator=(Answers&&) = delete;

private:
    int m_savedInput;
};

std::vector<CertificateEntry> entries(std::initializer_list<Verdict> verdicts)
{
    std::vector<CertificateEntry> result;
    for (const Verdict verdict : verdicts) {
        CertificateEntry entry;
        entry.number = static_cast<int>(result.size()) + 1;
        entry.row = QStringLiteral("AUT: %1").arg(entry.number);
        entry.renewalId = QStringLiteral("id%1").arg(entry.number);
        entry.verdict = verdict;
        entry.verdictText = QStringLiteral("verdict");
        result.push_back(entry);
    }
    return result;
}

using Numbers = std::vector<int>;

Numbers numbers(const std::vector<CertificateEntry>& list)
{
    Numbers result;
    for (const CertificateEntry& entry : list) {
        result.push_back(entry.number);
    }
    return result;
}

ExitCode stopCode(const std::vector<CertificateEntry>& list, const QString& wanted, bool mayAsk)
{
    try {
        chooseCertificates(list, wanted, mayAsk);
    } catch (const Stop& stop) {
        return stop.code();
    }
    return ExitCode::done;
}

}  // namespace

TEST(CertificateChoice, onlyOneCanBeRenewed_isTakenUnasked)
{
    const auto list = entries({Verdict::expired, Verdict::toRenew, Verdict::notYetDue});
    EXPECT_EQ(numbers(chooseCertificates(list, QString(), true)), (Numbers{2}));
}

TEST(CertificateChoice, named_isFoundByNumberRowOrIdentifier)
{
    const auto list = entries({Verdict::toRenew, Verdict::recovery});
    for (const char* name : {"2", "AUT: 2", "id2"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(numbers(chooseCertificates(list, QString::fromUtf8(name), false)), (Numbers{2}));
    }
}

TEST(CertificateChoice, noChoicePossible_stops)
{
    const auto none = entries({Verdict::expired, Verdict::otherAuthority});
    const auto two = entries({Verdict::toRenew, Verdict::toRenew});
    EXPECT_EQ(stopCode({}, QString(), true), ExitCode::nothingToRenew);
    EXPECT_EQ(stopCode(none, QString(), true), ExitCode::nothingToRenew);
    EXPECT_EQ(stopCode(none, QStringLiteral("1"), true), ExitCode::nothingToRenew);
    EXPECT_EQ(stopCode(two, QStringLiteral("3"), true), ExitCode::choiceNeeded);
    EXPECT_EQ(stopCode(two, QString(), false), ExitCode::choiceNeeded);
}

TEST(CertificateChoice, several_areAskedUntilAnAnswerFits)
{
    const auto list = entries({Verdict::toRenew, Verdict::expired, Verdict::toRenew});
    const Answers answers("7\n2\n 3 \n1\n");
    EXPECT_EQ(numbers(chooseCertificates(list, QString(), true)), (Numbers{3}));
    EXPECT_EQ(numbers(chooseCertificates(list, QString(), true)), (Numbers{1}));
}

TEST(CertificateChoice, allAmongSeveral_areThoseToBeRenewed)
{
    const auto list = entries({Verdict::toRenew, Verdict::recovery, Verdict::toRenew});
    for (const char* text : {"all\n", " Tutti\n"}) {
        SCOPED_TRACE(text);
        const Answers answers(text);
        EXPECT_EQ(numbers(chooseCertificates(list, QString(), true)), (Numbers{1, 3}));
    }
    // One that is due and one to recover: "all" would leave out the second.
    const Answers answers("all\n2\n");
    EXPECT_EQ(numbers(chooseCertificates(entries({Verdict::toRenew, Verdict::recovery}), QString(),
                                         true)),
              (Numbers{2}));
}

TEST(CertificateChoice, emptyLineOrEndOfInput_isDeclined)
{
    const auto list = entries({Verdict::toRenew, Verdict::toRenew});
    for (const char* text : {"\n1\n", ""}) {
        const Answers answers(text);
        EXPECT_EQ(stopCode(list, QString(), true), ExitCode::declined);
    }
}

TEST(Confirmation, onlyAClearYes_isYes)
{
    struct Row {
        const char* answer;
        bool yes;
    };
    const Row cases[] = {{"y\n", true}, {"YES\n", true},   {" si \n", true},
                         {"S\n", true}, {"n\n", false},    {"\n", false},
                         {"", false},   {"yess\n", false}, {"yes", true}};
    for (const Row& row : cases) {
        SCOPED_TRACE(row.answer);
        const Answers answers(row.answer);
        EXPECT_EQ(confirmed(QStringLiteral("Go on?")), row.yes);
    }
}
