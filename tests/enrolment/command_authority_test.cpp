#include "expected_error.h"
#include "hosts/enrolment/authority.h"
#include "tests/support/printing.h"
#include "trial_authority.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>

using namespace enrolment;
using testing::HasSubstr;
using trial::failureOf;

namespace {

class CommandAuthority : public testing::Test {
protected:
    // A script whose working data lies beside it.
    Configuration configured(const QByteArray& script)
    {
        const QString path = m_folder.filePath(QStringLiteral("authority"));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        const QByteArray text = "#!/bin/sh\ncd \"" + m_folder.path().toUtf8() + "\"\n" + script;
        EXPECT_EQ(file.write(text), text.size());
        file.close();
        EXPECT_TRUE(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                        QFileDevice::ExeOwner));
        return configurationFrom(QStringLiteral("command:") + path, {});
    }

    Answer enrol(const QByteArray& script)
    {
        return authority(configured(script))->enrol(m_request);
    }

    void put(const char* name, const QByteArray& bytes)
    {
        QFile file(m_folder.filePath(QString::fromLatin1(name)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }
    QByteArray content(const char* name)
    {
        QFile file(m_folder.filePath(QString::fromLatin1(name)));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }

    QTemporaryDir m_folder;
    trial::Authority m_authority{"Castelvane"};
    trial::Key m_key = trial::newKey();
    Request m_request{trial::requestPem(m_key.get()),
                      QStringLiteral("1.3.76.16.3"),
                      QDate(2030, 1, 20),
                      true,
                      {}};
};

}  // namespace

TEST_F(CommandAuthority, requestOnItsInput_certificateFromItsOutput)
{
    const QByteArray own = m_authority.issueFor(m_request.pkcs10);
    put("certificate", trial::pemOf(own) + trial::pemOf(m_authority.der()));
    const Answer answer = enrol("cat >request; cat certificate");
    ASSERT_TRUE(std::holds_alternative<Issued>(answer));
    EXPECT_EQ(std::get<Issued>(answer).certificate, own);
    EXPECT_EQ(content("request"), m_request.pkcs10);
}

TEST_F(CommandAuthority, environmentAndArguments_carryPolicyAndDate)
{
    put("certificate", m_authority.issueFor(m_request.pkcs10));
    Configuration configuration = configured(
        "echo \"$TARVELO_POLICY|$TARVELO_NOT_AFTER|$TARVELO_RENEWAL|$TARVELO_COOKIE\" >seen\n"
        "for argument; do echo \"$argument\" >>seen; done\ncat certificate");
    configuration.values[QStringLiteral("command")].append(
        QStringLiteral(" --p={policy} {not-after} \"two words\" $HOME;`id`"));
    authority(configuration)->enrol(m_request);
    EXPECT_EQ(content("seen"), QByteArray("1.3.76.16.3|20300120000000|1|\n--p=1.3.76.16.3\n"
                                          "20300120000000\ntwo words\n$HOME;`id`\n"));
}

TEST_F(CommandAuthority, deferral_bringsTheCookieBackNextTime)
{
    const Answer first = enrol("printf 'ticket 42\\n90\\n'; echo 'in the queue' >&2; exit 10");
    ASSERT_TRUE(std::holds_alternative<Deferred>(first));
    const auto& deferred = std::get<Deferred>(first);
    EXPECT_EQ(deferred.retryAfter, std::chrono::seconds(90));
    EXPECT_THAT(deferred.reason.toStdString(), HasSubstr("in the queue"));

    m_request.state = deferred.state;
    put("certificate", m_authority.issueFor(m_request.pkcs10));
    const Answer second = enrol("printf %s \"$TARVELO_COOKIE\" >seen; cat certificate");
    EXPECT_TRUE(std::holds_alternative<Issued>(second));
    EXPECT_EQ(content("seen"), QByteArray("ticket 42"));
}

TEST_F(CommandAuthority, deferralWithoutCookie_isTaken)
{
    const Answer answer = enrol("exit 10");
    ASSERT_TRUE(std::holds_alternative<Deferred>(answer));
    EXPECT_FALSE(std::get<Deferred>(answer).retryAfter);
}

TEST_F(CommandAuthority, inputNotRead_isNoFailure)
{
    put("certificate", m_authority.issueFor(m_request.pkcs10));
    EXPECT_NO_THROW(enrol("exec <&-; cat certificate"));
}

TEST_F(CommandAuthority, failures_areToldInTheProgramsWords)
{
    const trial::Key other = trial::newKey();
    put("anothers", m_authority.issue(other.get()));
    struct Row {
        const char* script;
        const char* cause;
        const char* text;
    };
    const Row rows[] = {
        {"echo 'no such holder' >&2; exit 11", "refused", "It says: no such holder"},
        {"exit 11", "refused", "It gave no reason."},
        {"echo 'no route' >&2; exit 12", "unreachable", "no route"},
        {"exit 13", "policyUnsupported", "no profile for the policy"},
        {"echo usage >&2; exit 1", "badAnswer", "ended with code 1. It says: usage"},
        {"exit 127", "badAnswer", "ended with code 127"},
        {"exit 0", "badAnswer", "wrote nothing"},
        {"echo certificate", "badAnswer", "no certificate that can be read"},
        {"kill -9 $$", "badAnswer", "crashed"},
        {R"(printf 'a\033[2Jb' >&2; exit 11)", "refused", "a?[2Jb"},
        {"head -c 1100000 /dev/zero", "badAnswer", "more than a certificate"},
        {"exec cat /dev/zero", "badAnswer", "more than a certificate"},
        {R"(printf 'caf\303\251\n'; exit 10)", "badAnswer", "cookie that is not an ASCII line"},
        {R"(head -c 5000 /dev/zero | tr '\0' x; exit 10)", "badAnswer", "cookie"},
        {"cat anothers", "wrongCertificate", "another key"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.script);
        const auto failure = failureOf([&] { return enrol(row.script); });
        EXPECT_EQ(failure.cause, row.cause);
        EXPECT_THAT(failure.text, HasSubstr(row.text));
    }
}

TEST_F(CommandAuthority, programThatHangs_isKilledAfterTheTimeLimit)
{
    Configuration configuration = configured("echo waiting >&2; exec sleep 60");
    configuration.values.insert(QStringLiteral("time-limit"), QStringLiteral("1"));
    QElapsedTimer timer;
    timer.start();
    const auto failure = failureOf([&] { return authority(configuration)->enrol(m_request); });
    EXPECT_LT(timer.elapsed(), 20000);
    EXPECT_EQ(failure.cause, "unreachable");
    EXPECT_THAT(failure.text, HasSubstr("within 1 seconds. waiting"));
}

TEST_F(CommandAuthority, programThatIsNotThere_isToldByProbeAndEnrol)
{
    for (const char* program : {"command:/nonexistent/authority", "command:no-such-program"}) {
        const auto way = authority(configurationFrom(QString::fromLatin1(program), {}));
        EXPECT_EQ(failureOf([&] { return way->enrol(m_request); }).cause, "misconfigured");
        EXPECT_EQ(failureOf([&] {
                      way->probe();
                      return 0;
                  }).cause,
                  "misconfigured");
    }
    EXPECT_NO_THROW(authority(configurationFrom(QStringLiteral("command:sh"), {}))->probe());
}

TEST_F(CommandAuthority, unreadableRequest_reachesNoProgram)
{
    m_request.pkcs10 = "no request";
    EXPECT_EQ(failureOf([&] { return enrol("touch seen"); }).cause, "misconfigured");
    EXPECT_FALSE(QFile::exists(m_folder.filePath(QStringLiteral("seen"))));
}
