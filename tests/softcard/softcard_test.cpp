// tarvelo-softcard run as a program.

#include "cardlibs/contents/kind.h"
#include "tests/cardlibs/card_calls.h"
#include "tests/cardlibs/card_fixture.h"
#include "tests/cardlibs/outside_tools.h"
#include "tools/softcard/card_token.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;

class Softcard : public ::testing::Test {
protected:
    ToolRun run(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> command = {SOFTCARD_FILE};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return runTool(command);
    }

    std::string card() const { return m_temporary.path() / "card"; }
    std::string file(const char* name) const { return card() + "/" + name; }
    std::string scratch(const char* name) const { return m_temporary.path() / name; }

    static int modeOf(const std::string& path)
    {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return static_cast<int>(status.st_mode & 0777);
    }

    // Standard input from a file, as a host runs the authority.
    ToolRun issue(const std::string& requestFile, const std::string& options = {})
    {
        return runTool({"sh", "-c",
                        std::string(SOFTCARD_FILE) + " issue " + card() + " " + options + " < " +
                            requestFile});
    }

    void makeRequest(const char* name)
    {
        ASSERT_EQ(
            runTool({"openssl", "req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout",
                     scratch("key.pem"), "-out", scratch(name), "-subj", "/CN=Prova", "-addext",
                     "keyUsage=critical,digitalSignature", "-addext", "extendedKeyUsage=clientAuth",
                     "-addext", "basicConstraints=critical,CA:TRUE"})
                .exitCode,
            0);
    }

private:
    TemporaryFolder m_temporary;
};

TEST_F(Softcard, make_cardThatTheCardLibrariesRead)
{
    const ToolRun made = run({"make", card(), "--key", "p256", "--kinds", "aut,pra,cns"});
    ASSERT_EQ(made.exitCode, 0) << made.output;
    const std::string pin = readText(file("pin"));
    EXPECT_THAT(pin, MatchesRegex("[0-9]{8}\n"));
    EXPECT_EQ(made.output.find(pin.substr(0, 8)), std::string::npos);
    EXPECT_EQ(modeOf(file("pin")), 0600);
    EXPECT_EQ(modeOf(file("so-pin")), 0600);
    EXPECT_EQ(modeOf(file("ca/key.pem")), 0600);
    EXPECT_EQ(modeOf(file("tokens")), 0700);

    const std::vector<std::string> readers = softcard::cardReaders(softcard::CardFolder(card()));
    ASSERT_THAT(readers, SizeIs(1));
    EXPECT_THAT(made.output, HasSubstr(readers[0]));
    const ReadResult read = readCerts(readers[0], pin.substr(0, 8));
    EXPECT_EQ(read.result, 0) << lastError().text;
    EXPECT_EQ(read.autCount, "1");
    EXPECT_EQ(read.praCount, "1");
    EXPECT_EQ(read.cnsCount, "1");
    EXPECT_THAT(read.aut.at(0).at(0), HasSubstr("2.5.4.5=VLDNCL85M12F205X,"));
    EXPECT_THAT(read.pra.at(0).at(0), HasSubstr("2.5.4.5=IT:VLDNCL85M12F205X,"));
    EXPECT_THAT(read.cns.at(0).at(1), HasSubstr("Castelvane Demo CA"));
}

TEST_F(Softcard, make_again_keepsTheCardUnlessForced)
{
    ASSERT_EQ(run({"make", card(), "--key", "p256"}).exitCode, 0);
    const std::string pin = readText(file("pin"));
    const std::string authority = readText(file("ca/certificate.pem"));
    const ToolRun again = run({"make", card(), "--key", "p256"});
    EXPECT_EQ(again.exitCode, 0) << again.output;
    EXPECT_THAT(again.output, HasSubstr("already"));
    EXPECT_EQ(readText(file("ca/certificate.pem")), authority);
    EXPECT_EQ(readText(file("pin")), pin);
    writeText(file("mine"), "kept");
    EXPECT_EQ(run({"make", card(), "--key", "p256", "--force"}).exitCode, 0);
    EXPECT_NE(readText(file("ca/certificate.pem")), authority);
    EXPECT_EQ(readText(file("mine")), "kept");
}

TEST_F(Softcard, make_afterAnInterruptedRun_startsOver)
{
    ASSERT_EQ(run({"make", card(), "--key", "p256"}).exitCode, 0);
    std::filesystem::remove(file("card-made"));
    EXPECT_NE(run({"show", card()}).exitCode, 0);
    const ToolRun made = run({"make", card(), "--key", "p256"});
    EXPECT_EQ(made.exitCode, 0) << made.output;
    EXPECT_EQ(run({"show", card()}).exitCode, 0);
}

TEST_F(Softcard, make_pinFromFileOrEnvironment)
{
    writeText(scratch("given"), "11223344\n");
    ASSERT_EQ(run({"make", card(), "--key", "p256", "--pin-file", scratch("given")}).exitCode, 0);
    EXPECT_EQ(readText(file("pin")), "11223344\n");
    setenv("SOFTCARD_TEST_PIN", "55667788", 1);
    ASSERT_EQ(run({"make", card(), "--key", "p256", "--force", "--pin-env", "SOFTCARD_TEST_PIN"})
                  .exitCode,
              0);
    unsetenv("SOFTCARD_TEST_PIN");
    EXPECT_EQ(readText(file("pin")), "55667788\n");
}

