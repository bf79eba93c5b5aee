// The examples of docs/enrolment.md, run as they are printed there.

#include "enrolment_page.h"
#include "est_server.h"
#include "expected_error.h"
#include "hosts/enrolment/authority.h"
#include "hosts/enrolment/http_exchange.h"
#include "tests/support/printing.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <sys/stat.h>

using namespace enrolment;
using testing::HasSubstr;
using trial::failureOf;

namespace {

class EnrolmentPage : public testing::Test {
protected:
    void SetUp() override
    {
        QByteArray configuration = trial::example(QStringLiteral("ini"));
        ASSERT_TRUE(configuration.contains("https://est.example\n"));
        configuration.replace("https://est.example", m_server.address().toLatin1());
        put("authorities.ini", configuration);
        put("ask-authority", trial::example(QStringLiteral("sh")), 0700);
        put("servers.pem", m_server.anchor().pem());
        put("issuing.pem", m_server.issuer().pem());
        put("est-password", "tuesday-7\n");
        ASSERT_TRUE(QDir(m_folder.path()).mkdir(QStringLiteral("requests")));
        ASSERT_TRUE(QDir(m_folder.path()).mkdir(QStringLiteral("spool")));
    }

    void put(const QString& name, const QByteArray& bytes, mode_t mode = 0600)
    {
        QFile file(m_folder.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
        file.close();
        ASSERT_EQ(::chmod(QFile::encodeName(file.fileName()).constData(), mode), 0);
    }
    void put(const char* name, const QByteArray& bytes, mode_t mode = 0600)
    {
        put(QString::fromLatin1(name), bytes, mode);
    }

    // The only file in the folder whose name ends so.
    QString found(const QString& folder, const QString& ending) const
    {
        const QStringList names =
            QDir(m_folder.filePath(folder)).entryList({QLatin1Char('*') + ending}, QDir::Files);
        EXPECT_EQ(names.size(), 1);
        return folder + QLatin1Char('/') + names.value(0);
    }

    std::unique_ptr<Authority> named(const char* name) const
    {
        return authority(configurationFrom(QString::fromLatin1(name),
                                           m_folder.filePath(QStringLiteral("authorities.ini"))));
    }

    QByteArray certificate() const { return m_server.issuer().issueFor(m_request.pkcs10); }

    QTemporaryDir m_folder;
    trial::EstServer m_server;
    trial::Key m_key = trial::newKey();
    Request m_request{trial::requestPem(m_key.get()),
                      QStringLiteral("1.3.76.16.3"),
                      QDate(2030, 1, 20),
                      true,
                      {}};
};

}  // namespace

TEST_F(EnrolmentPage, counter_bringsTheCertificateThatIsPutBesideTheRequest)
{
    const auto counter = named("counter");
    EXPECT_TRUE(std::holds_alternative<Deferred>(counter->enrol(m_request)));
    const QString request = found(QStringLiteral("requests"), QStringLiteral(".p10.pem"));
    put(QString(request).replace(QStringLiteral(".p10.pem"), QStringLiteral(".crt")),
        certificate());
    EXPECT_TRUE(std::holds_alternative<Issued>(counter->enrol(m_request)));
}

TEST_F(EnrolmentPage, spool_defersThenIssuesOrRefuses)
{
    const auto spool = named("spool");
    const Answer first = spool->enrol(m_request);
    ASSERT_TRUE(std::holds_alternative<Deferred>(first));
    EXPECT_EQ(std::get<Deferred>(first).retryAfter, std::chrono::hours(1));
    m_request.state = std::get<Deferred>(first).state;
    EXPECT_TRUE(std::holds_alternative<Deferred>(spool->enrol(m_request)));
    const QString request = found(QStringLiteral("spool"), QStringLiteral(".req"));

    put(QString(request).replace(QStringLiteral(".req"), QStringLiteral(".refused")),
        "holder unknown");
    const auto failure = failureOf([&] { return spool->enrol(m_request); });
    EXPECT_EQ(failure.cause, "refused");
    EXPECT_THAT(failure.text, HasSubstr("holder unknown"));

    ASSERT_TRUE(QFile::remove(m_folder.filePath(
        QString(request).replace(QStringLiteral(".req"), QStringLiteral(".refused")))));
    put(QString(request).replace(QStringLiteral(".req"), QStringLiteral(".crt")), certificate());
    EXPECT_TRUE(std::holds_alternative<Issued>(spool->enrol(m_request)));
}

TEST_F(EnrolmentPage, town_getsTheCertificateOfThePolicyWithTheLogin)
{
    EXPECT_NO_THROW(named("town")->probe());
    const Answer answer = named("town")->enrol(m_request);
    ASSERT_TRUE(std::holds_alternative<Issued>(answer));
    EXPECT_EQ(std::get<Issued>(answer).certificate, m_server.lastIssued());
    EXPECT_EQ(m_server.paths().back(), "POST /.well-known/est/signature/simplereenroll");
    EXPECT_EQ(m_server.lastLogin(), "Basic " + QByteArray("desk-7:tuesday-7").toBase64());

    m_request.policy = QStringLiteral("1.3.76.16.4");
    EXPECT_EQ(failureOf([&] { return named("town")->enrol(m_request); }).cause,
              "policyUnsupported");
}

TEST_F(EnrolmentPage, keysAndCauses_areAllExplained)
{
    const QString page = trial::enrolmentPage();
    QStringList keys = httpKeys();
    keys << QStringLiteral("url") << QStringLiteral("renew-by") << QStringLiteral("profile.OID")
         << QStringLiteral("issuer-anchors") << QStringLiteral("folder")
         << QStringLiteral("command");
    for (const QString& key : keys) {
        EXPECT_TRUE(page.contains(QLatin1Char('`') + key + QLatin1Char('`'))) << key.toStdString();
    }
    for (const Cause cause :
         {Cause::misconfigured, Cause::policyUnsupported, Cause::unreachable, Cause::untrusted,
          Cause::refused, Cause::unmetDemand, Cause::badAnswer, Cause::wrongCertificate}) {
        EXPECT_TRUE(page.contains(QStringLiteral("\n| `%1` |").arg(nameOf(cause))))
            << nameOf(cause).toStdString();
    }
}
