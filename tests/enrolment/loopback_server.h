// An HTTP or HTTPS server on 127.0.0.1 that answers as a test wants it to, well or badly.

#ifndef TARVELOQT_TESTS_ENROLMENT_LOOPBACK_SERVER_H
#define TARVELOQT_TESTS_ENROLMENT_LOOPBACK_SERVER_H

#include "trial_authority.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace trial {

struct Received {
    QByteArray method;
    // As it was sent.
    QByteArray path;
    // Names in lower case.
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;
    // DER of the certificate that the client showed; empty without one.
    QByteArray clientCertificate;
};

struct Reply {
    // The whole answer with its headers.
    QByteArray bytes;
    // The connection breaks after so many bytes; negative: never.
    int cutAfter = -1;
    // The last 1,024 bytes are sent again and again.
    bool isEndless = false;
    // Before each byte.
    std::chrono::milliseconds pause{};
};

// A complete answer; headers: lines without line ends.
Reply reply(int status, const QByteArray& contentType, const QByteArray& body,
            const QList<QByteArray>& headers = {});

struct Tls {
    QByteArray certificate;
    EVP_PKEY* key = nullptr;
    // PEM; a client certificate of theirs is demanded. Empty: none is asked for.
    QByteArray clientAnchors;
};

// Answers one request per connection, one after the other, on a thread of its own.
class LoopbackServer {
public:
    using Handler = std::function<Reply(const Received&)>;

    explicit LoopbackServer(Handler handler, const std::optional<Tls>& tls = std::nullopt);
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    LoopbackServer(LoopbackServer&&) = delete;
    LoopbackServer& operator=(LoopbackServer&&) = delete;
    ~LoopbackServer();

    // With the port, without a path.
    QString address() const;
    // Requests that came whole.
    int requestCount() const { return m_requests; }
    int connectionCount() const { return m_connections; }

private:
    class Connection;
    struct ContextRelease;

    void serve();
    void answer(Connection& connection);
    void send(Connection& connection, const Reply& reply) const;

    Handler m_handler;
    int m_listener = -1;
    int m_port = 0;
    void* m_context = nullptr;
    std::atomic<bool> m_isStopping{false};
    std::atomic<int> m_requests{0};
    std::atomic<int> m_connections{0};
    std::thread m_thread;
};

}  // namespace trial

#endif
