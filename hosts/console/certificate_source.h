// Issued certificates that come by hand: in a file that was named, or that the user names when
// asked. Only the certificate for the request comes back.

#ifndef TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_SOURCE_H
#define TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_SOURCE_H

#include "hosts/console/arguments.h"
#include "hosts/console/issued_certificate.h"
#include "hosts/console/renewal_record.h"

namespace console {

// The certificate with the public key of the record's request; shows the request where there is no
// file yet. Throws Stop when what comes is another certificate (certificateRefused), or there is
// none yet (comeBackLater).
IssuedCertificate handedCertificate(const Arguments& arguments, const RenewalRecord& record);

// The certificate for a key that waits on the card without its request: from --issued, else from
// the file that the user names. The card itself judges whether it belongs to the key.
IssuedCertificate recoveredCertificate(const Arguments& arguments);

}  // namespace console

#endif
