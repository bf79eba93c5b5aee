#include "interrupted_card.h"

#include "hosts/console/exit_code.h"

#include <QJsonArray>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace hosts {

namespace {

namespace fs = std::filesystem;
using console::ExitCode;

bool is(int exitCode, ExitCode expected)
{
    return exitCode == static_cast<int>(expected);
}

}  // namespace

std::string endName(int exitCode)
{
    for (const console::ExitCodeEntry& entry : console::exitCodes()) {
        if (static_cast<int>(entry.code) == exitCode) {
            return entry.name;
        }
    }
    return "code " + std::to_string(exitCode);
}

InterruptedCard::InterruptedCard()
{
    fs::copy(m_program.file("card/tokens"), m_program.file("kept"), fs::copy_options::recursive);
}

void InterruptedCard::restore() const
{
    fs::remove_all(m_program.file("card/tokens"));
    fs::copy(m_program.file("kept"), m_program.file("card/tokens"), fs::copy_options::recursive);
    fs::remove_all(m_program.file("home/.brisko"));
    fs::remove(m_program.file("calls"));
}

std::vector<std::string> InterruptedCard::unattended(std::vector<std::string> arguments) const
{
    arguments.insert(arguments.end(), {"--yes", "--pin-file", m_program.file("card/pin")});
    return arguments;
}

int InterruptedCard::run(const std::vector<std::string>& arguments) const
{
    return m_program.run(arguments).exitCode;
}

std::vector<std::string> InterruptedCard::callsOfRenewal() const
{
    restore();
    EXPECT_EQ(run(unattended({"renew", "--ca", "command:" + m_program.card().authority()})), 0);
    std::istringstream lines(m_program.card().contentOf("calls"));
    return {std::istream_iterator<std::string>(lines), {}};
}

ProgramEnd InterruptedCard::renewWith(const Environment& variables) const
{
    restore();
    Environment environment = m_program.environment();
    environment.insert(variables.begin(), variables.end());
    std::vector<std::string> command = unattended(
        {m_program.program(), "renew", "--ca", "command:" + m_program.card().authority()});
    return runProgram(command, {}, environment);
}

void InterruptedCard::endBeforeCall(std::size_t number, int signal) const
{
    const ProgramEnd end = renewWith({{"PKCS11_PROXY_KILL", std::to_string(number)},
                                      {"PKCS11_PROXY_SIGNAL", std::to_string(signal)}});
    EXPECT_EQ(end.exitCode, -1) << end.output << end.errors;
    const std::string calls = m_program.card().contentOf("calls");
    EXPECT_EQ(std::count(calls.begin(), calls.end(), '\n'), static_cast<std::ptrdiff_t>(number));
}

ProgramEnd InterruptedCard::removeBeforeCall(std::size_t number) const
{
    return renewWith({{"PKCS11_PROXY_REMOVE", std::to_string(number)}});
}

ProgramEnd InterruptedCard::renewAt(const std::string& authorityScript) const
{
    restore();
    const std::string script = m_program.card().script("interrupting", authorityScript);
    return m_program.run(unattended({"renew", "--ca", "command:" + script + " {not-after}"}));
}

std::string InterruptedCard::state() const
{
    const QJsonObject document =
        m_program.answer({"list", "--pin-file", m_program.file("card/pin")});
    const QJsonArray certificates = document["certificates"].toArray();
    EXPECT_EQ(certificates.size(), 1) << jsonText(document);
    const QJsonValue certificate = certificates[0];
    const QString verdict = certificate["verdict"].toString();
    if (verdict == QLatin1String("to-renew")) {
        return certificate["pendingKey"].isNull() ? "old" : "old, new key waits";
    }
    if (verdict == QLatin1String("not-yet-due")) {
        return "new";
    }
    EXPECT_EQ(verdict, QStringLiteral("recovery")) << jsonText(document);
    return "key without certificate";
}

bool InterruptedCard::holdsRecord() const
{
    const std::string folder = m_program.file("home/.brisko/renewals");
    return fs::exists(folder) && !fs::is_empty(folder);
}

std::string InterruptedCard::finish(const std::string& command) const
{
    const std::vector<std::string> authority = {"--ca", "command:" + m_program.card().authority()};
    std::string took;
    const auto runOne = [&](const std::string& name) {
        std::vector<std::string> arguments;
        if (!name.empty()) {
            arguments.push_back(name);
        }
        arguments.insert(arguments.end(), authority.begin(), authority.end());
        const int exitCode = run(unattended(arguments));
        took += (took.empty() ? "" : ", then ") + (name.empty() ? "guided" : name) + ": " +
                endName(exitCode);
        return exitCode;
    };
    const int first = runOne(command);
    if (is(first, ExitCode::nothingPending) && state() == "old") {
        EXPECT_EQ(runOne("renew"), 0);
    } else if (is(first, ExitCode::nothingToRenew) && holdsRecord()) {
        EXPECT_EQ(runOne("resume"), 0);
    } else {
        EXPECT_TRUE(is(first, ExitCode::done) || is(first, ExitCode::nothingPending) ||
                    is(first, ExitCode::nothingToRenew))
            << took;
    }
    expectFinished();
    return took;
}

void InterruptedCard::expectFinished() const
{
    EXPECT_EQ(state(), "new");
    EXPECT_FALSE(holdsRecord());
    // Certificate, private key and public key; the token has a file of its own.
    std::size_t objects = 0;
    for (const auto& entry : fs::recursive_directory_iterator(m_program.file("card/tokens"))) {
        if (entry.path().extension() == ".object" && entry.path().filename() != "token.object") {
            ++objects;
        }
    }
    EXPECT_EQ(objects, 3U);
}

}  // namespace hosts
