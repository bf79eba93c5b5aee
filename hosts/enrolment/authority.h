// How a certificate request reaches a certification authority and the certificate comes back, the
// same for every way there is.

#ifndef TARVELOQT_HOSTS_ENROLMENT_AUTHORITY_H
#define TARVELOQT_HOSTS_ENROLMENT_AUTHORITY_H

#include "hosts/enrolment/configuration.h"
#include "hosts/enrolment/enrolment_error.h"

#include <QByteArray>
#include <QDate>
#include <QJsonObject>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

namespace enrolment {

// What a host asks of the authority.
struct Request {
    // PEM (RFC 7468, RFC 2986).
    QByteArray pkcs10;
    // Certificate policy, a dotted object identifier; empty: the authority's usual one.
    QString policy;
    // End of validity to ask for where the way can carry it; may be invalid.
    QDate expectedEnd;
    // A certificate of this holder is replaced; else it is the first one.
    bool isRenewal = true;
    // What the deferred answer of this way left behind; empty at first. No secret.
    QJsonObject state;
};

// A certificate that passed every check of issued_check.h.
struct Issued {
    // DER.
    QByteArray certificate;
    // DER, the other certificates of the answer, in its order; may be empty.
    std::vector<QByteArray> chain;
};

// No certificate yet, and nothing is wrong: the same request is to be made again later.
struct Deferred {
    // For Request::state of the next time; the host keeps it. No secret.
    QJsonObject state;
    // The authority's wish; nothing when it has none.
    std::optional<std::chrono::seconds> retryAfter;
    // A whole sentence for the person, in the language that is set.
    QString reason;
};

using Answer = std::variant<Issued, Deferred>;

// Instances are immutable; each call is on its own. One at a time per process is what is tested.
class Authority {
public:
    Authority() = default;
    Authority(const Authority&) = delete;
    Authority& operator=(const Authority&) = delete;
    Authority(Authority&&) = delete;
    Authority& operator=(Authority&&) = delete;
    virtual ~Authority();

    // The way: "file", "command", "est" or "cmp".
    virtual QString name() const = 0;
    // Throws EnrolmentError (policyUnsupported) for a policy that this way cannot ask for: found
    // out before a key is made for it.
    virtual void requirePolicy(const QString& policy) const;
    // Blocks for at most the configured time limits. Throws EnrolmentError.
    virtual Answer enrol(const Request& request) const = 0;
    // Looks whether the authority could be asked, and asks for nothing. Throws EnrolmentError.
    virtual void probe() const = 0;
};

// The authority that the configuration describes. Throws EnrolmentError (misconfigured) for an
// unknown way, an unknown key and whatever else can be known to be wrong without going the way.
std::unique_ptr<Authority> authority(const Configuration& configuration);

}  // namespace enrolment

#endif
