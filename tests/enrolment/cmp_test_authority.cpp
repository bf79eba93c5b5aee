#include "tests/enrolment/cmp_test_authority.h"

#include <openssl/cmperr.h>
#include <openssl/err.h>

#include <stdexcept>

namespace cmp_tests {

namespace {

CmpTestAuthority& authorityOf(OSSL_CMP_SRV_CTX* context)
{
    return *static_cast<CmpTestAuthority*>(OSSL_CMP_SRV_CTX_get0_custom_ctx(context));
}

void require(bool succeeded, const char* what)
{
    if (!succeeded) {
        throw std::runtime_error(what);
    }
}

const unsigned char* octets(const QByteArray& bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.constData());
}

}  // namespace

CmpTestAuthority::CmpTestAuthority(const Protection& protection)
    : m_issuer(protection.issuer)
    , m_context(OSSL_CMP_SRV_CTX_new(nullptr, nullptr))
{
    require(m_context != nullptr &&
                OSSL_CMP_SRV_CTX_init(m_context, this, &onRequest, nullptr, &onGeneralMessage,
                                      &onError, &onConfirmation, &onPoll) == 1,
            "server context");
    OSSL_CMP_CTX* context = OSSL_CMP_SRV_CTX_get0_cmp_ctx(m_context);
    const Credential& signer =
        protection.signer != nullptr ? *protection.signer : *protection.issuer;
    require(OSSL_CMP_CTX_set_option(context, OSSL_CMP_OPT_LOG_VERBOSITY, 0) == 1 &&
                OSSL_CMP_CTX_set1_cert(context, signer.certificate.get()) == 1 &&
                OSSL_CMP_CTX_set1_pkey(context, signer.key.get()) == 1,
            "server credentials");
    if (!protection.secret.isEmpty()) {
        require(OSSL_CMP_CTX_set1_referenceValue(context, octets(protection.reference),
                                                 protection.reference.size()) == 1 &&
                    OSSL_CMP_CTX_set1_secretValue(context, octets(protection.secret),
                                                  protection.secret.size()) == 1,
                "shared secret");
    }
    if (protection.clientAnchor != nullptr) {
        X509_STORE* store = X509_STORE_new();
        require(store != nullptr && X509_STORE_add_cert(store, protection.clientAnchor) == 1 &&
                    OSSL_CMP_CTX_set0_trustedStore(context, store) == 1,
                "clients' anchor");
    }
}

CmpTestAuthority::~CmpTestAuthority()
{
    OSSL_CMP_MSG_free(m_waiting);
    OSSL_CMP_SRV_CTX_free(m_context);
}

void CmpTestAuthority::sendUnprotectedErrors()
{
    require(OSSL_CMP_SRV_CTX_set_send_unprotected_errors(m_context, 1) == 1, "option");
}

QByteArray CmpTestAuthority::answerTo(const QByteArray& message)
{
    ERR_clear_error();
    const auto* bytes = octets(message);
    OSSL_CMP_MSG* request = d2i_OSSL_CMP_MSG(nullptr, &bytes, message.size());
    require(request != nullptr, "no CMP message came");
    bodyTypes.append(OSSL_CMP_MSG_get_bodytype(request));
    require(OSSL_CMP_SRV_CTX_set_accept_unprotected(m_context, takesBadProtection ? 1 : 0) == 1,
            "option");
    OSSL_CMP_MSG* answer = OSSL_CMP_SRV_process_request(m_context, request);
    OSSL_CMP_MSG_free(request);
    ERR_clear_error();
    require(answer != nullptr, "no answer was made");
    unsigned char* der = nullptr;
    const int size = i2d_OSSL_CMP_MSG(answer, &der);
    OSSL_CMP_MSG_free(answer);
    require(size > 0, "no answer could be written");
    QByteArray result(reinterpret_cast<const char*>(der), size);
    OPENSSL_free(der);
    return result;
}

