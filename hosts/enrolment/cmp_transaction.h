// A CMP transaction that may outlive the process: its messages are carried over HTTP, and what the
// authority answered is kept, so that a later run can take the transaction up where it stood.
//
// The library begins every transaction with a request and offers no way into the middle of one. So
// a later run lets it begin, hands it the kept answers of the authority in their order instead of
// sending anything, and sends from then on. The library checks kept answers like fresh ones.

#ifndef TARVELOQT_HOSTS_ENROLMENT_CMP_TRANSACTION_H
#define TARVELOQT_HOSTS_ENROLMENT_CMP_TRANSACTION_H

#include "hosts/enrolment/cmp_handles.h"
#include "hosts/enrolment/cmp_refusal.h"
#include "hosts/enrolment/http_exchange.h"

#include <QByteArray>
#include <QJsonObject>
#include <QUrl>

#include <chrono>
#include <exception>
#include <vector>

namespace enrolment {

// What a transaction has come to. Holds no secret.
struct CmpProgress {
    QByteArray transactionId;
    // DER of the authority's messages, as far as they still matter, in the order they came.
    std::vector<QByteArray> answers;

    bool isEmpty() const { return answers.empty(); }
};

// subject: names the request and where it went; a progress belongs to one subject alone.
QJsonObject stateOf(const CmpProgress& progress, const QByteArray& subject);
// Empty unless the state is one of stateOf() for the same subject.
CmpProgress progressFrom(const QJsonObject& state, const QByteArray& subject);

// Carries the messages of one context. Not thread-safe.
class CmpTransaction {
public:
    using Clock = std::chrono::steady_clock;

    // Attaches itself to the context, which must not be used after its end. Nothing is sent after
    // `end`.
    CmpTransaction(OSSL_CMP_CTX* context, QUrl url, HttpSettings http, Clock::time_point end,
                   const CmpProgress& past);
    CmpTransaction(const CmpTransaction&) = delete;
    CmpTransaction& operator=(const CmpTransaction&) = delete;
    CmpTransaction(CmpTransaction&&) = delete;
    CmpTransaction& operator=(CmpTransaction&&) = delete;
    ~CmpTransaction() = default;

    // Messages that were sent, successfully or not.
    int sent() const { return m_sent; }
    // To be called when the library took the last answer without sending anything after it.
    void lastAnswerWasTaken();
    // With the answers that the library took.
    const CmpProgress& progress() const { return m_progress; }
    // Why no answer came; nothing when it did.
    std::exception_ptr failure() const { return m_failure; }
    // Whether the last answer is an error message, and whose.
    ErrorProof errorProof() const { return m_errorProof; }

private:
    static OSSL_CMP_MSG* transfer(OSSL_CMP_CTX* context, const OSSL_CMP_MSG* message);
    CmpHandle<OSSL_CMP_MSG> answerTo(const OSSL_CMP_MSG* message);
    CmpHandle<OSSL_CMP_MSG> keptAnswer();
    CmpHandle<OSSL_CMP_MSG> sentFor(const OSSL_CMP_MSG* message);
    void judgeError(const OSSL_CMP_MSG* answer);

    OSSL_CMP_CTX* m_context;
    QUrl m_url;
    HttpSettings m_http;
    Clock::time_point m_end;
    std::vector<QByteArray> m_past;
    std::size_t m_replayed = 0;
    CmpProgress m_progress;
    // The last answer, until the library has taken it, when it is one to keep.
    QByteArray m_pending;
    int m_sent = 0;
    ErrorProof m_errorProof = ErrorProof::none;
    std::exception_ptr m_failure;
};

}  // namespace enrolment

#endif
