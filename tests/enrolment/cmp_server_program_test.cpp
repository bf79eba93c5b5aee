// Against the CMP server of the openssl program, which others wrote from the same RFCs as ours.

#include "hosts/enrolment/cmp_authority.h"
#include "tests/enrolment/cmp_fixture.h"

#include <QProcess>
#include <QStandardPaths>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace cmp_tests {

using enrolment::Cause;
using enrolment::Configuration;
using enrolment::Deferred;
using enrolment::Issued;

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
        if (QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty()) {
            GTEST_SKIP() << "the openssl program is not installed";
        }
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
        const auto certificate =
            certificateFor(X509_REQ_get_subject_name(pkcs10.get()), key.get(), issuer);
        const auto issued = file(QStringLiteral("issued.pem"), pemOf(certificate.get()));
        const auto identity = file(QStringLiteral("server.pem"), pemOf(issuer.certificate.get()));
        const auto identityKey = file(QStringLiteral("server.key"), pemOf(issuer.key.get()));
        const auto secret = file(QStringLiteral("program-secret"), "correct horse battery staple");
        program.setProcessChannelMode(QProcess::MergedChannels);
        program.start(QStringLiteral("openssl"),
                      QStringList{QStringLiteral("cmp"), QStringLiteral("-port"),
                                  QStringLiteral("0"), QStringLiteral("-max_msgs"),
                                  QStringLiteral("20"), QStringLiteral("-srv_cert"), identity,
                                  QStringLiteral("-srv_key"), identityKey,
                                  QStringLiteral("-srv_trusted"), identity,
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
        configuration.values.insert(QStringLiteral("url"),
                                    QStringLiteral("http://127.0.0.1:%1/pkix/").arg(port));
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
    const auto answer = enrol(at(withSecret()));
    ASSERT_TRUE(std::holds_alternative<Issued>(answer));
    EXPECT_TRUE(answersRequest(std::get<Issued>(answer)));
}

TEST_F(CmpServerProgram, signature_bringsTheCertificate)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({}));
    const auto answer = enrol(at(withSignature()));
    ASSERT_TRUE(std::holds_alternative<Issued>(answer));
    EXPECT_TRUE(answersRequest(std::get<Issued>(answer)));
}

TEST_F(CmpServerProgram, waiting_isTakenUpByALaterRun)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("-poll_count"), QStringLiteral("2"),
                                   QStringLiteral("-check_after"), QStringLiteral("60")}));
    auto asked = request();
    const auto authorityByProgram = enrolment::cmpAuthority(at(withSecret()));
    auto answer = authorityByProgram->enrol(asked);
    ASSERT_TRUE(std::holds_alternative<Deferred>(answer));
    EXPECT_EQ(std::get<Deferred>(answer).retryAfter, std::chrono::minutes(1));
    asked.state = std::get<Deferred>(answer).state;
    answer = authorityByProgram->enrol(asked);
    ASSERT_TRUE(std::holds_alternative<Issued>(answer));
    EXPECT_TRUE(answersRequest(std::get<Issued>(answer)));
}

TEST_F(CmpServerProgram, rejection_isExplained)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(
        start({QStringLiteral("-pkistatus"), QStringLiteral("2"), QStringLiteral("-failure"),
               QStringLiteral("9"), QStringLiteral("-statusstring"), QStringLiteral("try again")}));
    const auto error = errorOf(at(withSecret()));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), Cause::refused);
    EXPECT_TRUE(
        error->text().contains(QStringLiteral("the proof of possession is not valid; try again")))
        << error->what();
}

TEST_F(CmpServerProgram, wrongSecret_isUntrusted)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({}));
    auto configuration = at(withSecret());
    configuration.values.insert(QStringLiteral("secret-file"),
                                file(QStringLiteral("guess"), "a guess"));
    const auto error = errorOf(configuration);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), Cause::untrusted);
}

TEST_F(CmpServerProgram, probe_findsIt)
{
    serve();
    ASSERT_NO_FATAL_FAILURE(start({}));
    EXPECT_NO_THROW(enrolment::cmpAuthority(at(withSignature()))->probe());
}

}  // namespace cmp_tests
