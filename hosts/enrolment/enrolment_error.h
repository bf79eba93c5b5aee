// Why a certificate did not come, and what to do about it.

#ifndef TARVELOQT_HOSTS_ENROLMENT_ENROLMENT_ERROR_H
#define TARVELOQT_HOSTS_ENROLMENT_ENROLMENT_ERROR_H

#include <QByteArray>
#include <QString>

#include <exception>

namespace enrolment {

enum class Cause {
    misconfigured,      // the way is not described well enough to be gone
    policyUnsupported,  // no profile is configured for the policy asked for; nothing was sent
    unreachable,        // no answer, or only a part of one; the authority may have the request
    untrusted,          // the server does not prove to be the right one; its answer was not used
    refused,            // the authority says no
    unmetDemand,        // the authority demands what the request does not have; nothing was sent
    badAnswer,          // an answer that is none
    wrongCertificate,   // a certificate, but not the one that was asked for
};

// The enumerator's own name, for programs.
QString nameOf(Cause cause);

// Texts are whole sentences in the language set when the error was thrown. They are safe to show:
// words of others in them went through printable().
class EnrolmentError : public std::exception {
public:
    // cure: replaces what the cause alone advises.
    EnrolmentError(Cause cause, QString text, QString cure = {});

    Cause cause() const { return m_cause; }
    // What happened.
    const QString& text() const { return m_text; }
    // What to do.
    const QString& cure() const { return m_cure; }
    // Both, UTF-8.
    const char* what() const noexcept override { return m_what.constData(); }

private:
    Cause m_cause;
    QString m_text;
    QString m_cure;
    QByteArray m_what;
};

}  // namespace enrolment

#endif
