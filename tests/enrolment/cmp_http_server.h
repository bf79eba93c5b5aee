// A web server for CMP tests on 127.0.0.1 that can also misbehave: one connection at a time, one
// request per connection.

#ifndef TARVELOQT_TESTS_ENROLMENT_CMP_HTTP_SERVER_H
#define TARVELOQT_TESTS_ENROLMENT_CMP_HTTP_SERVER_H

#include <QByteArray>
#include <QString>

#include <openssl/ssl.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace cmp_tests {

struct ReceivedRequest {
    // Number of the request since the server's start, from 1.
    int number = 0;
    QByteArray method;
    QByteArray path;
    QByteArray contentType;
    QByteArray body;
};

struct ServedReply {
    QByteArray body;
    int status = 200;
    QByteArray contentType = "application/pkixcmp";
    // A line of the head, without its end; empty: none.
    QByteArray extraHeader;
    // The connection ends after as many bytes of the whole reply, head included.
    std::optional<int> cutAfter;
    // Between two bytes of the body.
    std::chrono::milliseconds delayPerByte{0};
    // The body is repeated until the client has enough of it.
    bool isEndless = false;
};

// The whole reply as it goes over the wire.
QByteArray wireFormOf(const ServedReply& reply);

class CmpHttpServer {
public:
    using Handler = std::function<ServedReply(const ReceivedRequest&)>;

    // tls: nothing for plain HTTP; not owned. The handler runs in the server's thread.
    explicit CmpHttpServer(Handler handler, SSL_CTX* tls = nullptr);
    CmpHttpServer(const CmpHttpServer&) = delete;
    CmpHttpServer& operator=(const CmpHttpServer&) = delete;
    CmpHttpServer(CmpHttpServer&&) = delete;
    CmpHttpServer& operator=(CmpHttpServer&&) = delete;
    ~CmpHttpServer();

    // With the path "/cmp".
    QString url() const;
    int requests() const { return m_requests; }

private:
    void serve();
    void answer(int connection);

    Handler m_handler;
    SSL_CTX* m_tls;
    int m_listener = -1;
    int m_port = 0;
    std::atomic<int> m_requests{0};
    std::atomic<bool> m_ends{false};
    std::thread m_thread;
};

}  // namespace cmp_tests

#endif
