// A certification authority that speaks CMP, on libcrypto's server side: it really issues from the
// request that it gets, and can be told to misbehave.

#ifndef TARVELOQT_TESTS_ENROLMENT_CMP_TEST_AUTHORITY_H
#define TARVELOQT_TESTS_ENROLMENT_CMP_TEST_AUTHORITY_H

#include "tests/enrolment/cmp_credentials.h"

#include <QByteArray>
#include <QVector>

#include <openssl/cmp.h>

#include <optional>

namespace cmp_tests {

struct Rejection {
    // Bits of PKIFailureInfo.
    int failInfo = 0;
    const char* text = nullptr;
};

// Whom the authority is and knows. Certificates stay the caller's.
struct Protection {
    // With which it issues; also what it signs its messages with, unless `signer` is set.
    const Credential* issuer = nullptr;
    const Credential* signer = nullptr;
    // Of requests by shared secret; both empty: none.
    QByteArray reference;
    QByteArray secret;
    // Anchor of the requests' signers; may be nothing.
    X509* clientAnchor = nullptr;
};

class CmpTestAuthority {
public:
    explicit CmpTestAuthority(const Protection& protection);
    CmpTestAuthority(const CmpTestAuthority&) = delete;
    CmpTestAuthority& operator=(const CmpTestAuthority&) = delete;
    CmpTestAuthority(CmpTestAuthority&&) = delete;
    CmpTestAuthority& operator=(CmpTestAuthority&&) = delete;
    ~CmpTestAuthority();

    // DER of a PKIMessage in and out.
    QByteArray answerTo(const QByteArray& message);

    // Requests wait for a decision until this is false again.
    bool letsWait = false;
    int checkAfterSeconds = 1;
    // A request is rejected; when it waits, at its next poll.
    std::optional<Rejection> rejection;
    bool issuesForAnotherKey = false;
    bool issuesForAnotherHolder = false;
    bool refusesConfirmation = false;
    bool refusesRequestsAltogether = false;
    bool takesBadProtection = false;
    void sendUnprotectedErrors();

    // What it did.
    int issued = 0;
    int confirmed = 0;
    int rejectedByClient = 0;
    int polls = 0;
    // Body types (RFC 4210 5.1.2) in the order they came.
    QVector<int> bodyTypes;

private:
    static OSSL_CMP_PKISI* onRequest(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* message,
                                     int requestNumber, const OSSL_CRMF_MSG* template_,
                                     const X509_REQ* pkcs10, X509** certificate,
                                     STACK_OF(X509) * *chain, STACK_OF(X509) * *anchors);
    static int onGeneralMessage(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* message,
                                const STACK_OF(OSSL_CMP_ITAV) * in, STACK_OF(OSSL_CMP_ITAV) * *out);
    static void onError(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* message,
                        const OSSL_CMP_PKISI* status, const ASN1_INTEGER* code,
                        const OSSL_CMP_PKIFREETEXT* details);
    static int onConfirmation(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* message,
                              int requestNumber, const ASN1_OCTET_STRING* hash,
                              const OSSL_CMP_PKISI* status);
    static int onPoll(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* message, int requestNumber,
                      OSSL_CMP_MSG** request, int64_t* checkAfter);

    OSSL_CMP_PKISI* decide(const X509_REQ* pkcs10, X509** certificate, STACK_OF(X509) * *chain);

    const Credential* m_issuer;
    OSSL_CMP_SRV_CTX* m_context = nullptr;
    OSSL_CMP_MSG* m_waiting = nullptr;
};

}  // namespace cmp_tests

#endif
