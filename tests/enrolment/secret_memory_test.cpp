// That passwords do not outlive the exchange that needs them, in libcurl's memory neither.

#include "expected_error.h"
#include "hosts/enrolment/http_exchange.h"
#include "loopback_server.h"
#include "tests/support/memory_scan.h"
#include "tests/support/printing.h"
#include "trial_authority.h"

#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace enrolment;
using trial::LoopbackServer;
using trial::Received;
using trial::reply;

namespace {

class SecretMemory : public testing::Test {
protected:
    void SetUp() override
    {
        QFile file(m_settings.anchorsFile);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_GT(file.write(m_authority.pem()), 0);
        const int descriptor = ::open(QFile::encodeName(m_settings.passwordFile).constData(),
                                      O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(descriptor, 0);
        m_secret.writeLine(descriptor);
        ASSERT_EQ(::close(descriptor), 0);
    }

    trial::Tls tls()
    {
        trial::Wish wish;
        wish.extensions = {"subjectAltName=IP:127.0.0.1"};
        return {m_authority.issue(m_key.get(), wish), m_key.get(), {}};
    }

    HttpAnswer ask(const LoopbackServer& server) const
    {
        return exchange({HttpRequest::Method::post, QUrl(server.address()), "body", "text/plain"},
                        m_settings);
    }

    static HttpSettings settingsIn(const QTemporaryDir& folder)
    {
        HttpSettings settings;
        settings.anchorsFile = folder.filePath(QStringLiteral("anchors"));
        settings.user = QStringLiteral("ada");
        settings.passwordFile = folder.filePath(QStringLiteral("password"));
        settings.totalTime = std::chrono::seconds(10);
        settings.pauseBeforeRepeat = std::chrono::milliseconds(0);
        return settings;
    }

    // Long, because an allocator writes over the beginning of what it takes back.
    support::Secret m_secret{40};
    QTemporaryDir m_folder;
    HttpSettings m_settings = settingsIn(m_folder);
    trial::Authority m_authority{"Castelvane Servers"};
    trial::Key m_key = trial::newKey();
};

}  // namespace

TEST_F(SecretMemory, afterABasicLogin_holdsNoPassword)
{
    const LoopbackServer server([](const Received&) { return reply(200, {}, {}); }, tls());
    EXPECT_EQ(ask(server).status, 200);
    EXPECT_EQ(m_secret.copiesInMemory(), 0);
}

TEST_F(SecretMemory, afterADigestLogin_holdsNoPassword)
{
    int logins = 0;
    const LoopbackServer server(
        [&](const Received& received) {
            const bool isLogin = received.headers.value("authorization").contains("response=");
            logins += isLogin ? 1 : 0;
            return isLogin ? reply(200, {}, {})
                           : reply(401, {}, {},
                                   {R"(WWW-Authenticate: Digest realm="est", nonce="n1")"});
        },
        tls());
    m_settings.login = HttpLogin::digest;
    EXPECT_EQ(ask(server).status, 200);
    EXPECT_EQ(logins, 1);
    EXPECT_EQ(m_secret.copiesInMemory(), 0);
}

TEST_F(SecretMemory, afterAFailure_holdsNoPassword)
{
    trial::Reply cut = reply(200, {}, "body");
    cut.cutAfter = 10;
    const LoopbackServer server([&](const Received&) { return cut; }, tls());
    EXPECT_EQ(trial::failureOf([&] { return ask(server); }).cause, "unreachable");
    EXPECT_EQ(m_secret.copiesInMemory(), 0);
}