TEST_F(Softcard, make_badInput_clearErrorAndNothingMade)
{
    for (const char* pin : {"1234567", "123456789", "1234567x", ""}) {
        SCOPED_TRACE(pin);
        writeText(scratch("given"), pin);
        const ToolRun made = run({"make", card(), "--pin-file", scratch("given")});
        EXPECT_NE(made.exitCode, 0);
        EXPECT_THAT(made.output, HasSubstr("eight digits"));
        EXPECT_FALSE(std::filesystem::exists(card()));
    }
    const ToolRun missing = run({"make", card(), "--pin-file", scratch("none")});
    EXPECT_NE(missing.exitCode, 0);
    EXPECT_THAT(missing.output, HasSubstr("none"));
    EXPECT_NE(run({"make", card(), "--kinds", "other"}).exitCode, 0);
    EXPECT_NE(run({"make", card(), "--days", "x"}).exitCode, 0);
    EXPECT_NE(run({"make"}).exitCode, 0);
    EXPECT_NE(run({}).exitCode, 0);
}

TEST_F(Softcard, make_forcedWithABadPin_keepsTheCard)
{
    ASSERT_EQ(run({"make", card(), "--key", "p256"}).exitCode, 0);
    writeText(scratch("given"), "1");
    EXPECT_NE(run({"make", card(), "--force", "--pin-file", scratch("given")}).exitCode, 0);
    EXPECT_EQ(run({"show", card()}).exitCode, 0);
}

TEST_F(Softcard, issue_usagesAskedForAndNothingElse)
{
    ASSERT_EQ(run({"make", card(), "--key", "p256"}).exitCode, 0);
    makeRequest("request.pem");
    const ToolRun issued = issue(scratch("request.pem"), "--not-after 20400102 --policy 1.2.3.4");
    ASSERT_EQ(issued.exitCode, 0) << issued.output;
    writeText(scratch("issued.pem"), issued.output);
    const ToolRun verified = runTool(
        {"openssl", "verify", "-CAfile", file("ca/certificate.pem"), scratch("issued.pem")});
    EXPECT_EQ(verified.exitCode, 0) << verified.output;
    const ToolRun shown =
        runTool({"openssl", "x509", "-in", scratch("issued.pem"), "-noout", "-text"});
    EXPECT_THAT(shown.output, HasSubstr("Castelvane Demo CA"));
    EXPECT_THAT(shown.output, HasSubstr("Not After : Jan  2 23:59:59 2040 GMT"));
    EXPECT_THAT(shown.output, HasSubstr("Digital Signature"));
    EXPECT_THAT(shown.output, HasSubstr("TLS Web Client Authentication"));
    EXPECT_THAT(shown.output, HasSubstr("CA:FALSE"));
    EXPECT_THAT(shown.output, HasSubstr("Policy: 1.2.3.4"));
    EXPECT_THAT(shown.output, Not(HasSubstr("CA:TRUE")));
}

TEST_F(Softcard, issue_badInput_clearErrorAndNoCertificate)
{
    ASSERT_EQ(run({"make", card(), "--key", "p256"}).exitCode, 0);
    makeRequest("request.pem");
    ASSERT_EQ(runTool({"openssl", "req", "-in", scratch("request.pem"), "-outform", "DER", "-out",
                       scratch("request.der")})
                  .exitCode,
              0);
    std::string der = readText(scratch("request.der"));
    der[der.size() - 20] = static_cast<char>(der[der.size() - 20] ^ 1);
    writeText(scratch("forged.der"), der);
    ASSERT_EQ(runTool({"openssl", "req", "-inform", "DER", "-in", scratch("forged.der"), "-out",
                       scratch("forged.pem")})
                  .exitCode,
              0);
    writeText(scratch("nonsense"), "nonsense");
    const std::vector<std::pair<ToolRun, const char*>> runs = {
        {issue(scratch("forged.pem")), "does not verify"},
        {issue(scratch("nonsense")), "no certificate request"},
        {issue(scratch("request.pem"), "--not-after 20010101"), "in the past"},
        {issue(scratch("request.pem"), "--not-after 2040"), "yyyyMMdd"},
        {issue(scratch("request.pem"), "--not-after 20401399"), "yyyyMMdd"},
    };
    for (const auto& [issued, reason] : runs) {
        SCOPED_TRACE(reason);
        EXPECT_NE(issued.exitCode, 0);
        EXPECT_THAT(issued.output, HasSubstr(reason));
        EXPECT_THAT(issued.output, Not(HasSubstr("BEGIN CERTIFICATE")));
    }
}

TEST(SerialNumber, ofRetiredGenerations_notAccepted)
{
    EXPECT_TRUE(softcard::isRetiredSerialNumber("1201aaaabbbbcccc"));
    EXPECT_TRUE(softcard::isRetiredSerialNumber("1202aaaabbbbcccc"));
    EXPECT_FALSE(softcard::isRetiredSerialNumber("1203aaaabbbbcccc"));
    EXPECT_FALSE(softcard::isRetiredSerialNumber("a1201aaabbbbcccc"));
    EXPECT_FALSE(softcard::isRetiredSerialNumber(""));
}

}  // namespace
}  // namespace cardlibs_test
