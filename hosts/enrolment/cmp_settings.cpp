#include "hosts/enrolment/cmp_settings.h"

#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/enrolment/configured_file.h"
#include "hosts/enrolment/enrolment_error.h"
#include "hosts/enrolment/openssl_object.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <openssl/asn1t.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

const QString urlKey = QStringLiteral("url");
const QString referenceKey = QStringLiteral("secret-reference");
const QString secretKey = QStringLiteral("secret-file");
const QString signerKey = QStringLiteral("signer-certificate");
const QString signerKeyKey = QStringLiteral("signer-key-file");
const QString signerPasswordKey = QStringLiteral("signer-key-password-file");
const QString serverAnchorsKey = QStringLiteral("server-anchors");
const QString serverCertificateKey = QStringLiteral("server-certificate");

// id-it-certProfile, RFC 9480 2.4; libcrypto 3.0 has no name for it.
constexpr const char* certProfileOid = "1.3.6.1.5.5.7.4.21";

void requireSuccess(bool succeeded)
{
    if (!succeeded) {
        ERR_clear_error();
        throw std::bad_alloc();
    }
}

[[noreturn]] void failFile(const QString& path, const Text& what)
{
    ERR_clear_error();
    throw EnrolmentError(Cause::misconfigured,
                         QStringLiteral("%1: %2").arg(printable(path), what.string()));
}

Owned<BIO> bioOf(const char* bytes, std::size_t size)
{
    Owned<BIO> bio(BIO_new_mem_buf(bytes, static_cast<int>(size)));
    requireSuccess(bio != nullptr);
    return bio;
}

// At least one.
std::vector<Owned<X509>> certificatesOf(const QString& path)
{
    std::vector<Owned<X509>> certificates;
    for (const QByteArray& der : certificatesIn(contentOf(path))) {
        certificates.push_back(certificateFrom(der));
        requireSuccess(certificates.back() != nullptr);
    }
    if (certificates.empty()) {
        failFile(path, Text("non contiene certificati leggibili.",
                            "it holds no certificate that can be read."));
    }
    return certificates;
}

// Without a callback libcrypto would ask for the password on the terminal.
int handOverPassword(char* buffer, int size, int /*forWriting*/, void* secret)
{
    const auto& password = *static_cast<const Secret*>(secret);
    if (password.isEmpty() || password.size() > static_cast<std::size_t>(size)) {
        return -1;
    }
    std::memcpy(buffer, password.data(), password.size());
    return static_cast<int>(password.size());
}

CmpHandle<EVP_PKEY> keyIn(const QString& path, const QString& passwordPath)
{
    const Secret pem = secretIn(path);
    Secret password;
    if (!passwordPath.isEmpty()) {
        password = passwordIn(passwordPath);
    }
    const auto bio = bioOf(pem.data(), pem.size());
    CmpHandle<EVP_PKEY> key(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, &handOverPassword, &password));
    if (!key) {
        failFile(path,
                 Text("non contiene una chiave privata PEM che si apra con questa password.",
                      "it does not hold a private key in PEM that opens with this password."));
    }
    return key;
}

void protectBySecret(OSSL_CMP_CTX* context, const CmpSettings& settings)
{
    const Secret secret = passwordIn(settings.secretFile);
    requireSuccess(
        OSSL_CMP_CTX_set1_referenceValue(
            context, reinterpret_cast<const unsigned char*>(settings.reference.constData()),
            settings.reference.size()) == 1 &&
        OSSL_CMP_CTX_set1_secretValue(context,
                                      reinterpret_cast<const unsigned char*>(secret.data()),
                                      static_cast<int>(secret.size())) == 1);
}

void protectBySignature(OSSL_CMP_CTX* context, const CmpSettings& settings)
{
    const auto chain = certificatesOf(settings.signerCertificateFile);
    const auto key = keyIn(settings.signerKeyFile, settings.signerKeyPasswordFile);
    X509* signer = chain.front().get();
    if (X509_check_private_key(signer, key.get()) != 1) {
        failFile(settings.signerKeyFile,
                 Text("la chiave non appartiene al certificato di \"signer-certificate\".",
                      "the key does not belong to the certificate of \"signer-certificate\"."));
    }
    if (X509_cmp_current_time(X509_get0_notAfter(signer)) <= 0) {
        failFile(settings.signerCertificateFile,
                 Text("il certificato è scaduto.", "the certificate has expired."));
    }
    const Owned<STACK_OF(X509)> helpers(sk_X509_new_null());
    requireSuccess(helpers != nullptr);
    for (const auto& certificate : chain) {
        requireSuccess(sk_X509_push(helpers.get(), certificate.get()) > 0);
    }
    requireSuccess(OSSL_CMP_CTX_set1_untrusted(context, helpers.get()) == 1 &&
                   OSSL_CMP_CTX_set1_cert(context, signer) == 1 &&
                   OSSL_CMP_CTX_set1_pkey(context, key.get()) == 1);
}

void trustAnchors(OSSL_CMP_CTX* context, const QString& path)
{
    Owned<X509_STORE> store(X509_STORE_new());
    requireSuccess(store != nullptr);
    for (const auto& anchor : certificatesOf(path)) {
        requireSuccess(X509_STORE_add_cert(store.get(), anchor.get()) == 1);
    }
    // Whom the configuration names is trusted, also when it is no root.
    requireSuccess(X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN) == 1 &&
                   OSSL_CMP_CTX_set0_trustedStore(context, store.get()) == 1);
    static_cast<void>(store.release());
}

