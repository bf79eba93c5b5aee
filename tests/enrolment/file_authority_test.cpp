#include "expected_error.h"
#include "hosts/enrolment/authority.h"
#include "tests/support/printing.h"
#include "trial_authority.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gmock/gmock.h>

using namespace enrolment;
using testing::HasSubstr;
using trial::failureOf;

namespace {

QByteArray content(const QString& path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

void put(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

class FileAuthority : public testing::Test {
protected:
    QStringList names() const { return QDir(m_folder.path()).entryList(QDir::Files, QDir::Name); }
    // Where a certificate with this ending is awaited.
    QString awaited(const QString& ending) const
    {
        const QString request = m_folder.filePath(names().filter(".p10.pem").value(0));
        return QString(request).replace(QStringLiteral(".p10.pem"), ending);
    }

    QTemporaryDir m_folder;
    trial::Authority m_authority{"Castelvane"};
    trial::Key m_key = trial::newKey();
    Request m_request{trial::requestPem(m_key.get()),
                      QStringLiteral("1.3.76.16.3"),
                      QDate(2030, 1, 20),
                      true,
                      {}};
    std::unique_ptr<Authority> m_way =
        authority(configurationFrom(QStringLiteral("file:") + m_folder.path(), {}));
};

}  // namespace

TEST_F(FileAuthority, firstRun_writesRequestAndCompanionAndDefers)
{
    const Answer answer = m_way->enrol(m_request);
    ASSERT_TRUE(std::holds_alternative<Deferred>(answer));
    ASSERT_EQ(names().size(), 2);
    EXPECT_EQ(content(awaited(QStringLiteral(".p10.pem"))), m_request.pkcs10);
    const QJsonObject companion =
        QJsonDocument::fromJson(content(awaited(QStringLiteral(".json")))).object();
    EXPECT_EQ(companion.value(QStringLiteral("policy")).toString(), m_request.policy);
    EXPECT_EQ(companion.value(QStringLiteral("notAfter")).toString(), QStringLiteral("2030-01-20"));
    EXPECT_TRUE(companion.value(QStringLiteral("isRenewal")).toBool());
    EXPECT_THAT(std::get<Deferred>(answer).reason.toStdString(),
                HasSubstr(awaited(QStringLiteral(".crt")).toStdString()));
}

TEST_F(FileAuthority, certificateOfEveryForm_isTakenInALaterRun)
{
    m_way->enrol(m_request);
    const QByteArray own = m_authority.issueFor(m_request.pkcs10);
    const std::pair<QString, QByteArray> files[] = {
        {QStringLiteral(".crt"), trial::pemOf(own)},
        {QStringLiteral(".cer"), own},
        {QStringLiteral(".pem"), trial::pemOf(m_authority.der()) + trial::pemOf(own)},
        {QStringLiteral(".der"), own},
        {QStringLiteral(".p7b"), trial::pkcs7PemOf({m_authority.der(), own})},
        {QStringLiteral(".p7c"), trial::pkcs7Of({own})},
    };
    for (const auto& [ending, bytes] : files) {
        put(awaited(ending), bytes);
        const Answer answer = m_way->enrol(m_request);
        ASSERT_TRUE(std::holds_alternative<Issued>(answer)) << ending.toStdString();
        EXPECT_EQ(std::get<Issued>(answer).certificate, own);
        ASSERT_TRUE(QFile::remove(awaited(ending)));
    }
}

TEST_F(FileAuthority, twoRequests_doNotMix)
{
    const trial::Key other = trial::newKey();
    m_way->enrol(m_request);
    Request second = m_request;
    second.pkcs10 = trial::requestPem(other.get());
    m_way->enrol(second);
    EXPECT_EQ(names().size(), 4);
}

TEST_F(FileAuthority, unsuitableFiles_areRefusedAndTheRequestStays)
{
    m_way->enrol(m_request);
    const trial::Key other = trial::newKey();
    struct Row {
        QByteArray bytes;
        const char* cause;
        const char* text;
    };
    const Row rows[] = {
        {"", "badAnswer", "no certificate that can be read"},
        {"<html>", "badAnswer", "no certificate that can be read"},
        {trial::pemOf(m_authority.issue(other.get())), "wrongCertificate", "another key"},
        {QByteArray(1048577, 'x'), "misconfigured", "larger than 1 MiB"},
    };
    for (const Row& row : rows) {
        put(awaited(QStringLiteral(".crt")), row.bytes);
        const auto failure = failureOf([&] { return m_way->enrol(m_request); });
        EXPECT_EQ(failure.cause, row.cause);
        EXPECT_THAT(failure.text, HasSubstr(row.text));
        EXPECT_EQ(content(awaited(QStringLiteral(".p10.pem"))), m_request.pkcs10);
    }
}

TEST_F(FileAuthority, issuerAnchors_areHeldToTheCertificate)
{
    put(m_folder.filePath(QStringLiteral("anchors")), trial::Authority("Another").pem());
    Configuration configuration = configurationFrom(QStringLiteral("file:") + m_folder.path(), {});
    configuration.values.insert(QStringLiteral("issuer-anchors"),
                                m_folder.filePath(QStringLiteral("anchors")));
    m_way->enrol(m_request);
    put(awaited(QStringLiteral(".crt")), m_authority.issueFor(m_request.pkcs10));
    const auto failure = failureOf([&] { return authority(configuration)->enrol(m_request); });
    EXPECT_EQ(failure.cause, "wrongCertificate");
    EXPECT_THAT(failure.text, HasSubstr("not from a trusted authority"));
}

TEST_F(FileAuthority, folderThatIsNotThere_isToldByProbeAndEnrol)
{
    const auto way = authority(configurationFrom(QStringLiteral("file:/nonexistent/folder"), {}));
    EXPECT_EQ(failureOf([&] { return way->enrol(m_request); }).cause, "misconfigured");
    const auto failure = failureOf([&] {
        way->probe();
        return 0;
    });
    EXPECT_THAT(failure.text, HasSubstr("The folder /nonexistent/folder is not there"));
    EXPECT_NO_THROW(m_way->probe());
}
