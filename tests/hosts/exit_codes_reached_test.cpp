// Every exit code of the table, reached by the real program from a real cause.

#include "hosts/console/exit_code.h"
#include "interrupted_card.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>

using console::ExitCode;
using hosts::InterruptedCard;
using hosts::ProgramEnd;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

// A card and the program on it, each row's own.
class Bench {
public:
    ProgramEnd run(const std::vector<std::string>& arguments) const
    {
        return m_card.program().run(arguments);
    }
    ProgramEnd withPin(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.end(), {"--pin-file", file("card/pin")});
        return run(arguments);
    }
    ProgramEnd unattended(const std::vector<std::string>& arguments) const
    {
        return run(m_card.unattended(arguments));
    }
    ProgramEnd byAuthority(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.end(),
                         {"--ca", "command:" + m_card.program().card().authority()});
        return unattended(arguments);
    }
    // With these variables.
    ProgramEnd listWith(const hosts::Environment& variables) const
    {
        hosts::Environment environment = m_card.program().environment();
        environment.insert(variables.begin(), variables.end());
        for (const auto& [name, value] : variables) {
            environment[name] = value;
        }
        return hosts::runProgram(
            {m_card.program().program(), "list", "--pin-file", file("card/pin")}, {}, environment);
    }
    // A renewal whose card is taken out before the first call of `function` after one of `after`.
    ProgramEnd withoutCardFrom(const std::string& function, const std::string& after = {}) const
    {
        const std::vector<std::string> calls = m_card.callsOfRenewal();
        const auto start =
            after.empty() ? calls.begin() : std::find(calls.begin(), calls.end(), after);
        const auto call = std::find(start, calls.end(), function);
        EXPECT_NE(call, calls.end());
        return m_card.removeBeforeCall(static_cast<std::size_t>(call - calls.begin()) + 1);
    }

    // The token keeps its number in the clear. Its end stays: the module's slot depends on that.
    void beginSerialNumberWith(const std::string& digits) const
    {
        for (const auto& entry : fs::recursive_directory_iterator(file("card/tokens"))) {
            if (entry.path().filename() != "token.object") {
                continue;
            }
            std::fstream token(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
            const std::string content{std::istreambuf_iterator<char>(token), {}};
            static const std::regex pattern("[0-9a-f]{16}");
            std::smatch found;
            ASSERT_TRUE(std::regex_search(content, found, pattern));
            token.seekp(found.position());
            token << digits;
            ASSERT_TRUE(token.flush().good());
        }
    }

    std::string file(const std::string& name) const { return m_card.program().file(name); }
    const hosts::SoftwareCard& card() const { return m_card.program().card(); }

private:
    InterruptedCard m_card;
};

struct Row {
    ExitCode code;
    const char* cause;
    std::function<ProgramEnd(const Bench&)> run;
};

