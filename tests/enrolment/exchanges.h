// Exchanges with a loopback server, as the tests of HTTP and HTTPS make them.

#ifndef TARVELOQT_TESTS_ENROLMENT_EXCHANGES_H
#define TARVELOQT_TESTS_ENROLMENT_EXCHANGES_H

#include "hosts/enrolment/http_exchange.h"
#include "loopback_server.h"

namespace trial {

inline enrolment::HttpRequest getFrom(const LoopbackServer& server)
{
    return {
        enrolment::HttpRequest::Method::get, QUrl(server.address() + QStringLiteral("/a")), {}, {}};
}

inline enrolment::HttpRequest postTo(const LoopbackServer& server)
{
    return {enrolment::HttpRequest::Method::post, QUrl(server.address() + QStringLiteral("/a")),
            "body", "application/pkcs10"};
}

inline enrolment::HttpSettings quick()
{
    enrolment::HttpSettings settings;
    settings.connectTime = std::chrono::seconds(5);
    settings.totalTime = std::chrono::seconds(10);
    settings.pauseBeforeRepeat = std::chrono::milliseconds(0);
    return settings;
}

inline LoopbackServer::Handler always(const Reply& answer)
{
    return [answer](const Received&) { return answer; };
}

}  // namespace trial

#endif
