// Looks into requests and certificates (RFC 2986, RFC 5280) before they go anywhere.

#ifndef TARVELOQT_HOSTS_CONSOLE_ISSUED_CERTIFICATE_H
#define TARVELOQT_HOSTS_CONSOLE_ISSUED_CERTIFICATE_H

#include <QByteArray>
#include <QDate>
#include <QString>

#include <optional>
#include <vector>

namespace console {

struct IssuedCertificate {
    // PEM (RFC 7468), with a line end after the last line.
    QByteArray pem;
    // DER of the SubjectPublicKeyInfo.
    QByteArray publicKey;
    QString subject;
    QString issuer;
    // Upper-case hexadecimal without leading zeros.
    QString serialNumber;
    // In UTC; invalid when the certificate holds no readable date.
    QDate notAfter;
    // The certificate of an authority, not of a person.
    bool isAuthority = false;
};

// A hexadecimal number as IssuedCertificate::serialNumber has it.
QString withoutLeadingZeros(const QString& digits);

// Every certificate in the text: PEM blocks among any other text, or else one DER certificate.
// Empty when there is none.
std::vector<IssuedCertificate> readCertificates(const QByteArray& text);

// DER of the SubjectPublicKeyInfo of a PEM request; nothing when the text is no request or its
// signature is not that of its key.
std::optional<QByteArray> requestPublicKey(const QByteArray& requestPem);

// The certificate whose public key is the given one; nothing when none has it. Authorities send
// whole chains, in any order.
std::optional<IssuedCertificate> certificateFor(const QByteArray& publicKey,
                                                const std::vector<IssuedCertificate>& certificates);

}  // namespace console

#endif
