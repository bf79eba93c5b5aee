// An authority that speaks CMP, its web server, and the configuration of a host that knows both.

#ifndef TARVELOQT_TESTS_ENROLMENT_CMP_FIXTURE_H
#define TARVELOQT_TESTS_ENROLMENT_CMP_FIXTURE_H

#include "cmp_test_authority.h"
#include "hosts/enrolment/authority.h"
#include "loopback_server.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

namespace trial {

class Cmp : public ::testing::Test {
protected:
    // What the web server does with a request; number: from 1.
    using Handler = std::function<Reply(const Received&, int number)>;

    Cmp();

    // Starts the web server before the authority. Without a handler every request goes to it.
    void serve(Handler handler = {}, const std::optional<Tls>& tls = std::nullopt);
    Reply answerOfAuthority(const Received& received);

    // Whom the authority is and knows by default.
    CmpTestAuthority::Identity usualIdentity() const;
    // No memory of anything is left.
    void restartAuthority(const CmpTestAuthority::Identity& identity);

    // A host's configuration with the shared secret, or with a signature.
    enrolment::Configuration withSecret() const;
    enrolment::Configuration withSignature() const;

    enrolment::Request request() const;
    enrolment::Answer enrol(const enrolment::Configuration& configuration,
                            const QJsonObject& state = {}) const;
    // Whether it is the certificate for the request.
    bool isIssued(const enrolment::Answer& answer) const;

    // Path of a file of the owner's alone.
    QString file(const char* name, const QByteArray& content) const;

    QTemporaryDir folder;
    Authority issuer{"Castelvane Demo CA"};
    MessageSigner signer{issuer, "Castelvane Message Desk"};
    MessageSigner client{issuer, "Registration Desk"};
    Key key = newKey();
    QByteArray pkcs10 = requestPem(key.get());
    std::unique_ptr<CmpTestAuthority> authority;
    std::unique_ptr<LoopbackServer> server;
};

void set(enrolment::Configuration& configuration, const char* key, const QString& value);
void drop(enrolment::Configuration& configuration, const char* key);

}  // namespace trial

#endif
