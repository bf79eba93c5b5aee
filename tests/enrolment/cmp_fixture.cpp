#include "tests/enrolment/cmp_fixture.h"

#include "hosts/enrolment/cmp_authority.h"
#include "hosts/texts/language.h"

#include <QFile>

#include <utility>

namespace cmp_tests {

using enrolment::Answer;
using enrolment::Configuration;
using enrolment::EnrolmentError;

Cmp::Cmp()
    : issuer(newCredential("Castelvane Demo CA", Use::authority))
    , client(newCredential("Registration Desk", Use::messageSigner, &issuer))
    , key(newTestKey())
    , pkcs10(newRequest(key.get()))
{
    texts::setLanguage(texts::Language::english);
    restartAuthority(usualProtection());
}

Cmp::~Cmp() = default;

Protection Cmp::usualProtection() const
{
    Protection protection;
    protection.issuer = &issuer;
    protection.reference = "desk-7";
    protection.secret = "correct horse battery staple";
    protection.clientAnchor = issuer.certificate.get();
    return protection;
}

void Cmp::restartAuthority(const Protection& protection)
{
    authority = std::make_unique<CmpTestAuthority>(protection);
}

void Cmp::serve(CmpHttpServer::Handler handler, SSL_CTX* tls)
{
    if (!handler) {
        handler = [this](const ReceivedRequest& received) { return answerOfAuthority(received); };
    }
    server = std::make_unique<CmpHttpServer>(std::move(handler), tls);
}

ServedReply Cmp::answerOfAuthority(const ReceivedRequest& received)
{
    ServedReply reply;
    reply.body = authority->answerTo(received.body);
    return reply;
}

Configuration Cmp::withSecret() const
{
    Configuration configuration;
    configuration.name = QStringLiteral("desk");
    configuration.way = QStringLiteral("cmp");
    configuration.values = {
        {QStringLiteral("url"), server->url()},
        {QStringLiteral("secret-reference"), QStringLiteral("desk-7")},
        {QStringLiteral("secret-file"),
         file(QStringLiteral("secret"), "correct horse battery staple\n")},
        {QStringLiteral("time-limit"), QStringLiteral("5")},
    };
    return configuration;
}

Configuration Cmp::withSignature() const
{
    Configuration configuration;
    configuration.name = QStringLiteral("desk");
    configuration.way = QStringLiteral("cmp");
    configuration.values = {
        {QStringLiteral("url"), server->url()},
        {QStringLiteral("signer-certificate"),
         file(QStringLiteral("signer.pem"), pemOf(client.certificate.get()))},
        {QStringLiteral("signer-key-file"),
         file(QStringLiteral("signer.key"), pemOf(client.key.get()))},
        {QStringLiteral("server-anchors"),
         file(QStringLiteral("anchors.pem"), pemOf(issuer.certificate.get()))},
        {QStringLiteral("time-limit"), QStringLiteral("5")},
    };
    return configuration;
}

enrolment::Request Cmp::request() const
{
    enrolment::Request made;
    made.pkcs10 = pemOf(pkcs10.get());
    return made;
}

Answer Cmp::enrol(const Configuration& configuration) const
{
    return enrolment::cmpAuthority(configuration)->enrol(request());
}

std::optional<EnrolmentError> Cmp::errorOf(const Configuration& configuration) const
{
    try {
        static_cast<void>(enrol(configuration));
    } catch (const EnrolmentError& error) {
        return error;
    }
    ADD_FAILURE() << "no error";
    return std::nullopt;
}

bool Cmp::answersRequest(const enrolment::Issued& issued) const
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(issued.certificate.constData());
    const TestCertificate certificate(d2i_X509(nullptr, &bytes, issued.certificate.size()));
    return certificate != nullptr &&
           EVP_PKEY_eq(X509_get0_pubkey(certificate.get()), key.get()) == 1 &&
           X509_verify(certificate.get(), issuer.key.get()) == 1;
}

QString Cmp::file(const QString& name, const QByteArray& content) const
{
    QFile made(folder.filePath(name));
    if (!made.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        made.write(content) != content.size() ||
        !made.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        ADD_FAILURE() << "cannot write " << qPrintable(made.fileName());
    }
    return made.fileName();
}

}  // namespace cmp_tests
