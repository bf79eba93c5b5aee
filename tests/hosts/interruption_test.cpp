// A renewal ended by a signal, at every PKCS#11 call and while the authority works: it can always
// be finished, and the card is never left without a certificate or the means to get it. Each test
// prints the points that it tried.

#include "interrupted_card.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <tuple>

using hosts::InterruptedCard;

namespace {

const char* nameOf(int signal)
{
    return signal == SIGKILL ? "SIGKILL" : "SIGINT";
}

void printRow(const std::string& point, const std::string& state, const std::string& record,
              const std::string& finish)
{
    std::printf("  %-44s %-19s %-9s %s\n", point.c_str(), state.c_str(), record.c_str(),
                finish.c_str());
}

void printHeading(int signal)
{
    std::printf("%s\n", nameOf(signal));
    printRow("ended before", "on the card then", "record", "what finished it");
}

struct Row {
    int signal;
    // That the person uses next; empty for the guided run.
    const char* command;
    // Every so many calls.
    std::size_t stride;
};

// How the test is called in lists.
void PrintTo(const Row& row, std::ostream* stream)
{
    *stream << nameOf(row.signal) << ' ' << row.command << ' ' << row.stride;
}

constexpr Row ways[] = {
    {SIGKILL, "resume", 1},
    {SIGINT, "resume", 3},
    {SIGKILL, "renew", 3},
    {SIGKILL, "", 3},
};

// So that several run at the same time.
constexpr std::size_t parts = 4;

using Case = std::tuple<Row, std::size_t>;

std::string caseName(const testing::TestParamInfo<Case>& info)
{
    const auto& [row, part] = info.param;
    return std::string(nameOf(row.signal)) + "_" + (*row.command == '\0' ? "guided" : row.command) +
           "_part" + std::to_string(part + 1);
}

class EndedAtEveryCall : public testing::TestWithParam<Case> {
protected:
    InterruptedCard m_card;
};

class CardRemovedAtEveryCall : public testing::TestWithParam<std::size_t> {
protected:
    InterruptedCard m_card;
};

class EndedAtTheAuthority : public testing::TestWithParam<int> {
protected:
    std::string issue() const
    {
        return std::string(TARVELO_SOFTCARD) + " issue " + m_card.program().file("card") +
               " --not-after \"$1\"";
    }

    InterruptedCard m_card;
};

}  // namespace

TEST_P(EndedAtEveryCall, renewal_canBeFinished)
{
    const auto& [row, part] = GetParam();
    const std::vector<std::string> calls = m_card.callsOfRenewal();
    ASSERT_GT(calls.size(), 40U);
    printHeading(row.signal);
    std::size_t tried = 0;
    for (std::size_t i = part * row.stride; i < calls.size(); i += parts * row.stride) {
        const std::string point = "call " + std::to_string(i + 1) + " of " +
                                  std::to_string(calls.size()) + ", " + calls[i];
        SCOPED_TRACE(point);
        m_card.endBeforeCall(i + 1, row.signal);
        const std::string state = m_card.state();
        const std::string record = m_card.holdsRecord() ? "kept" : "none";
        printRow(point, state, record, m_card.finish(row.command));
        if (HasFailure()) {
            return;
        }
        ++tried;
    }
    EXPECT_GE(tried, calls.size() / (parts * row.stride));
}

INSTANTIATE_TEST_SUITE_P(Signals, EndedAtEveryCall,
                         testing::Combine(testing::ValuesIn(ways),
                                          testing::Range<std::size_t>(0, parts)),
                         caseName);

TEST_P(EndedAtTheAuthority, renewal_canBeFinished)
{
    const int signal = GetParam();
    const std::string end = "kill -" + std::to_string(signal) + " $PPID; ";
    const std::pair<const char*, std::string> points[] = {
        {"the authority reads the request", end + "exit 1"},
        {"the authority answers", "cat > /dev/null; " + end + "sleep 0.1"},
        {"the authority has issued, its answer is lost",
         issue() + " > " + m_card.program().file("lost.pem") + "; " + end},
        {"the authority has answered and works on", issue() + "; " + end + "sleep 0.1"},
    };
    printHeading(signal);
    for (const auto& [point, script] : points) {
        for (const char* command : {"resume", "renew", ""}) {
            SCOPED_TRACE(std::string(point) + ", " + command);
            EXPECT_EQ(m_card.renewAt(script).exitCode, -1);
            const std::string state = m_card.state();
            EXPECT_EQ(state, "old, new key waits");
            EXPECT_TRUE(m_card.holdsRecord());
            printRow(point, state, "kept", m_card.finish(command));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Signals, EndedAtTheAuthority, testing::Values(SIGKILL, SIGINT),
                         [](const auto& test) { return std::string(nameOf(test.param)); });

TEST_P(CardRemovedAtEveryCall, renewal_canBeFinished)
{
    const std::vector<std::string> calls = m_card.callsOfRenewal();
    std::printf("card removed\n");
    printRow("at", "on the card then", "record", "end; what finished it");
    for (std::size_t i = GetParam(); i < calls.size(); i += parts) {
        const std::string point = "call " + std::to_string(i + 1) + " of " +
                                  std::to_string(calls.size()) + ", " + calls[i];
        SCOPED_TRACE(point);
        const hosts::ProgramEnd end = m_card.removeBeforeCall(i + 1);
        EXPECT_NE(end.exitCode, -1);
        const std::string state = m_card.state();
        // What ends well has renewed.
        EXPECT_TRUE(end.exitCode != 0 || state == "new") << end.output;
        const std::string record = m_card.holdsRecord() ? "kept" : "none";
        printRow(point, state, record,
                 hosts::endName(end.exitCode) + "; " + m_card.finish("resume"));
        if (HasFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Parts, CardRemovedAtEveryCall, testing::Range<std::size_t>(0, parts));
