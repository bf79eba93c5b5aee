// Certificates and requests as they travel: PEM, DER, PKCS#7. Read by OpenSSL alone.

#ifndef TARVELOQT_HOSTS_ENROLMENT_CERTIFICATE_BYTES_H
#define TARVELOQT_HOSTS_ENROLMENT_CERTIFICATE_BYTES_H

#include "hosts/enrolment/openssl_object.h"

#include <QByteArray>
#include <QString>

#include <vector>

namespace enrolment {

// Every certificate in the bytes, as DER and in their order: PEM certificates and PKCS#7 blocks
// among any other text, else one DER certificate or DER PKCS#7 (RFC 2315, RFC 5652) with nothing
// behind it. Empty when there is none.
std::vector<QByteArray> certificatesIn(const QByteArray& bytes);

// Those of a DER PKCS#7 without signature, as EST sends them ("certs-only"). Empty when the bytes
// are none, or hold more than it.
std::vector<QByteArray> certificatesInPkcs7(const QByteArray& der);

// Null when the bytes are not one certificate and nothing else.
Owned<X509> certificateFrom(const QByteArray& der);

// Null when the text is no request, or the request is not signed by its own key.
Owned<X509_REQ> requestFrom(const QByteArray& pem);

QByteArray derOf(X509* certificate);
QByteArray derOf(X509_REQ* request);
// DER of the SubjectPublicKeyInfo.
QByteArray derOf(X509_PUBKEY* key);
// RFC 2253, unescaped beyond ASCII; printable.
QString nameText(const X509_NAME* name);

}  // namespace enrolment

#endif
