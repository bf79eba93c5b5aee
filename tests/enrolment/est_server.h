// An EST server (RFC 7030) with an authority behind it that issues from the request.

#ifndef TARVELOQT_TESTS_ENROLMENT_EST_SERVER_H
#define TARVELOQT_TESTS_ENROLMENT_EST_SERVER_H

#include "loopback_server.h"
#include "trial_authority.h"

#include <mutex>
#include <string>
#include <vector>

namespace trial {

class EstServer {
public:
    EstServer();

    QString address() const { return m_server.address(); }
    // What the server's own certificate comes from.
    const Authority& anchor() const { return m_anchor; }
    // What issued certificates come from, and what that comes from.
    const Authority& issuer() const { return m_issuer; }
    const Authority& root() const { return m_root; }

    // DER; empty before the first.
    QByteArray lastIssued() const;
    // The authorization header of the last request.
    QByteArray lastLogin() const;
    // "METHOD /path" of every request so far.
    std::vector<std::string> paths() const;
    int enrolmentCount() const;

    // Answers otherwise than a good server; an empty function makes it good again.
    void answerEnrolments(LoopbackServer::Handler handler);
    void answerAuthorities(LoopbackServer::Handler handler);
    // What /csrattrs answers with (DER); without it there are no demands.
    void demand(const QByteArray& attributes);

private:
    Reply answer(const Received& received);
    Reply issue(const Received& received);

    Authority m_anchor{"Castelvane Servers"};
    Authority m_root{"Castelvane Root"};
    Authority m_issuer{"Castelvane Issuing", &m_root};
    Key m_key = newKey();
    mutable std::mutex m_guard;
    LoopbackServer::Handler m_enrolments;
    LoopbackServer::Handler m_authorities;
    QByteArray m_demands;
    QByteArray m_lastIssued;
    QByteArray m_lastLogin;
    std::vector<std::string> m_paths;
    LoopbackServer m_server;
};

}  // namespace trial

#endif
