// Whole sessions of tarvelo-renew in a pipe.

#include "hosts/console/exit_code.h"
#include "software_card.h"

#include <QDateTime>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using console::ExitCode;
using hosts::ProgramEnd;
using hosts::SoftwareCard;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int daysLeft = 30;

int code(ExitCode exitCode)
{
    return static_cast<int>(exitCode);
}

QDate today()
{
    return QDateTime::currentDateTimeUtc().date();
}

std::string inDays(int days)
{
    return today().addDays(days).toString(Qt::ISODate).toStdString();
}

// Three years and the days still left after the old end of validity.
std::string renewedEnd()
{
    const QDate end = today().addDays(daysLeft).addYears(3).addDays(daysLeft);
    return end.toString(Qt::ISODate).toStdString();
}

// Text with every run of blanks and line ends made one blank: sentences are broken at the margin.
std::string unbroken(const std::string& text)
{
    return QString::fromStdString(text).simplified().toStdString();
}

void expectRenewed(const ProgramEnd& end)
{
    EXPECT_EQ(end.exitCode, code(ExitCode::done)) << end.errors << end.output;
    EXPECT_THAT(end.output, HasSubstr("valid until, before:  " + inDays(daysLeft)));
    EXPECT_THAT(end.output, HasSubstr("valid until, after:   " + renewedEnd()));
    EXPECT_EQ(end.errors, "");
}

void expectStopped(const ProgramEnd& end, ExitCode expected, const std::string& told)
{
    EXPECT_EQ(end.exitCode, code(expected)) << end.errors << end.output;
    EXPECT_THAT(unbroken(end.errors),
                HasSubstr(console::entryOf(expected).meaning.string().toStdString()));
    EXPECT_THAT(unbroken(end.errors), HasSubstr(told));
}

class RenewalSession : public testing::Test {
protected:
    // The certificate that was on the card is still the one to renew.
    void expectStillDue()
    {
        const ProgramEnd end = m_card.renew({"--pin-file", m_card.file("card/pin")}, "n\n");
        EXPECT_EQ(end.exitCode, code(ExitCode::declined)) << end.errors;
        EXPECT_THAT(end.output, HasSubstr(inDays(daysLeft)));
        EXPECT_THAT(end.output, HasSubstr("to be renewed"));
    }

    std::string publicKeyOf(const char* command, const std::string& file)
    {
        const ProgramEnd end =
            m_card.shell(std::string("openssl ") + command + " -noout -pubkey -in " + file);
        EXPECT_EQ(end.exitCode, 0) << end.errors;
        return end.output;
    }

    // The authority at work by hand, for the end of validity that a renewal would ask for.
    std::string issueCommand()
    {
        std::string command = m_card.authority();
        const std::string placeholder = "{not-after}";
        const QString end = QString::fromStdString(renewedEnd()).remove(QLatin1Char('-'));
        command.replace(command.find(placeholder), placeholder.size(), end.toStdString());
        return command;
    }

    SoftwareCard m_card{daysLeft};
};

}  // namespace

TEST_F(RenewalSession, unattended_renewsAndOthersAcceptTheResult)
{
    const std::string request = m_card.file("request.pem");
    const std::string certificate = m_card.file("certificate.pem");
    expectRenewed(m_card.renewUnattended({"--ca", "command:" + m_card.authority(), "--save-request",
                                          request, "--save-certificate", certificate}));

    EXPECT_EQ(m_card.shell("openssl req -verify -noout -in " + request).exitCode, 0);
    const ProgramEnd verified =
        m_card.shell("openssl verify -CAfile " + m_card.authorityCertificate() + " " + certificate);
    EXPECT_EQ(verified.exitCode, 0) << verified.errors;
    EXPECT_EQ(publicKeyOf("req", request), publicKeyOf("x509", certificate));

    const ProgramEnd again = m_card.renewUnattended({"--ca", "command:" + m_card.authority()});
    expectStopped(again, ExitCode::nothingToRenew, "table above");
    EXPECT_THAT(again.output, HasSubstr("not yet due"));
    EXPECT_THAT(again.output, HasSubstr(renewedEnd()));
}

TEST_F(RenewalSession, answersOnStandardInput_eachQuestionGetsItsLine)
{
    const ProgramEnd end =
        m_card.renew({"--ca", "command:" + m_card.authority()}, m_card.pin() + "\ny\n");
    expectRenewed(end);
    EXPECT_THAT(end.output, HasSubstr("Inserire un PIN (8 cifre)"));
    EXPECT_THAT(end.output, HasSubstr("Go on? [y/N]"));
}

