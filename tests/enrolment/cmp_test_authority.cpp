#include "cmp_test_authority.h"

#include "hosts/enrolment/certificate_bytes.h"

#include <QCryptographicHash>

#include <openssl/cmperr.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <stdexcept>

namespace trial {

using enrolment::certificateFrom;
using enrolment::Owned;

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

Wish otherHolder()
{
    Wish wish;
    wish.subject = {{"CN", "Luigi Verdi"}, {"serialNumber", "TINIT-VRDLGU80A01H501U"}};
    return wish;
}

QByteArray pemOf(X509_REQ* request)
{
    const Owned<BIO> bio(BIO_new(BIO_s_mem()));
    require(bio != nullptr && PEM_write_bio_X509_REQ(bio.get(), request) == 1, "PEM");
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<int>(size)};
}

const unsigned char* octets(const QByteArray& bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.constData());
}

}  // namespace

MessageSigner::MessageSigner(const Authority& issuer, const std::string& name, long endsInSeconds)
{
    Wish wish;
    wish.subject = {{"CN", name}};
    wish.beginsInSeconds = -30L * 24 * 3600;
    wish.endsInSeconds = endsInSeconds;
    // Without an identifier libcrypto names the key by the reference of the shared secret.
    const auto identifier =
        QCryptographicHash::hash(QByteArray::fromStdString(name), QCryptographicHash::Sha1);
    wish.extensions = {"keyUsage=critical,digitalSignature",
                       "subjectKeyIdentifier=" + identifier.toHex().toStdString()};
    certificate = issuer.issue(key.get(), wish);
}

CmpTestAuthority::CmpTestAuthority(const Identity& identity)
    : m_issuer(identity.issuer)
    , m_context(OSSL_CMP_SRV_CTX_new(nullptr, nullptr))
{
    require(m_context != nullptr &&
                OSSL_CMP_SRV_CTX_init(m_context, this, &onRequest, nullptr, &onGeneralMessage,
                                      &onError, &onConfirmation, &onPoll) == 1,
            "server context");
    OSSL_CMP_CTX* context = OSSL_CMP_SRV_CTX_get0_cmp_ctx(m_context);
    const auto signer = certificateFrom(identity.signer->certificate);
    require(OSSL_CMP_CTX_set_option(context, OSSL_CMP_OPT_LOG_VERBOSITY, 0) == 1 &&
                OSSL_CMP_CTX_set1_cert(context, signer.get()) == 1 &&
                OSSL_CMP_CTX_set1_pkey(context, identity.signer->key.get()) == 1,
            "server credentials");
    if (!identity.secret.isEmpty()) {
        require(OSSL_CMP_CTX_set1_referenceValue(context, octets(identity.reference),
                                                 identity.reference.size()) == 1 &&
                    OSSL_CMP_CTX_set1_secretValue(context, octets(identity.secret),
                                                  identity.secret.size()) == 1,
                "shared secret");
    }
    X509_STORE* store = X509_STORE_new();
    require(store != nullptr && OSSL_CMP_CTX_set0_trustedStore(context, store) == 1 &&
                X509_STORE_add_cert(store, certificateFrom(identity.clientAnchor).get()) == 1,
            "clients' anchor");
}

CmpTestAuthority::~CmpTestAuthority()
{
    OSSL_CMP_MSG_free(m_waiting);
    OSSL_CMP_SRV_CTX_free(m_context);
}

QByteArray CmpTestAuthority::answerTo(const QByteArray& message)
{
    ERR_clear_error();
    const auto* bytes = octets(message);
    OSSL_CMP_MSG* request = d2i_OSSL_CMP_MSG(nullptr, &bytes, message.size());
    require(request != nullptr, "no CMP message came");
    bodyTypes.append(OSSL_CMP_MSG_get_bodytype(request));
    require(OSSL_CMP_SRV_CTX_set_accept_unprotected(m_context, takesBadProtection ? 1 : 0) == 1 &&
                OSSL_CMP_SRV_CTX_set_send_unprotected_errors(m_context, protectsNoErrors ? 1 : 0) ==
                    1,
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
                                            int /*requestNumber*/, const OSSL_CRMF_MSG* /*crmf*/,
                                            const X509_REQ* pkcs10, X509** certificate,
                                            STACK_OF(X509) * *chain, STACK_OF(X509) * *anchors)
{
    auto& self = authorityOf(context);
    *certificate = nullptr;
    *chain = nullptr;
    *anchors = nullptr;
    if (self.refusesEverything) {
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
    const Owned<X509_REQ> asked(X509_REQ_dup(pkcs10));
    require(asked != nullptr, "request");
    const Key otherKey = newKey();
    const QByteArray der = issuesForAnotherKey ? m_issuer->issue(otherKey.get())
                           : issuesForAnotherHolder
                               ? m_issuer->issue(X509_REQ_get0_pubkey(asked.get()), otherHolder())
                               : m_issuer->issueFor(pemOf(asked.get()));
    *certificate = certificateFrom(der).release();
    Owned<X509> issuer = certificateFrom(m_issuer->der());
    *chain = sk_X509_new_null();
    require(*chain != nullptr && sk_X509_push(*chain, issuer.get()) > 0, "chain");
    static_cast<void>(issuer.release());
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

}  // namespace trial
