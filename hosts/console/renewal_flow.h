// One renewal from start to end, in the order that the library asks for: session, reader, PIN,
// checks, table, request, authority, installation, table again.

#ifndef TARVELOQT_HOSTS_CONSOLE_RENEWAL_FLOW_H
#define TARVELOQT_HOSTS_CONSOLE_RENEWAL_FLOW_H

#include "hosts/console/arguments.h"
#include "hosts/console/card_session.h"
#include "hosts/console/certificate_entry.h"
#include "hosts/console/issued_certificate.h"

#include <vector>

namespace console {

class RenewalFlow {
public:
    explicit RenewalFlow(Arguments arguments);

    // Runs the whole renewal. Throws Stop where it cannot go on; the session is ended by the
    // destructor in every case.
    void run();

private:
    void chooseReader();
    void givePin();
    void checkCard();
    std::vector<CertificateEntry> readInventory();
    QByteArray makeRequest(const CertificateEntry& entry);
    void install(const CertificateEntry& entry, const IssuedCertificate& certificate);
    void showResult(const CertificateEntry& before, const IssuedCertificate& certificate,
                    const std::vector<CertificateEntry>& earlier);

    Arguments m_arguments;
    CardSession m_session;
};

// Runs the flow and turns its end into an exit code, with the explanation on standard error.
ExitCode renew(const Arguments& arguments);

}  // namespace console

#endif