TEST_F(RenewalSession, pin_isNeitherShownNorLogged)
{
    const ProgramEnd end = m_card.renewUnattended({"--ca", "command:" + m_card.authority()});
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    for (const std::string& text : {end.output, end.errors, m_card.log()}) {
        EXPECT_THAT(text, Not(HasSubstr(m_card.pin())));
    }
    EXPECT_THAT(m_card.log(), HasSubstr("Tarvelo_install_cert"));
}

TEST_F(RenewalSession, pinInTheEnvironment_isNotHandedToTheAuthority)
{
    const std::string authority =
        m_card.script("authority", "if env | grep -q CARD_PIN; then exit 9; fi\n" +
                                       std::string("exec ") + TARVELO_SOFTCARD + " issue " +
                                       m_card.file("card") + " --not-after \"$1\"");
    hosts::Environment environment = m_card.environment();
    environment["CARD_PIN"] = m_card.pin();
    expectRenewed(hosts::runProgram({hosts::renewProgram(), "--pin-env", "CARD_PIN", "--yes",
                                     "--ca", "command:" + authority + " {not-after}"},
                                    {}, environment));
}

TEST_F(RenewalSession, pinOfAnotherLength_neverReachesTheCard)
{
    for (const char* pin : {"1234567", "", "123"}) {
        SCOPED_TRACE(pin);
        expectStopped(m_card.renew({"--yes"}, std::string(pin) + "\n"), ExitCode::pinUnusable,
                      "eight characters");
    }
    m_card.write("long", "123456789\n");
    expectStopped(m_card.renew({"--yes", "--pin-file", m_card.file("long")}), ExitCode::pinUnusable,
                  "eight characters");
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Errore nella Login")));
    expectStillDue();
}

TEST_F(RenewalSession, endOfInputAtThePin_endsTheRun)
{
    expectStopped(m_card.renew({"--ask"}), ExitCode::pinUnusable, "eight characters");
}

TEST_F(RenewalSession, wrongPin_isRefusedOnceWithTheCardsWords)
{
    const std::string wrong = m_card.pin() == "00000000" ? "11111111" : "00000000";
    const ProgramEnd end = m_card.renew({"--yes"}, wrong + "\n");
    expectStopped(end, ExitCode::pinRefused, "Il PIN digitato e' errato.");
    const std::string log = m_card.log();
    const std::string refusal = "Errore nella Login";
    ASSERT_NE(log.find(refusal), std::string::npos);
    EXPECT_EQ(log.find(refusal), log.rfind(refusal));
    expectStillDue();
}

TEST_F(RenewalSession, homeNotWritable_wrongPinIsStillSeenAsRefused)
{
    m_card.write("file", "");
    hosts::Environment environment = m_card.environment();
    environment["HOME"] = m_card.file("file/home");
    const std::string wrong = m_card.pin() == "00000000" ? "11111111\n" : "00000000\n";
    const ProgramEnd end =
        hosts::runProgram({hosts::renewProgram(), "--yes", "--ask"}, wrong, environment);
    expectStopped(end, ExitCode::pinRefused, "Log: standard output");
    EXPECT_THAT(end.output, HasSubstr("Il PIN digitato e' errato."));
}

TEST_F(RenewalSession, certificateFileNotWritable_certificateIsShown)
{
    const ProgramEnd end =
        m_card.renewUnattended({"--ca", "command:" + m_card.authority(), "--save-certificate",
                                m_card.file("missing/certificate.pem")});
    expectStopped(end, ExitCode::fileFailed, "missing/certificate.pem");
    EXPECT_THAT(end.output, HasSubstr("-----BEGIN CERTIFICATE-----"));
    expectStillDue();
}

TEST_F(RenewalSession, declined_nothingIsMade)
{
    for (const char* answer : {"n\n", "\n", ""}) {
        const ProgramEnd end =
            m_card.renew({"--pin-file", m_card.file("card/pin"), "--ask"}, answer);
        EXPECT_EQ(end.exitCode, code(ExitCode::declined));
        EXPECT_THAT(unbroken(end.output), HasSubstr("a new key pair is made on the card"));
        EXPECT_THAT(end.errors, HasSubstr("Nothing was done"));
    }
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Tarvelo_gen_p10_by_certid")));
}