bool has(const Configuration& configuration, const QString& key)
{
    return !valueOf(configuration, key).isEmpty();
}

void requireOneProtection(const Configuration& configuration)
{
    const bool hasSecret = has(configuration, referenceKey) || has(configuration, secretKey);
    const bool hasSigner = has(configuration, signerKey) || has(configuration, signerKeyKey) ||
                           has(configuration, signerPasswordKey);
    if (hasSecret == hasSigner) {
        failMisconfigured(
            configuration,
            Text("Serve una protezione: o \"secret-reference\" e \"secret-file\", o "
                 "\"signer-certificate\" e \"signer-key-file\", non tutte e due.",
                 "One protection is needed: either \"secret-reference\" and \"secret-file\", or "
                 "\"signer-certificate\" and \"signer-key-file\", not both."));
    }
    for (const auto& key :
         hasSecret ? QStringList{referenceKey, secretKey} : QStringList{signerKey, signerKeyKey}) {
        static_cast<void>(requiredValueOf(configuration, key));
    }
    const bool knowsServer =
        has(configuration, serverAnchorsKey) || has(configuration, serverCertificateKey);
    if (hasSigner && !knowsServer) {
        failMisconfigured(configuration,
                          Text("Con una firma serve sapere chi firma le risposte: "
                               "\"server-anchors\" o \"server-certificate\".",
                               "With a signature it must be known who signs the answers: "
                               "\"server-anchors\" or \"server-certificate\"."));
    }
}

}  // namespace

CmpSettings cmpSettingsOf(const Configuration& configuration)
{
    requireKnownKeys(configuration,
                     httpKeys() + QStringList{urlKey, referenceKey, secretKey, signerKey,
                                              signerKeyKey, signerPasswordKey, serverAnchorsKey,
                                              serverCertificateKey,
                                              QStringLiteral("issuer-anchors")},
                     true);
    requireOneProtection(configuration);
    CmpSettings settings;
    settings.url = httpAddress(configuration, requiredValueOf(configuration, urlKey));
    settings.http = httpSettingsOf(configuration);
    settings.reference = valueOf(configuration, referenceKey).toUtf8();
    settings.secretFile = pathOf(configuration, secretKey);
    settings.signerCertificateFile = pathOf(configuration, signerKey);
    settings.signerKeyFile = pathOf(configuration, signerKeyKey);
    settings.signerKeyPasswordFile = pathOf(configuration, signerPasswordKey);
    settings.serverAnchorsFile = pathOf(configuration, serverAnchorsKey);
    settings.serverCertificateFile = pathOf(configuration, serverCertificateKey);
    return settings;
}

CmpHandle<OSSL_CMP_CTX> cmpContext(const CmpSettings& settings)
{
    CmpHandle<OSSL_CMP_CTX> context(OSSL_CMP_CTX_new(nullptr, nullptr));
    requireSuccess(context != nullptr);
    // Below the level of errors the library leaves them in its queue; else it prints and drops
    // them.
    requireSuccess(
        OSSL_CMP_CTX_set_option(context.get(), OSSL_CMP_OPT_LOG_VERBOSITY, OSSL_CMP_LOG_CRIT) == 1);
    if (!settings.secretFile.isEmpty()) {
        protectBySecret(context.get(), settings);
    } else {
        protectBySignature(context.get(), settings);
    }
    if (!settings.serverAnchorsFile.isEmpty()) {
        trustAnchors(context.get(), settings.serverAnchorsFile);
    }
    if (!settings.serverCertificateFile.isEmpty()) {
        const auto pinned = certificatesOf(settings.serverCertificateFile);
        requireSuccess(OSSL_CMP_CTX_set1_srvCert(context.get(), pinned.front().get()) == 1);
    }
    return context;
}

void addCertProfile(OSSL_CMP_CTX* context, const QString& name)
{
    const QByteArray utf8 = name.toUtf8();
    CmpHandle<ASN1_TYPE> text(ASN1_TYPE_new());
    CmpHandle<ASN1_OCTET_STRING> string(ASN1_UTF8STRING_new());
    requireSuccess(text != nullptr && string != nullptr &&
                   ASN1_STRING_set(string.get(), utf8.constData(), utf8.size()) == 1);
    ASN1_TYPE_set(text.get(), V_ASN1_UTF8STRING, string.release());
    // CertProfileValue ::= SEQUENCE SIZE (1..MAX) OF UTF8String
    ASN1_SEQUENCE_ANY* sequence = sk_ASN1_TYPE_new_null();
    requireSuccess(sequence != nullptr);
    const bool isPushed = sk_ASN1_TYPE_push(sequence, text.get()) > 0;
    CmpHandle<ASN1_TYPE> value(
        isPushed ? ASN1_TYPE_pack_sequence(ASN1_ITEM_rptr(ASN1_SEQUENCE_ANY), sequence, nullptr)
                 : nullptr);
    sk_ASN1_TYPE_free(sequence);
    requireSuccess(value != nullptr);
    ASN1_OBJECT* type = OBJ_txt2obj(certProfileOid, 1);
    CmpHandle<OSSL_CMP_ITAV> item(type == nullptr ? nullptr
                                                  : OSSL_CMP_ITAV_create(type, value.get()));
    if (!item) {
        ASN1_OBJECT_free(type);
    }
    requireSuccess(item != nullptr);
    static_cast<void>(value.release());
    requireSuccess(OSSL_CMP_CTX_push0_geninfo_ITAV(context, item.get()) == 1);
    static_cast<void>(item.release());
}

}  // namespace enrolment
