// A certification authority that speaks CMP, on libcrypto's server side: it really issues from the
// request that it gets, and can be told to misbehave.

#ifndef TARVELOQT_TESTS_ENROLMENT_CMP_TEST_AUTHORITY_H
#define TARVELOQT_TESTS_ENROLMENT_CMP_TEST_AUTHORITY_H

#include "trial_authority.h"

#include <QByteArray>
#include <QVector>

#include <openssl/cmp.h>

#include <optional>

namespace trial {

// Body types of messages (RFC 4210 5.1.2).
constexpr int pkcs10Message = 4;
constexpr int generalMessage = 21;
constexpr int confirmationMessage = 24;
constexpr int pollMessage = 25;

// A certificate with which messages are signed.
struct MessageSigner {
    explicit MessageSigner(const Authority& issuer, const std::string& name,
                           long endsInSeconds = 24L * 3600);

    Key key = newKey();
    // DER.
    QByteArray certificate;
};

struct Rejection {
    // Bits of PKIFailureInfo.
    int failInfo = 0;
    const char* text = nullptr;
};

class CmpTestAuthority {
public:
    // Whom the authority is and knows.
    struct Identity {
        const Authority* issuer = nullptr;
        const MessageSigner* signer = nullptr;
        // Of requests by shared secret; both empty: none.
        QByteArray reference;
        QByteArray secret;
        // DER, of the requests' signers.
        QByteArray clientAnchor;
    };

    explicit CmpTestAuthority(const Identity& identity);
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
    bool refusesEverything = false;
    bool takesBadProtection = false;
    bool protectsNoErrors = false;

    // What it did.
    int issued = 0;
    int confirmed = 0;
    int rejectedByClient = 0;
    // In the order they came.
    QVector<int> bodyTypes;

private:
    static OSSL_CMP_PKISI* onRequest(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* message,
                                     int requestNumber, const OSSL_CRMF_MSG* crmf,
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

    const Authority* m_issuer;
    OSSL_CMP_SRV_CTX* m_context = nullptr;
    OSSL_CMP_MSG* m_waiting = nullptr;
};

}  // namespace trial

#endif