OSSL_CMP_PKISI* CmpTestAuthority::onRequest(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* message,
                                            int /*requestNumber*/,
                                            const OSSL_CRMF_MSG* /*template_*/,
                                            const X509_REQ* pkcs10, X509** certificate,
                                            STACK_OF(X509) * *chain, STACK_OF(X509) * *anchors)
{
    auto& self = authorityOf(context);
    *certificate = nullptr;
    *chain = nullptr;
    *anchors = nullptr;
    if (self.refusesRequestsAltogether) {
        ERR_raise(ERR_LIB_CMP, CMP_R_ERROR_PROCESSING_MESSAGE);
        return nullptr;
    }
    if (self.letsWait) {
        OSSL_CMP_MSG_free(self.m_waiting);
        self.m_waiting = OSSL_CMP_MSG_dup(message);
        return OSSL_CMP_STATUSINFO_new(OSSL_CMP_PKISTATUS_waiting, 0, "an officer decides");
    }
    return self.decide(pkcs10, certificate, chain);
}

OSSL_CMP_PKISI* CmpTestAuthority::decide(const X509_REQ* pkcs10, X509** certificate,
                                         STACK_OF(X509) * *chain)
{
    if (rejection) {
        return OSSL_CMP_STATUSINFO_new(OSSL_CMP_PKISTATUS_rejection, rejection->failInfo,
                                       rejection->text);
    }
    const TestKey otherKey = newTestKey();
    const TestRequest otherRequest = newRequest(otherKey.get(), "TINIT-VRDLGI80A01H501U");
    const TestRequest asked(X509_REQ_dup(pkcs10));
    if (!asked) {
        return nullptr;
    }
    EVP_PKEY* key = issuesForAnotherKey ? otherKey.get() : X509_REQ_get0_pubkey(asked.get());
    X509_NAME* subject =
        X509_REQ_get_subject_name(issuesForAnotherHolder ? otherRequest.get() : asked.get());
    *certificate = certificateFor(subject, key, *m_issuer).release();
    *chain = sk_X509_new_null();
    if (*chain == nullptr || X509_up_ref(m_issuer->certificate.get()) != 1 ||
        sk_X509_push(*chain, m_issuer->certificate.get()) <= 0) {
        return nullptr;
    }
    ++issued;
    return OSSL_CMP_STATUSINFO_new(OSSL_CMP_PKISTATUS_accepted, 0, nullptr);
}

int CmpTestAuthority::onGeneralMessage(OSSL_CMP_SRV_CTX* /*context*/,
                                       const OSSL_CMP_MSG* /*message*/,
                                       const STACK_OF(OSSL_CMP_ITAV) * /*in*/,
                                       STACK_OF(OSSL_CMP_ITAV) * *out)
{
    *out = sk_OSSL_CMP_ITAV_new_null();
    return *out != nullptr ? 1 : 0;
}

void CmpTestAuthority::onError(OSSL_CMP_SRV_CTX* /*context*/, const OSSL_CMP_MSG* /*message*/,
                               const OSSL_CMP_PKISI* /*status*/, const ASN1_INTEGER* /*code*/,
                               const OSSL_CMP_PKIFREETEXT* /*details*/)
{
}

int CmpTestAuthority::onConfirmation(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* /*message*/,
                                     int /*requestNumber*/, const ASN1_OCTET_STRING* /*hash*/,
                                     const OSSL_CMP_PKISI* status)
{
    auto& self = authorityOf(context);
    if (self.refusesConfirmation) {
        ERR_raise(ERR_LIB_CMP, CMP_R_ERROR_PROCESSING_MESSAGE);
        return 0;
    }
    char words[OSSL_CMP_PKISI_BUFLEN] = "";
    const bool isAccepted =
        status == nullptr || QByteArray(OSSL_CMP_snprint_PKIStatusInfo(status, words, sizeof words))
                                 .contains("accepted");
    ++(isAccepted ? self.confirmed : self.rejectedByClient);
    return 1;
}

int CmpTestAuthority::onPoll(OSSL_CMP_SRV_CTX* context, const OSSL_CMP_MSG* /*message*/,
                             int /*requestNumber*/, OSSL_CMP_MSG** request, int64_t* checkAfter)
{
    auto& self = authorityOf(context);
    ++self.polls;
    *request = nullptr;
    *checkAfter = self.checkAfterSeconds;
    if (self.m_waiting == nullptr) {
        ERR_raise(ERR_LIB_CMP, CMP_R_UNEXPECTED_PKIBODY);
        return 0;
    }
    if (!self.letsWait) {
        *request = self.m_waiting;
        self.m_waiting = nullptr;
    }
    return 1;
}

}  // namespace cmp_tests
