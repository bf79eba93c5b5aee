// How one CMP authority is spoken to, and the library's context that follows from it.

#ifndef TARVELOQT_HOSTS_ENROLMENT_CMP_SETTINGS_H
#define TARVELOQT_HOSTS_ENROLMENT_CMP_SETTINGS_H

#include "hosts/enrolment/cmp_handles.h"
#include "hosts/enrolment/http_exchange.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

namespace enrolment {

// Paths are absolute or empty. Either the shared secret is set or the signer.
struct CmpSettings {
    QUrl url;
    HttpSettings http;
    // Protection by shared secret (RFC 4210 5.1.3.1): by which name the authority knows it, and the
    // file, the owner's alone, that holds it.
    QByteArray reference;
    QString secretFile;
    // Protection by signature (RFC 4210 5.1.3.3): PEM; the chain may follow the certificate. The
    // key's file must be its owner's alone, as must that of the password that it is encrypted with.
    QString signerCertificateFile;
    QString signerKeyFile;
    QString signerKeyPasswordFile;
    // Who may sign the authority's messages: PEM, anchors of the signer's chain, or the very
    // certificate. With neither, only messages protected by the shared secret are taken.
    QString serverAnchorsFile;
    QString serverCertificateFile;
};

// Looks at the form alone and reads no file. Throws EnrolmentError (misconfigured).
CmpSettings cmpSettingsOf(const Configuration& configuration);

// A context with the credentials of the settings, ready for a request. Throws EnrolmentError
// (misconfigured) when a file cannot be used.
CmpHandle<OSSL_CMP_CTX> cmpContext(const CmpSettings& settings);

// Adds id-it-certProfile (RFC 9480 2.4) with this name to the messages of the context.
void addCertProfile(OSSL_CMP_CTX* context, const QString& name);

}  // namespace enrolment

#endif
