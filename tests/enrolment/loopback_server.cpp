#include "loopback_server.h"

#include "hosts/enrolment/certificate_bytes.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

namespace trial {

namespace {

constexpr int lookMilliseconds = 20;
constexpr timeval patience{5, 0};

void require(bool isDone, const char* what)
{
    if (!isDone) {
        throw std::runtime_error(what);
    }
}

SSL_CTX* contextFor(const Tls& tls)
{
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    require(context != nullptr, "TLS");
    const auto certificate = enrolment::certificateFrom(tls.certificate);
    require(SSL_CTX_use_certificate(context, certificate.get()) == 1 &&
                SSL_CTX_use_PrivateKey(context, tls.key) == 1,
            "server certificate");
    if (!tls.clientAnchors.isEmpty()) {
        const auto anchor =
            enrolment::certificateFrom(enrolment::certificatesIn(tls.clientAnchors).front());
        require(X509_STORE_add_cert(SSL_CTX_get_cert_store(context), anchor.get()) == 1, "anchor");
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }
    return context;
}

}  // namespace

Reply reply(int status, const QByteArray& contentType, const QByteArray& body,
            const QList<QByteArray>& headers)
{
    QByteArray bytes = "HTTP/1.1 " + QByteArray::number(status) + " Answer\r\n";
    if (!contentType.isEmpty()) {
        bytes += "Content-Type: " + contentType + "\r\n";
    }
    for (const QByteArray& header : headers) {
        bytes += header + "\r\n";
    }
    if (status != 204) {
        bytes += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    }
    return {bytes + "Connection: close\r\n\r\n" + body, -1, false, {}};
}

// One accepted connection, plain or protected.
class LoopbackServer::Connection {
public:
    Connection(int socket, void* context)
        : m_socket(socket)
    {
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        if (context != nullptr) {
            m_tls = SSL_new(static_cast<SSL_CTX*>(context));
            SSL_set_fd(m_tls, socket);
            m_isOpen = SSL_accept(m_tls) == 1;
        }
    }
    ~Connection()
    {
        SSL_free(m_tls);
        ERR_clear_error();
        ::close(m_socket);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    Connection(Connection&&) = delete;
    Connection& operator=(Connection&&) = delete;

    bool isOpen() const { return m_isOpen; }

    // Empty at the end.
    QByteArray read()
    {
        std::array<char, 4096> bytes{};
        const int got = m_tls != nullptr
                            ? SSL_read(m_tls, bytes.data(), bytes.size())
                            : static_cast<int>(::recv(m_socket, bytes.data(), bytes.size(), 0));
        return got > 0 ? QByteArray(bytes.data(), got) : QByteArray();
    }

    bool write(const QByteArray& bytes)
    {
        if (bytes.isEmpty()) {
            return true;
        }
        const int sent =
            m_tls != nullptr
                ? SSL_write(m_tls, bytes.constData(), bytes.size())
                : static_cast<int>(::send(m_socket, bytes.constData(),
                                          static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL));
        return sent == bytes.size();
    }

    void endInOrder()
    {
        if (m_tls != nullptr) {
            SSL_shutdown(m_tls);
        }
        ::shutdown(m_socket, SHUT_WR);
    }

    // Closing while something of the client's is unread would take back the alert that tells it
    // why.
    void linger() const
    {
        ::shutdown(m_socket, SHUT_WR);
        std::array<char, 4096> rest{};
        while (::recv(m_socket, rest.data(), rest.size(), 0) > 0) {
        }
    }

    QByteArray clientCertificate() const
    {
        const enrolment::Owned<X509> certificate(m_tls != nullptr ? SSL_get1_peer_certificate(m_tls)
                                                                  : nullptr);
        return certificate == nullptr ? QByteArray() : enrolment::derOf(certificate.get());
    }

private:
    int m_socket;
    SSL* m_tls = nullptr;
    bool m_isOpen = true;
};

LoopbackServer::LoopbackServer(Handler handler, const std::optional<Tls>& tls)
    : m_handler(std::move(handler))
    , m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    , m_context(tls ? contextFor(*tls) : nullptr)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    require(m_listener >= 0 && ::bind(m_listener, plain, size) == 0 &&
                ::listen(m_listener, 8) == 0 && ::getsockname(m_listener, plain, &size) == 0,
            "no socket on 127.0.0.1");
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer()
{
    m_isStopping = true;
    m_thread.join();
    ::close(m_listener);
    SSL_CTX_free(static_cast<SSL_CTX*>(m_context));
}

QString LoopbackServer::address() const
{
    return QStringLiteral("%1://127.0.0.1:%2")
        .arg(m_context != nullptr ? QStringLiteral("https") : QStringLiteral("http"))
        .arg(m_port);
}

void LoopbackServer::serve()
{
    // A client that hangs up is no reason to die.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
    while (!m_isStopping) {
        pollfd listener{m_listener, POLLIN, 0};
        if (::poll(&listener, 1, lookMilliseconds) <= 0) {
            continue;
        }
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket >= 0) {
            ++m_connections;
            Connection connection(socket, m_context);
            if (connection.isOpen()) {
                answer(connection);
            } else {
                connection.linger();
            }
        }
    }
}

void LoopbackServer::answer(Connection& connection)
{
    QByteArray bytes;
    int headEnd = -1;
    int length = 0;
    Received received;
    while (headEnd < 0 || bytes.size() < headEnd + 4 + length) {
        const QByteArray more = connection.read();
        if (more.isEmpty()) {
            return;
        }
        bytes += more;
        if (headEnd < 0 && (headEnd = bytes.indexOf("\r\n\r\n")) >= 0) {
            QList<QByteArray> lines = bytes.left(headEnd).replace('\r', "").split('\n');
            const QList<QByteArray> first = lines.takeFirst().split(' ');
            received.method = first.value(0);
            received.path = first.value(1);
            for (const QByteArray& line : lines) {
                const int colon = line.indexOf(':');
                received.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
            }
            length = received.headers.value("content-length").toInt();
        }
    }
    received.body = bytes.mid(headEnd + 4, length);
    received.clientCertificate = connection.clientCertificate();
    ++m_requests;
    send(connection, m_handler(received));
}

void LoopbackServer::send(Connection& connection, const Reply& reply) const
{
    const QByteArray bytes = reply.cutAfter < 0 ? reply.bytes : reply.bytes.left(reply.cutAfter);
    if (reply.pause.count() > 0) {
        for (int i = 0; i < bytes.size() && !m_isStopping; ++i) {
            std::this_thread::sleep_for(reply.pause);
            if (!connection.write(bytes.mid(i, 1))) {
                return;
            }
        }
    } else if (!connection.write(bytes)) {
        return;
    }
    while (reply.isEndless && !m_isStopping && connection.write(bytes.right(1024))) {
    }
    if (reply.cutAfter < 0 && !reply.isEndless) {
        connection.endInOrder();
    }
}

}  // namespace trial
