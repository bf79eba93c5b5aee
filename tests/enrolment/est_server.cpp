#include "est_server.h"

#include <algorithm>

namespace trial {

namespace {

QByteArray serverCertificate(const Authority& authority, EVP_PKEY* key)
{
    Wish wish;
    wish.subject = {{"CN", "127.0.0.1"}};
    wish.extensions = {"subjectAltName=IP:127.0.0.1"};
    return authority.issue(key, wish);
}

// Base64 with line ends, as servers send it.
QByteArray inLines(const QByteArray& der)
{
    QByteArray base64 = der.toBase64();
    for (int at = 64; at < base64.size(); at += 66) {
        base64.insert(at, "\r\n");
    }
    return base64;
}

}  // namespace

EstServer::EstServer()
    : m_server([this](const Received& received) { return answer(received); },
               Tls{serverCertificate(m_anchor, m_key.get()), m_key.get(), {}})
{
}

QByteArray EstServer::lastIssued() const
{
    const std::lock_guard<std::mutex> lock(m_guard);
    return m_lastIssued;
}

QByteArray EstServer::lastLogin() const
{
    const std::lock_guard<std::mutex> lock(m_guard);
    return m_lastLogin;
}

std::vector<std::string> EstServer::paths() const
{
    const std::lock_guard<std::mutex> lock(m_guard);
    return m_paths;
}

int EstServer::enrolmentCount() const
{
    const std::vector<std::string> all = paths();
    return static_cast<int>(std::count_if(all.begin(), all.end(), [](const std::string& path) {
        return path.rfind("POST", 0) == 0;
    }));
}

void EstServer::answerEnrolments(LoopbackServer::Handler handler)
{
    const std::lock_guard<std::mutex> lock(m_guard);
    m_enrolments = std::move(handler);
}

void EstServer::answerAuthorities(LoopbackServer::Handler handler)
{
    const std::lock_guard<std::mutex> lock(m_guard);
    m_authorities = std::move(handler);
}

void EstServer::demand(const QByteArray& attributes)
{
    const std::lock_guard<std::mutex> lock(m_guard);
    m_demands = attributes;
}

Reply EstServer::answer(const Received& received)
{
    const std::lock_guard<std::mutex> lock(m_guard);
    m_paths.push_back((received.method + ' ' + received.path).toStdString());
    m_lastLogin = received.headers.value("authorization");
    if (received.path.endsWith("/cacerts")) {
        return m_authorities ? m_authorities(received)
                             : reply(200, "application/pkcs7-mime",
                                     inLines(pkcs7Of({m_issuer.der(), m_root.der()})));
    }
    if (received.path.endsWith("/csrattrs")) {
        return m_demands.isEmpty() ? reply(204, {}, {})
                                   : reply(200, "application/csrattrs", inLines(m_demands));
    }
    if (received.path.endsWith("/simpleenroll") || received.path.endsWith("/simplereenroll")) {
        return m_enrolments ? m_enrolments(received) : issue(received);
    }
    return reply(404, {}, {});
}

Reply EstServer::issue(const Received& received)
{
    if (received.method != "POST" ||
        received.headers.value("content-type") != "application/pkcs10") {
        return reply(400, "text/plain", "not a request");
    }
    const QByteArray pem = "-----BEGIN CERTIFICATE REQUEST-----\n" +
                           inLines(QByteArray::fromBase64(received.body)) +
                           "\n-----END CERTIFICATE REQUEST-----\n";
    m_lastIssued = m_issuer.issueFor(pem);
    return reply(200, "application/pkcs7-mime; smime-type=certs-only",
                 inLines(pkcs7Of({m_lastIssued})), {"Content-Transfer-Encoding: base64"});
}

}  // namespace trial
