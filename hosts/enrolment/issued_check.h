// What an authority sent, checked in one place for all ways, before the card is asked to take it.

#ifndef TARVELOQT_HOSTS_ENROLMENT_ISSUED_CHECK_H
#define TARVELOQT_HOSTS_ENROLMENT_ISSUED_CHECK_H

#include "hosts/enrolment/authority.h"
#include "hosts/enrolment/openssl_object.h"

#include <QDateTime>

#include <vector>

namespace enrolment {

// The one of `certificates` (DER, any order) that answers the request, with the others as its
// chain. It has the public key of the request; the holder's serialNumber (RFC 4519) when the
// request has one; it is not expired at `now` and begins at most a day later, for clocks that
// differ; and it is issued, by way of the others, by one of `anchors` (DER), which may be the
// issuing authority itself. Without anchors the issuer is not verified. Of several that fit the key
// the one that is valid longest counts.
//
// Throws EnrolmentError: badAnswer (nothing that can be read), wrongCertificate (another key,
// another holder, dates, issuer), misconfigured (the request is none).
Issued checkedIssue(const Request& request, const std::vector<QByteArray>& certificates,
                    const std::vector<QByteArray>& anchors,
                    const QDateTime& now = QDateTime::currentDateTimeUtc());

// The PKCS#10 of the request, signed by its key. Throws EnrolmentError (misconfigured) when it is
// none.
Owned<X509_REQ> checkedRequest(const Request& request);

// The certificates in the file of the key "issuer-anchors"; empty when it is not set. Throws
// EnrolmentError (misconfigured) when the file cannot be read or holds none.
std::vector<QByteArray> issuerAnchorsOf(const Configuration& configuration);

}  // namespace enrolment

#endif