const std::vector<Row>& reached()
{
    static const std::vector<Row> rows = {
        {ExitCode::done, "a renewal",
         [](const Bench& bench) { return bench.byAuthority({"renew"}); }},
        {ExitCode::internalError, "too few file descriptors",
         [](const Bench& bench) {
             // How few depends on what this process has open.
             return bench.card().shell("for few in 5 6 7 8 9 10 12 14 16 20; do (ulimit -n $few; "
                                       "exec " +
                                       hosts::renewProgram() + " list --pin-file " +
                                       bench.file("card/pin") + "); [ $? -eq 1 ] && exit 1; done");
         }},
        {ExitCode::usage, "an unknown option",
         [](const Bench& bench) { return bench.run({"--no-such-option"}); }},
        {ExitCode::noReader, "no token",
         [](const Bench& bench) {
             return bench.listWith({{"SOFTHSM2_CONF", bench.file("no-such.conf")}});
         }},
        {ExitCode::pinUnusable, "no PIN", [](const Bench& bench) { return bench.run({"list"}); }},
        {ExitCode::cardUnreachable, "a reader that is not there",
         [](const Bench& bench) {
             return bench.withPin({"list", "--reader", "absent"});
         }},
        {ExitCode::pinRefused, "a wrong PIN",
         [](const Bench& bench) {
             bench.card().write("wrong",
                                bench.card().pin() == "00000000" ? "11111111" : "00000000");
             return bench.run({"list", "--pin-file", bench.file("wrong")});
         }},
        {ExitCode::cardRefused, "a model that is not supported any more",
         [](const Bench& bench) {
             bench.beginSerialNumberWith("1201");
             return bench.withPin({"list"});
         }},
        {ExitCode::inventoryFailed, "the card taken out before it is read",
         [](const Bench& bench) { return bench.withoutCardFrom("C_FindObjectsInit"); }},
        {ExitCode::nothingToRenew, "everything renewed",
         [](const Bench& bench) {
             EXPECT_EQ(bench.byAuthority({"renew"}).exitCode, 0);
             return bench.byAuthority({"renew"});
         }},
        {ExitCode::choiceNeeded, "a number that the table does not have",
         [](const Bench& bench) {
             return bench.unattended({"renew", "--certificate", "9"});
         }},
        {ExitCode::declined, "no as the answer",
         [](const Bench& bench) {
             return bench.card().renew({"renew", "--pin-file", bench.file("card/pin")}, "n\n");
         }},
        {ExitCode::requestFailed, "the card taken out before the key is made",
         [](const Bench& bench) { return bench.withoutCardFrom("C_GenerateKeyPair"); }},
        {ExitCode::authorityFailed, "an authority that fails",
         [](const Bench& bench) {
             return bench.unattended({"renew", "--ca", "command:false"});
         }},
        {ExitCode::certificateRefused, "a certificate for another key",
         [](const Bench& bench) {
             return bench.unattended(
                 {"renew", "--ca", "command:cat " + bench.file("card/ca/certificate.pem")});
         }},
        {ExitCode::installationFailed, "the card taken out before the certificate is written",
         [](const Bench& bench) {
             return bench.withoutCardFrom("C_CreateObject", "C_GenerateKeyPair");
         }},
        {ExitCode::notSeenOnCard, "more certificates than the inventory holds",
         [](const Bench&) {
             const hosts::SoftwareCard crowded(30, "aut,aut,aut,aut,aut");
             return crowded.renewUnattended(
                 {"renew", "--certificate", "1", "--ca", "command:" + crowded.authority()});
         }},
        {ExitCode::comeBackLater, "no authority named",
         [](const Bench& bench) { return bench.unattended({"renew"}); }},
        {ExitCode::fileFailed, "a PIN file that is missing",
         [](const Bench& bench) {
             return bench.run({"list", "--pin-file", bench.file("missing")});
         }},
        {ExitCode::confirmationNeeded, "nobody to confirm",
         [](const Bench& bench) { return bench.withPin({"renew"}); }},
        {ExitCode::lastTry, "a card with one try left",
         [](const Bench& bench) {
             return bench.listWith({{"PKCS11_PROXY_SET_FLAGS", hosts::pinFinalTry}});
         }},
        {ExitCode::pinBlocked, "a card whose PIN is blocked",
         [](const Bench& bench) {
             return bench.listWith({{"PKCS11_PROXY_SET_FLAGS", hosts::pinLocked}});
         }},
        {ExitCode::nothingPending, "nothing begun",
         [](const Bench& bench) { return bench.unattended({"resume"}); }},
        {ExitCode::someFailed, "an authority that closes after the first request",
         [](const Bench&) {
             const hosts::SoftwareCard card(30, "aut,pra");
             const std::string script = card.script(
                 "once", "mkdir " + card.file("asked") + " || exit 1\nexec " + TARVELO_SOFTCARD +
                             " issue " + card.file("card") + " --not-after \"$1\"");
             return card.renewUnattended(
                 {"renew", "--all", "--ca", "command:" + script + " {not-after}"});
         }},
        {ExitCode::problemsFound, "no card for the doctor",
         [](const Bench& bench) {
             return bench.run({"doctor", "--reader", "absent"});
         }},
        {ExitCode::unknownAtr, "an ATR that no entry knows",
         [](const Bench& bench) {
             return bench.run({"explain-atr", "3B00"});
         }},
        {ExitCode::authorityUnreachable, "an authority whose program does not reach it",
         [](const Bench& bench) {
             return bench.unattended({"renew", "--ca", "command:sh -c \"exit 12\""});
         }},
        {ExitCode::authorityRefused, "an authority that says no",
         [](const Bench& bench) {
             return bench.unattended({"renew", "--ca", "command:sh -c \"exit 11\""});
         }},
    };
    return rows;
}

class ExitCodeReached : public testing::TestWithParam<std::size_t> {};

}  // namespace

TEST_P(ExitCodeReached, causedForReal_isTheOneOfTheTable)
{
    const Row& row = reached()[GetParam()];
    SCOPED_TRACE(row.cause);
#if defined(__SANITIZE_ADDRESS__)
    if (row.code == ExitCode::internalError) {
        GTEST_SKIP() << "the sanitizers need descriptors of their own";
    }
#endif
    const ProgramEnd end = row.run(Bench());
    const console::ExitCodeEntry& entry = console::entryOf(row.code);
    EXPECT_EQ(end.exitCode, static_cast<int>(row.code)) << end.output << end.errors;
    if (row.code == ExitCode::usage) {
        EXPECT_THAT(end.errors, HasSubstr(entry.nextStep->string().toStdString()));
    } else if (row.code != ExitCode::done) {
        const QString told = QString::fromStdString(end.output + end.errors).simplified();
        EXPECT_TRUE(told.contains(entry.meaning.string())) << told.toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(Table, ExitCodeReached, testing::Range<std::size_t>(0, reached().size()),
                         [](const auto& test) {
                             std::string name = console::entryOf(reached()[test.param].code).name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(ExitCodesReached, table_isComplete)
{
    std::vector<std::string> missing;
    for (const console::ExitCodeEntry& entry : console::exitCodes()) {
        const bool isReached =
            std::any_of(reached().begin(), reached().end(),
                        [&entry](const Row& row) { return row.code == entry.code; });
        if (!isReached) {
            missing.emplace_back(entry.name);
        }
    }
    EXPECT_THAT(missing, IsEmpty());
}
