// EST with a server that shares no code with the client: Python's HTTP and TLS, OpenSSL's program
// as the authority and as the judge.

#include "expected_error.h"
#include "hosts/enrolment/authority.h"
#include "tests/support/printing.h"
#include "trial_authority.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gmock/gmock.h>

using namespace enrolment;
using testing::HasSubstr;
using trial::failureOf;

namespace {

class EstInteroperation : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(run({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                       "ec_paramgen_curve:P-256", "-noenc", "-keyout", "ca.key", "-out", "ca.pem",
                       "-days", "9", "-subj", "/CN=Castelvane Demonstration"}),
                  0);
    }
    ~EstInteroperation() override
    {
        m_server.kill();
        m_server.waitForFinished();
    }

    int run(const QStringList& command)
    {
        QProcess process;
        process.setWorkingDirectory(m_folder.path());
        process.start(command.first(), command.mid(1));
        EXPECT_TRUE(process.waitForFinished(20000));
        return process.exitCode();
    }

    // Returns when the server's address is known.
    void serve(const QStringList& issueCommand)
    {
        m_server.setWorkingDirectory(m_folder.path());
        m_server.start(QStringLiteral(TARVELOQT_SOURCE_DIR "/scripts/est-server"),
                       QStringList{".", "ca.pem"} + issueCommand);
        QElapsedTimer timer;
        timer.start();
        while (!QFile::exists(m_folder.filePath("address")) && timer.elapsed() < 20000) {
            QThread::msleep(20);
        }
        QFile address(m_folder.filePath("address"));
        ASSERT_TRUE(address.open(QIODevice::ReadOnly))
            << m_server.readAllStandardError().toStdString();
        m_configuration.values.insert("url", QString::fromLatin1(address.readAll()));
        m_configuration.values.insert("anchors", m_folder.filePath("server.pem"));
    }

    QTemporaryDir m_folder;
    QProcess m_server;
    Configuration m_configuration{"demonstration", "est", {}, {}};
    trial::Key m_key = trial::newKey();
    Request m_request{trial::requestPem(m_key.get()), {}, {}, true, {}};
};

}  // namespace

TEST_F(EstInteroperation, certificate_isIssuedAndVerifiedByOpenssl)
{
    serve({"openssl", "x509", "-req", "-CA", "ca.pem", "-CAkey", "ca.key", "-days", "5",
           "-set_serial", "17"});
    EXPECT_NO_THROW(authority(m_configuration)->probe());
    const Answer answer = authority(m_configuration)->enrol(m_request);
    ASSERT_TRUE(std::holds_alternative<Issued>(answer));
    QFile issued(m_folder.filePath("issued.pem"));
    ASSERT_TRUE(issued.open(QIODevice::WriteOnly));
    ASSERT_GT(issued.write(trial::pemOf(std::get<Issued>(answer).certificate)), 0);
    issued.close();
    EXPECT_EQ(run({"openssl", "verify", "-CAfile", "ca.pem", "issued.pem"}), 0);
}

TEST_F(EstInteroperation, refusal_isToldInTheServersWords)
{
    serve({"sh", "-c", "echo 'the holder is unknown here' >&2; exit 1"});
    const auto failure = failureOf([&] { return authority(m_configuration)->enrol(m_request); });
    EXPECT_EQ(failure.cause, "refused");
    EXPECT_THAT(failure.text, HasSubstr("the holder is unknown here"));
}
