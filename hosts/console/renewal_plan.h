// What a command is about to do for one certificate, as screens and JSON documents tell it before
// anything is done.

#ifndef TARVELOQT_HOSTS_CONSOLE_RENEWAL_PLAN_H
#define TARVELOQT_HOSTS_CONSOLE_RENEWAL_PLAN_H

#include "hosts/console/arguments.h"
#include "hosts/console/certificate_entry.h"

#include <QJsonObject>
#include <QString>

#include <vector>

namespace console {

enum class PlanStep {
    makeKeyPair,
    useWaitingKey,
    makeRequest,
    useKeptCertificate,
    readIssuedFile,
    askAuthority,
    fetchByHand,
    writeCertificate,
    removeReplaced,
};

struct RenewalPlan {
    CertificateEntry entry;
    // In the order in which they are done.
    std::vector<PlanStep> steps;
    // The program that is asked; empty when the certificate is fetched by hand.
    QString authority;
};

// isKept: the certificate came earlier and is kept on this machine.
RenewalPlan renewalPlan(const CertificateEntry& entry, bool isKept, const Arguments& arguments);

// A line for each step below one that names the certificate.
QString planScreen(const RenewalPlan& plan);

// {"certificate": its number, "steps": [names]}.
QJsonObject planObject(const RenewalPlan& plan);

}  // namespace console

#endif