TEST_F(RenewalSession, authorityFails_nextRunUsesTheSameKey)
{
    const std::string first = m_card.file("first.pem");
    const std::string second = m_card.file("second.pem");
    const std::string broken = m_card.script("broken", "echo out of order >&2; exit 5");
    expectStopped(m_card.renewUnattended({"--ca", "command:" + broken, "--save-request", first}),
                  ExitCode::authorityFailed, "out of order");

    const ProgramEnd end =
        m_card.renewUnattended({"--ca", "command:" + m_card.authority(), "--save-request", second});
    expectRenewed(end);
    EXPECT_THAT(unbroken(end.output), HasSubstr("the new key that waits on the card is used"));
    EXPECT_EQ(publicKeyOf("req", first), publicKeyOf("req", second));
}

TEST_F(RenewalSession, certificateOfAnotherKey_isNotInstalled)
{
    const std::string stranger = m_card.script(
        "stranger", "exec openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes "
                    "-keyout /dev/null -subj '/CN=Castelvane Demo CA' 2>/dev/null");
    expectStopped(m_card.renewUnattended({"--ca", "command:" + stranger}),
                  ExitCode::certificateRefused, "for another key");
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Tarvelo_install_cert")));
    expectStillDue();
    expectRenewed(m_card.renewUnattended({"--ca", "command:" + m_card.authority()}));
}

TEST_F(RenewalSession, answerWithoutCertificate_isNotInstalled)
{
    expectStopped(m_card.renewUnattended({"--ca", "command:echo tomorrow"}),
                  ExitCode::authorityFailed, "no certificate that can be read");
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Tarvelo_install_cert")));
}

TEST_F(RenewalSession, certificateOfAnotherHolder_isNotInstalled)
{
    const std::string mistaken = m_card.script(
        "mistaken",
        "openssl req -noout -pubkey > " + m_card.file("key.pem") + "\n" +
            "openssl ecparam -genkey -name prime256v1 -noout -out " + m_card.file("signer.pem") +
            "\n" + "exec openssl x509 -new -subj '/CN=Somebody Else' -days 900 -force_pubkey " +
            m_card.file("key.pem") + " -signkey " + m_card.file("signer.pem"));
    expectStopped(m_card.renewUnattended({"--ca", "command:" + mistaken}),
                  ExitCode::certificateRefused, "another holder");
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Tarvelo_install_cert")));
    expectStillDue();
    expectRenewed(m_card.renewUnattended({"--ca", "command:" + m_card.authority()}));
}

TEST_F(RenewalSession, byHand_comesBackWithTheCertificate)
{
    const std::string request = m_card.file("request.pem");
    expectStopped(m_card.renewUnattended({"--save-request", request}), ExitCode::comeBackLater,
                  "--issued");
    const std::string issued = m_card.file("issued.pem");
    const ProgramEnd made = m_card.shell(issueCommand() + " < " + request + " > " + issued);
    ASSERT_EQ(made.exitCode, 0) << made.errors;
    expectRenewed(m_card.renewUnattended({"--issued", issued}));
}

TEST_F(RenewalSession, byHandInOneRun_theFileIsAskedFor)
{
    const std::string request = m_card.file("request.pem");
    const ProgramEnd later =
        m_card.renew({"--pin-file", m_card.file("card/pin"), "--save-request", request}, "y\n\n");
    expectStopped(later, ExitCode::comeBackLater, "--issued");

    const std::string issued = m_card.file("issued.pem");
    ASSERT_EQ(m_card.shell(issueCommand() + " < " + request + " > " + issued).exitCode, 0);
    const ProgramEnd end =
        m_card.renew({"--pin-file", m_card.file("card/pin")}, "y\n" + issued + "\n");
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_THAT(end.output, HasSubstr("-----BEGIN CERTIFICATE REQUEST-----"));
    EXPECT_THAT(end.output, HasSubstr("valid until, after:"));
}

TEST_F(RenewalSession, issuedCertificateWithoutWaitingKey_makesNoKey)
{
    m_card.write("issued.pem", "whatever");
    expectStopped(m_card.renewUnattended({"--issued", m_card.file("issued.pem")}),
                  ExitCode::certificateRefused, "No key on the card waits");
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Tarvelo_gen_p10_by_certid")));
}

