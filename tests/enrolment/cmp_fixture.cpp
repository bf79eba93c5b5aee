#include "cmp_fixture.h"

#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/texts/language.h"

#include <QFile>

#include <utility>

namespace trial {

using enrolment::Answer;
using enrolment::Configuration;

Cmp::Cmp()
{
    texts::setLanguage(texts::Language::english);
    restartAuthority(usualIdentity());
}

void Cmp::serve(Handler handler, const std::optional<Tls>& tls)
{
    if (!handler) {
        handler = [this](const Received& received, int /*number*/) {
            return answerOfAuthority(received);
        };
    }
    auto number = std::make_shared<int>(0);
    server = std::make_unique<LoopbackServer>(
        [handler = std::move(handler), number](const Received& received) {
            return handler(received, ++*number);
        },
        tls);
}

Reply Cmp::answerOfAuthority(const Received& received)
{
    return reply(200, "application/pkixcmp", authority->answerTo(received.body));
}

CmpTestAuthority::Identity Cmp::usualIdentity() const
{
    return {&issuer, &signer, "desk-7", "correct horse battery staple", issuer.der()};
}

void Cmp::restartAuthority(const CmpTestAuthority::Identity& identity)
{
    authority = std::make_unique<CmpTestAuthority>(identity);
}

Configuration Cmp::withSecret() const
{
    Configuration configuration;
    configuration.name = QStringLiteral("desk");
    configuration.way = QStringLiteral("cmp");
    set(configuration, "url", server->address() + QStringLiteral("/cmp"));
    set(configuration, "secret-reference", QStringLiteral("desk-7"));
    set(configuration, "secret-file", file("secret", "correct horse battery staple\n"));
    set(configuration, "time-limit", QStringLiteral("5"));
    return configuration;
}

Configuration Cmp::withSignature() const
{
    Configuration configuration;
    configuration.name = QStringLiteral("desk");
    configuration.way = QStringLiteral("cmp");
    set(configuration, "url", server->address() + QStringLiteral("/cmp"));
    set(configuration, "signer-certificate", file("signer.pem", pemOf(client.certificate)));
    set(configuration, "signer-key-file", file("signer.key", keyPem(client.key.get())));
    set(configuration, "server-anchors", file("anchors.pem", issuer.pem()));
    set(configuration, "time-limit", QStringLiteral("5"));
    return configuration;
}

enrolment::Request Cmp::request() const
{
    enrolment::Request made;
    made.pkcs10 = pkcs10;
    return made;
}

Answer Cmp::enrol(const Configuration& configuration, const QJsonObject& state) const
{
    auto asked = request();
    asked.state = state;
    return enrolment::authority(configuration)->enrol(asked);
}

bool Cmp::isIssued(const Answer& answer) const
{
    const auto* issued = std::get_if<enrolment::Issued>(&answer);
    if (issued == nullptr) {
        return false;
    }
    const auto certificate = enrolment::certificateFrom(issued->certificate);
    const auto issuing = enrolment::certificateFrom(issuer.der());
    return certificate != nullptr &&
           EVP_PKEY_eq(X509_get0_pubkey(certificate.get()), key.get()) == 1 &&
           X509_verify(certificate.get(), X509_get0_pubkey(issuing.get())) == 1;
}

QString Cmp::file(const char* name, const QByteArray& content) const
{
    QFile made(folder.filePath(QString::fromLatin1(name)));
    if (!made.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        made.write(content) != content.size() ||
        !made.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        ADD_FAILURE() << "cannot write " << qPrintable(made.fileName());
    }
    return made.fileName();
}

void set(Configuration& configuration, const char* key, const QString& value)
{
    configuration.values.insert(QString::fromLatin1(key), value);
}

void drop(Configuration& configuration, const char* key)
{
    configuration.values.remove(QString::fromLatin1(key));
}

}  // namespace trial
