// An authority that speaks CMP, its web server, and the configuration of a host that knows both.

#ifndef TARVELOQT_TESTS_ENROLMENT_CMP_FIXTURE_H
#define TARVELOQT_TESTS_ENROLMENT_CMP_FIXTURE_H

#include "hosts/enrolment/authority.h"
#include "tests/enrolment/cmp_http_server.h"
#include "tests/enrolment/cmp_test_authority.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

namespace cmp_tests {

class Cmp : public ::testing::Test {
protected:
    Cmp();
    ~Cmp() override;

    // Starts the web server before the authority. Without a handler of its own every request goes
    // to the authority.
    void serve(CmpHttpServer::Handler handler = {}, SSL_CTX* tls = nullptr);
    ServedReply answerOfAuthority(const ReceivedRequest& request);
    // Whom the authority is and knows by default.
    Protection usualProtection() const;
    // No memory of anything is left.
    void restartAuthority(const Protection& protection);

    // A host's configuration with the shared secret, or with a signature.
    enrolment::Configuration withSecret() const;
    enrolment::Configuration withSignature() const;

    enrolment::Request request() const;
    enrolment::Answer enrol(const enrolment::Configuration& configuration) const;
    // The error that enrolling ends in; a failed test without one.
    std::optional<enrolment::EnrolmentError>
    errorOf(const enrolment::Configuration& configuration) const;
    // Whether it is the certificate for the request.
    bool answersRequest(const enrolment::Issued& issued) const;

    // Path of a file of the owner's alone.
    QString file(const QString& name, const QByteArray& content) const;

    QTemporaryDir folder;
    Credential issuer;
    Credential client;
    TestKey key;
    TestRequest pkcs10;
    std::unique_ptr<CmpTestAuthority> authority;
    std::unique_ptr<CmpHttpServer> server;
};

}  // namespace cmp_tests

#endif