TEST_F(RenewalSession, certificateGoneAndKeyWaiting_recoversWithTheIssuedOne)
{
    const std::string request = m_card.file("request.pem");
    const std::string issued = m_card.file("issued.pem");
    expectStopped(m_card.renewUnattended({"--save-request", request}), ExitCode::comeBackLater,
                  "--issued");
    ASSERT_EQ(m_card.shell(issueCommand() + " < " + request + " > " + issued).exitCode, 0);
    m_card.removeOriginalObjects();

    const ProgramEnd later = m_card.renewUnattended({"--ca", "command:" + m_card.authority()});
    expectStopped(later, ExitCode::comeBackLater, "issued before");
    EXPECT_THAT(later.output, HasSubstr("a renewal was interrupted"));
    const ProgramEnd end = m_card.renewUnattended({"--issued", issued});
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_THAT(end.output, HasSubstr("valid until, before:  no certificate"));
    EXPECT_THAT(end.output, HasSubstr("valid until, after:   " + renewedEnd()));
}

TEST_F(RenewalSession, badChoicesAndFiles_stopBeforeTheCardChanges)
{
    expectStopped(m_card.renewUnattended({"--certificate", "7"}), ExitCode::choiceNeeded, "\"7\"");
    expectStopped(
        m_card.renew({"--reader", "No such reader", "--pin-file", m_card.file("card/pin")}),
        ExitCode::cardUnreachable, "Log: ");
    expectStopped(m_card.renew({"--pin-file", m_card.file("missing")}), ExitCode::fileFailed,
                  "missing");
    EXPECT_EQ(m_card.renew({"--no-such-option"}).exitCode, code(ExitCode::usage));
    EXPECT_EQ(m_card.renew({"--pin", m_card.pin()}).exitCode, code(ExitCode::usage));
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Tarvelo_gen_p10_by_certid")));
}

TEST_F(RenewalSession, noCardAnywhere_namesReaderAndLog)
{
    hosts::Environment environment = m_card.environment();
    environment["SOFTHSM2_CONF"] = m_card.file("no-such.conf");
    const ProgramEnd end = hosts::runProgram({hosts::renewProgram(), "--yes"}, {}, environment);
    expectStopped(end, ExitCode::noReader, m_card.file("home/.brisko/TarveloQT.log"));
}

TEST_F(RenewalSession, screens_fitEightyColumns)
{
    const ProgramEnd end = m_card.renewUnattended({"--ca", "command:" + m_card.authority()});
    ASSERT_EQ(end.exitCode, 0) << end.errors;
    const QStringList lines = QString::fromStdString(end.output).split(QLatin1Char('\n'));
    EXPECT_GT(lines.size(), 15);
    for (const QString& line : lines) {
        // A path is never broken.
        if (!line.contains(QLatin1Char('/'))) {
            EXPECT_LT(line.size(), 80) << line.toStdString();
        }
    }
}

TEST(RenewalOfManyKinds, eachInTurn_endsWithNothingDue)
{
    const SoftwareCard card(daysLeft, "aut,pra,role,cns");
    const ProgramEnd open = card.renewUnattended({"--ca", "command:" + card.authority()});
    expectStopped(open, ExitCode::choiceNeeded, "Several certificates");

    // By number, by row key, by the answer to the question.
    expectRenewed(
        card.renewUnattended({"--ca", "command:" + card.authority(), "--certificate", "1"}));
    expectRenewed(
        card.renewUnattended({"--ca", "command:" + card.authority(), "--certificate", "CNS: 1"}));
    const ProgramEnd asked = card.renew(
        {"--ca", "command:" + card.authority(), "--pin-file", card.file("card/pin")}, "9\n2\ny\n");
    expectRenewed(asked);
    EXPECT_THAT(asked.output, HasSubstr("The table has no such number."));
    // The only one left needs no choice.
    expectRenewed(card.renewUnattended({"--ca", "command:" + card.authority()}));
    expectStopped(card.renewUnattended({"--ca", "command:" + card.authority()}),
                  ExitCode::nothingToRenew, "table above");
}

TEST(RenewalVerdicts, daysLeft_decide)
{
    struct Row {
        int days;
        const char* verdict;
    };
    const Row cases[] = {
        {200, "not yet due: can be renewed from "},
        {92, "not yet due: can be renewed from "},
        {-3, "expired: can no longer be renewed"},
    };
    for (const Row& row : cases) {
        SCOPED_TRACE(row.days);
        const SoftwareCard card(row.days);
        const ProgramEnd end = card.renewUnattended({"--ca", "command:" + card.authority()});
        expectStopped(end, ExitCode::nothingToRenew, "table above");
        EXPECT_THAT(end.output, HasSubstr(row.verdict));
        expectStopped(card.renewUnattended({"--certificate", "1"}), ExitCode::nothingToRenew,
                      "Certificate 1: ");
    }
}
