#include "software_card.h"

#include <QDateTime>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

namespace hosts {

namespace {

const std::string softcardProgram = TARVELO_SOFTCARD;

// A day that begins in the middle of a test would change every number of days in it.
void waitForMidnightToPass()
{
    const QTime now = QDateTime::currentDateTimeUtc().time();
    const int left = now.secsTo(QTime(23, 59, 59));
    if (left < 45) {
        std::this_thread::sleep_for(std::chrono::seconds(left + 2));
    }
}

}  // namespace

std::string renewProgram()
{
    return TARVELO_RENEW;
}

SoftwareCard::SoftwareCard(int daysLeft, const std::string& kinds)
{
    waitForMidnightToPass();
    EXPECT_TRUE(m_folder.isValid());
    EXPECT_EQ(::mkdir(file("home").c_str(), 0700), 0);
    const ProgramEnd made = runProgram({softcardProgram, "make", file("card"), "--key", "p256",
                                        "--kinds", kinds, "--days", std::to_string(daysLeft)},
                                       {}, environment());
    EXPECT_EQ(made.exitCode, 0) << made.errors;
}

std::string SoftwareCard::folder() const
{
    return m_folder.path().toStdString();
}

std::string SoftwareCard::file(const std::string& name) const
{
    return folder() + "/" + name;
}

std::string SoftwareCard::contentOf(const std::string& name) const
{
    std::ifstream stream(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void SoftwareCard::write(const std::string& name, const std::string& content) const
{
    std::ofstream stream(file(name), std::ios::binary);
    stream << content;
    EXPECT_TRUE(stream.flush().good());
}

std::string SoftwareCard::script(const std::string& name, const std::string& lines) const
{
    write(name, "#!/bin/sh\n" + lines + "\n");
    EXPECT_EQ(::chmod(file(name).c_str(), 0700), 0);
    return file(name);
}

std::string SoftwareCard::pin() const
{
    const std::string text = contentOf("card/pin");
    return text.substr(0, text.find('\n'));
}

std::string SoftwareCard::log() const
{
    return contentOf("home/.brisko/TarveloQT.log");
}

Environment SoftwareCard::environment() const
{
    return {{"HOME", file("home")},
            {"SOFTHSM2_CONF", file("card/softhsm2.conf")},
            {"LC_ALL", "C.UTF-8"},
            // Readers of this machine are none of the tests' business.
            {"PCSCLITE_CSOCK_NAME", file("no-pcscd")},
            // Certificates count their days in UTC: so do the tests.
            {"TZ", "UTC"}};
}

std::string SoftwareCard::authority() const
{
    return softcardProgram + " issue " + file("card") + " --not-after {not-after}";
}

std::string SoftwareCard::authorityCertificate() const
{
    return file("card/ca/certificate.pem");
}

void SoftwareCard::removeOriginalObjects() const
{
    Environment withPin = environment();
    withPin["CARD_PIN"] = pin();
    for (const char* type : {"cert", "privkey", "pubkey"}) {
        const ProgramEnd end =
            runProgram({"pkcs11-tool", "--module", SOFTHSM2_MODULE, "--login", "--pin",
                        "env:CARD_PIN", "--delete-object", "--type", type, "--label", "AUT0"},
                       {}, withPin);
        EXPECT_EQ(end.exitCode, 0) << end.errors;
    }
}

ProgramEnd SoftwareCard::renew(const std::vector<std::string>& arguments,
                               const std::string& input) const
{
    std::vector<std::string> command = {renewProgram()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    if (!input.empty()) {
        command.emplace_back("--ask");
    }
    return runProgram(command, input, environment());
}

ProgramEnd SoftwareCard::renewUnattended(std::vector<std::string> arguments) const
{
    arguments.insert(arguments.end(), {"--pin-file", file("card/pin"), "--yes"});
    return renew(arguments);
}

ProgramEnd SoftwareCard::shell(const std::string& line, const std::string& input) const
{
    return runProgram({"sh", "-c", line}, input, environment());
}

}  // namespace hosts
