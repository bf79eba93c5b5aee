#include "tests/enrolment/cmp_http_server.h"

#include <QList>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace cmp_tests {

namespace {

constexpr int secondsForOneRequest = 10;
constexpr std::size_t endlessBytes = std::size_t{64} * 1024 * 1024;

struct SslRelease {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};

// The bytes of a connection, with or without TLS.
class Stream {
public:
    Stream(int connection, SSL_CTX* tls)
        : m_connection(connection)
    {
        if (tls == nullptr) {
            return;
        }
        m_ssl.reset(SSL_new(tls));
        m_isOpen = m_ssl != nullptr && SSL_set_fd(m_ssl.get(), connection) == 1 &&
                   SSL_accept(m_ssl.get()) == 1;
    }

    bool isOpen() const { return m_isOpen; }

    QByteArray read()
    {
        char bytes[4096];
        const auto count = m_ssl ? static_cast<ssize_t>(SSL_read(m_ssl.get(), bytes, sizeof bytes))
                                 : ::recv(m_connection, bytes, sizeof bytes, 0);
        return count <= 0 ? QByteArray() : QByteArray(bytes, static_cast<int>(count));
    }

    bool write(const QByteArray& bytes)
    {
        int written = 0;
        while (written < bytes.size()) {
            const auto left = bytes.size() - written;
            const auto count = m_ssl ? static_cast<ssize_t>(SSL_write(
                                           m_ssl.get(), bytes.constData() + written, left))
                                     : ::send(m_connection, bytes.constData() + written,
                                              static_cast<std::size_t>(left), MSG_NOSIGNAL);
            if (count <= 0) {
                return false;
            }
            written += static_cast<int>(count);
        }
        return true;
    }

    void end()
    {
        if (m_ssl) {
            SSL_shutdown(m_ssl.get());
        }
    }

private:
    int m_connection;
    std::unique_ptr<SSL, SslRelease> m_ssl;
    bool m_isOpen = true;
};

QByteArray headerValue(const QByteArray& head, const QByteArray& name)
{
    for (const auto& line : head.split('\n')) {
        const auto colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed().toLower() == name) {
            return line.mid(colon + 1).trimmed();
        }
    }
    return {};
}

std::optional<ReceivedRequest> requestFrom(Stream& stream)
{
    QByteArray bytes;
    int headEnd = -1;
    while ((headEnd = bytes.indexOf("\r\n\r\n")) < 0) {
        const auto more = stream.read();
        if (more.isEmpty()) {
            return std::nullopt;
        }
        bytes += more;
    }
    const auto head = bytes.left(headEnd);
    ReceivedRequest request;
    const auto words = head.left(head.indexOf("\r\n")).split(' ');
    request.method = words.value(0);
    request.path = words.value(1);
    request.contentType = headerValue(head, "content-type");
    request.body = bytes.mid(headEnd + 4);
    const auto length = headerValue(head, "content-length").toInt();
    while (request.body.size() < length) {
        const auto more = stream.read();
        if (more.isEmpty()) {
            return std::nullopt;
        }
        request.body += more;
    }
    return request;
}

void send(Stream& stream, const ServedReply& reply)
{
    const auto wire = wireFormOf(reply);
    if (reply.cutAfter) {
        stream.write(wire.left(*reply.cutAfter));
        return;
    }
    if (reply.isEndless) {
        std::size_t sent = 0;
        while (sent < endlessBytes && stream.write(wire)) {
            sent += static_cast<std::size_t>(wire.size());
        }
        return;
    }
    if (reply.delayPerByte.count() == 0) {
        stream.write(wire);
        return;
    }
    const auto headSize = wire.size() - reply.body.size();
    if (!stream.write(wire.left(headSize))) {
        return;
    }
    for (const auto byte : reply.body) {
        std::this_thread::sleep_for(reply.delayPerByte);
        if (!stream.write(QByteArray(1, byte))) {
            return;
        }
    }
}

}  // namespace

QByteArray wireFormOf(const ServedReply& reply)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(reply.status) + " Answer\r\n";
    if (!reply.contentType.isEmpty()) {
        head += "Content-Type: " + reply.contentType + "\r\n";
    }
    if (!reply.isEndless) {
        head += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
    }
    if (!reply.extraHeader.isEmpty()) {
        head += reply.extraHeader + "\r\n";
    }
    return head + "Connection: close\r\n\r\n" + reply.body;
}

CmpHttpServer::CmpHttpServer(Handler handler, SSL_CTX* tls)
    : m_handler(std::move(handler))
    , m_tls(tls)
{
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (m_listener < 0 || ::bind(m_listener, generic, size) != 0 || ::listen(m_listener, 8) != 0 ||
        ::getsockname(m_listener, generic, &size) != 0) {
        throw std::runtime_error("no listening socket");
    }
    m_port = ntohs(address.sin_port);
    m_thread = std::thread(&CmpHttpServer::serve, this);
}

CmpHttpServer::~CmpHttpServer()
{
    m_ends = true;
    m_thread.join();
    ::close(m_listener);
}

QString CmpHttpServer::url() const
{
    return QStringLiteral("%1://127.0.0.1:%2/cmp")
        .arg(m_tls == nullptr ? QStringLiteral("http") : QStringLiteral("https"))
        .arg(m_port);
}

void CmpHttpServer::serve()
{
    while (!m_ends) {
        pollfd listener{m_listener, POLLIN, 0};
        if (::poll(&listener, 1, 20) != 1) {
            continue;
        }
        const auto connection = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            continue;
        }
        answer(connection);
        ::close(connection);
    }
}

void CmpHttpServer::answer(int connection)
{
    const timeval limit{secondsForOneRequest, 0};
    if (::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        ::setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) {
        return;
    }
    Stream stream(connection, m_tls);
    if (!stream.isOpen()) {
        return;
    }
    if (auto request = requestFrom(stream)) {
        request->number = ++m_requests;
        send(stream, m_handler(*request));
        stream.end();
    }
}

}  // namespace cmp_tests
