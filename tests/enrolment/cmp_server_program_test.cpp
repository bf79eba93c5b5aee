// Against the CMP server of the openssl program, which others wrote from the same RFCs as ours.

#include "cmp_fixture.h"
#include "expected_error.h"

#include <QProcess>
#include <QStandardPaths>

#include <gmock/gmock.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace trial {

using enrolment::Configuration;
using enrolment::Deferred;

namespace {

constexpr int startMs = 10000;

// The program listens on every interface, so the test goes where there is only one. False when it
// may not.
bool leaveTheNetwork()
{
    static const bool hasLeft = [] {
        if (::unshare(CLONE_NEWNET) != 0) {
            return false;
        }
        const int any = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq loopback{};
        std::strncpy(loopback.ifr_name, "lo", IFNAMSIZ - 1);
        loopback.ifr_flags = IFF_UP | IFF_RUNNING;
        const bool isUp = any >= 0 && ::ioctl(any, SIOCSIFFLAGS, &loopback) == 0;
        ::close(any);
        return isUp;
    }();
    return hasLeft;
}

class CmpServerProgram : public Cmp {
protected:
    void SetUp() override
    {
        if (!leaveTheNetwork()) {
            GTEST_SKIP() << "no network of one's own without the right to it, and \"openssl cmp "
                            "-port\" would listen on every interface";
        }
        ASSERT_FALSE(QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty());
    }
    void TearDown() override
    {
        // The process is this test's own.
        program.kill();
        program.waitForFinished();
    }

    // The program with the credentials of the fixture and one fixed certificate for our request.
    void start(const QStringList& more)
    {
        const auto issued = file("issued.pem", pemOf(issuer.issueFor(pkcs10)));
        const auto identity = file("server.pem", pemOf(signer.certificate));
        const auto identityKey = file("server.key", keyPem(signer.key.get()));
        const auto anchor = file("issuer.pem", issuer.pem());
        const auto secret = file("program-secret", "correct horse battery staple");
        program.setProcessChannelMode(QProcess::MergedChannels);
        program.start(QStringLiteral("openssl"),
                      QStringList{QStringLiteral("cmp"), QStringLiteral("-port"),
                                  QStringLiteral("0"), QStringLiteral("-max_msgs"),
                                  QStringLiteral("20"), QStringLiteral("-srv_cert"), identity,
                                  QStringLiteral("-srv_key"), identityKey,
                                  QStringLiteral("-srv_trusted"), anchor,
                                  QStringLiteral("-srv_ref"), QStringLiteral("desk-7"),
                                  QStringLiteral("-srv_secret"), QStringLiteral("file:") + secret,
                                  QStringLiteral("-rsp_cert"), issued} +
                          more);
        QByteArray said;
        while (!said.contains("ACCEPT ") || !said.endsWith('\n')) {
            ASSERT_TRUE(program.waitForReadyRead(startMs)) << said.constData();
            said += program.readAll();
        }
        // "ACCEPT [::]:PORT PID=..."
        const auto address = said.mid(said.indexOf("ACCEPT ")).split(' ').at(1);
        port = QString::fromLatin1(address.mid(address.lastIndexOf(':') + 1).trimmed());
    }
    Configuration at(Configuration configuration) const
    {
        set(configuration, "url", QStringLiteral("http://127.0.0.1:%1/pkix/").arg(port));
        return configuration;
    }

    QProcess program;
    QString port;
};

}  // namespace

TEST_F(CmpServerProgram, sharedSecret_bringsTheCertificate)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({}));
    EXPECT_TRUE(isIssued(enrol(at(withSecret()))));
}

TEST_F(CmpServerProgram, signature_bringsTheCertificate)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({}));
    EXPECT_TRUE(isIssued(enrol(at(withSignature()))));
}

TEST_F(CmpServerProgram, waiting_isTakenUpByALaterRun)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("-poll_count"), QStringLiteral("2"),
                                   QStringLiteral("-check_after"), QStringLiteral("60")}));
    const auto answer = enrol(at(withSecret()));
    ASSERT_TRUE(std::holds_alternative<Deferred>(answer));
    EXPECT_EQ(std::get<Deferred>(answer).retryAfter, std::chrono::minutes(1));
    EXPECT_TRUE(isIssued(enrol(at(withSecret()), std::get<Deferred>(answer).state)));
}

TEST_F(CmpServerProgram, rejection_isExplained)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(
        start({QStringLiteral("-pkistatus"), QStringLiteral("2"), QStringLiteral("-failure"),
               QStringLiteral("9"), QStringLiteral("-statusstring"), QStringLiteral("try again")}));
    const auto failure = failureOf([&] { return enrol(at(withSecret())); });
    EXPECT_EQ(failure.cause, "refused");
    EXPECT_THAT(failure.text,
                ::testing::HasSubstr("the proof of possession is not valid; try again"));
}

TEST_F(CmpServerProgram, wrongSecret_isUntrusted)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({}));
    auto configuration = at(withSecret());
    set(configuration, "secret-file", file("guess", "a guess"));
    EXPECT_EQ(failureOf([&] { return enrol(configuration); }).cause, "untrusted");
}

TEST_F(CmpServerProgram, probe_findsIt)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({}));
    EXPECT_NO_THROW(enrolment::authority(at(withSignature()))->probe());
}

}  // namespace trial
