// Where the issued certificate comes from: a program that speaks to the authority, a file, or the
// user's hands. Whatever the way, only the certificate for the request comes back.

#ifndef TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_SOURCE_H
#define TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_SOURCE_H

#include "hosts/console/arguments.h"
#include "hosts/console/certificate_entry.h"
#include "hosts/console/issued_certificate.h"

#include <QByteArray>

namespace console {

// The certificate with the request's public key. Throws Stop when the request is not valid
// (requestFailed), the authority fails (authorityFailed), what comes is another certificate
// (certificateRefused), or there is none yet (comeBackLater).
IssuedCertificate obtainCertificate(const Arguments& arguments, const CertificateEntry& entry,
                                    const QByteArray& requestPem);

// The certificate for a key that waits on the card without its request: from --issued, else from
// the file that the user names. The card itself judges whether it belongs to the key.
IssuedCertificate recoveredCertificate(const Arguments& arguments);

}  // namespace console

#endif
