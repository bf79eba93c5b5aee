#include "tools/softcard/demo_authority.h"

#include "tools/softcard/subject.h"

#include <fcntl.h>
#include <openssl/conf.h>
#include <openssl/ec.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace softcard {
namespace {

using cardlibs::x509::BioPointer;
using cardlibs::x509::KeyPointer;
using cardlibs::x509::NumberPointer;
using cardlibs::x509::Pointer;
using cardlibs::x509::RequestPointer;
using cardlibs::x509::X509Pointer;

namespace fs = std::filesystem;

constexpr std::time_t day = 86400;
constexpr std::time_t authorityLifetime = 7300 * day;

using FilePointer = Pointer<std::FILE, std::fclose>;

void freeExtensions(STACK_OF(X509_EXTENSION) * extensions)
{
    sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
}

using ExtensionsPointer = Pointer<STACK_OF(X509_EXTENSION), freeExtensions>;

void require(bool done, const char* what)
{
    if (done)
        return;
    char reason[256] = {};
    ERR_error_string_n(ERR_get_error(), reason, sizeof reason);
    throw std::runtime_error(std::string(what) + " (" + reason + ")");
}

fs::path keyFile(const fs::path& folder)
{
    return folder / "key.pem";
}

FilePointer openFile(const fs::path& file, const char* mode)
{
    FilePointer stream(std::fopen(file.c_str(), mode));
    if (!stream)
        throw std::runtime_error("cannot open " + file.string());
    return stream;
}

FilePointer createPrivateFile(const fs::path& file)
{
    const int descriptor =
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    FilePointer stream(descriptor < 0 ? nullptr : fdopen(descriptor, "w"));
    if (!stream)
        throw std::runtime_error("cannot write " + file.string());
    return stream;
}

void setRandomSerial(X509* certificate)
{
    const NumberPointer number(BN_new());
    // RFC 5280 allows 20 octets at most.
    require(number && BN_rand(number.get(), 127, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
                BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
            "cannot draw a serial number");
}

std::string pemOf(X509* certificate)
{
    const BioPointer memory(BIO_new(BIO_s_mem()));
    require(memory && PEM_write_bio_X509(memory.get(), certificate) == 1,
            "cannot write the certificate");
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

cardlibs::Bytes derOf(const X509* certificate)
{
    unsigned char* raw = nullptr;
    const int length = i2d_X509(certificate, &raw);
    require(length > 0, "cannot encode the certificate");
    cardlibs::Bytes der(raw, raw + length);
    OPENSSL_free(raw);
    return der;
}

void copyRequested(X509* certificate, X509_REQ* request)
{
    const ExtensionsPointer asked(X509_REQ_get_extensions(request));
    for (int i = 0; asked && i < sk_X509_EXTENSION_num(asked.get()); ++i) {
        X509_EXTENSION* extension = sk_X509_EXTENSION_value(asked.get(), i);
        const int type = OBJ_obj2nid(X509_EXTENSION_get_object(extension));
        // Anything else is the authority's to decide.
        if (type == NID_key_usage || type == NID_ext_key_usage)
            require(X509_add_ext(certificate, extension, -1) == 1, "cannot copy an extension");
    }
}

}  // namespace

DemoAuthority::DemoAuthority(KeyPointer key, X509Pointer certificate)
    : m_key(std::move(key))
    , m_certificate(std::move(certificate))
{
}

DemoAuthority DemoAuthority::open(const fs::path& folder)
{
    const FilePointer keyStream = openFile(keyFile(folder), "r");
    KeyPointer key(PEM_read_PrivateKey(keyStream.get(), nullptr, nullptr, nullptr));
    require(key != nullptr, "cannot read the authority's key");
    const FilePointer certificateStream = openFile(certificateFile(folder), "r");
    X509Pointer certificate(PEM_read_X509(certificateStream.get(), nullptr, nullptr, nullptr));
    require(certificate != nullptr, "cannot read the authority's certificate");
    return DemoAuthority(std::move(key), std::move(certificate));
}

DemoAuthority DemoAuthority::make(const fs::path& folder)
{
    fs::create_directories(folder);
    KeyPointer key(EVP_EC_gen("P-256"));
    require(key != nullptr, "cannot make the authority's key");
    const auto name = nameOf({{"2.5.4.6", "IT", V_ASN1_PRINTABLESTRING},
                              {"2.5.4.10", "Castelvane"},
                              {"2.5.4.3", "Castelvane Demo CA"}});
    X509Pointer certificate(X509_new());
    const std::time_t now = std::time(nullptr);
    require(
        certificate && X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
            X509_set_subject_name(certificate.get(), name.get()) == 1 &&
            X509_set_issuer_name(certificate.get(), name.get()) == 1 &&
            X509_set_pubkey(certificate.get(), key.get()) == 1 &&
            // Certificates of a card are older than the card here, and so must the authority be.
            X509_time_adj_ex(X509_getm_notBefore(certificate.get()), -3650, 0, nullptr) !=
                nullptr &&
            ASN1_TIME_set(X509_getm_notAfter(certificate.get()), now + authorityLifetime) !=
                nullptr,
        "cannot make the authority's certificate");
    setRandomSerial(certificate.get());
    DemoAuthority authority(std::move(key), std::move(certificate));
    X509* own = authority.m_certificate.get();
    authority.addExtension(own, NID_basic_constraints, "critical,CA:TRUE");
    authority.addExtension(own, NID_key_usage, "critical,keyCertSign,cRLSign");
    authority.addExtension(own, NID_subject_key_identifier, "hash");
    authority.sign(own);

    const FilePointer keyStream = createPrivateFile(keyFile(folder));
    require(PEM_write_PrivateKey(keyStream.get(), authority.m_key.get(), nullptr, nullptr, 0,
                                 nullptr, nullptr) == 1,
            "cannot write the authority's key");
    const FilePointer certificateStream = openFile(certificateFile(folder), "w");
    require(PEM_write_X509(certificateStream.get(), own) == 1,
            "cannot write the authority's certificate");
    return authority;
}

X509Pointer DemoAuthority::draft(const X509_NAME* subject, EVP_PKEY* key,
                                 const Validity& validity) const
{
    X509Pointer certificate(X509_new());
    require(
        certificate && X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
            X509_set_subject_name(certificate.get(), subject) == 1 &&
            X509_set_issuer_name(certificate.get(), X509_get_subject_name(m_certificate.get())) ==
                1 &&
            X509_set_pubkey(certificate.get(), key) == 1 &&
            ASN1_TIME_set(X509_getm_notBefore(certificate.get()), validity.notBefore) != nullptr &&
            ASN1_TIME_set(X509_getm_notAfter(certificate.get()), validity.notAfter) != nullptr,
        "cannot make the certificate");
    setRandomSerial(certificate.get());
    addExtension(certificate.get(), NID_basic_constraints, "CA:FALSE");
    addExtension(certificate.get(), NID_subject_key_identifier, "hash");
    addExtension(certificate.get(), NID_authority_key_identifier, "keyid:always");
    return certificate;
}

void DemoAuthority::addExtension(X509* certificate, int type, const std::string& value) const
{
    if (value.empty())
        return;
    // Some extensions are only read with a configuration at hand, be it an empty one.
    const Pointer<CONF, NCONF_free> configuration(NCONF_new(nullptr));
    X509V3_CTX context;
    X509V3_set_ctx(&context, m_certificate.get(), certificate, nullptr, nullptr, 0);
    X509V3_set_nconf(&context, configuration.get());
    const Pointer<X509_EXTENSION, X509_EXTENSION_free> extension(
        X509V3_EXT_conf_nid(nullptr, &context, type, value.c_str()));
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1,
            "cannot add an extension");
}

void DemoAuthority::addPolicy(X509* certificate, const Profile& profile) const
{
    if (profile.explicitText.empty()) {
        addExtension(certificate, NID_certificate_policies, profile.policy);
        return;
    }
    const Pointer<CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free> policies(sk_POLICYINFO_new_null());
    POLICYINFO* policy = POLICYINFO_new();
    require(policies && policy && sk_POLICYINFO_push(policies.get(), policy) > 0,
            "cannot make a policy");
    policy->policyid = OBJ_txt2obj(profile.policy.c_str(), 1);
    policy->qualifiers = sk_POLICYQUALINFO_new_null();
    POLICYQUALINFO* qualifier = POLICYQUALINFO_new();
    require(policy->policyid && policy->qualifiers && qualifier &&
                sk_POLICYQUALINFO_push(policy->qualifiers, qualifier) > 0,
            "cannot make a policy qualifier");
    qualifier->pqualid = OBJ_nid2obj(NID_id_qt_unotice);
    qualifier->d.usernotice = USERNOTICE_new();
    require(qualifier->d.usernotice != nullptr, "cannot make a user notice");
    qualifier->d.usernotice->exptext = ASN1_UTF8STRING_new();
    require(qualifier->d.usernotice->exptext &&
                ASN1_STRING_set(qualifier->d.usernotice->exptext, profile.explicitText.data(),
                                static_cast<int>(profile.explicitText.size())) == 1 &&
                X509_add1_ext_i2d(certificate, NID_certificate_policies, policies.get(), 0, 0) == 1,
            "cannot add a user notice");
}

void DemoAuthority::sign(X509* certificate) const
{
    require(X509_sign(certificate, m_key.get(), EVP_sha256()) > 0, "cannot sign the certificate");
}

cardlibs::Bytes DemoAuthority::certify(const X509_NAME* subject, EVP_PKEY* key,
                                       const Validity& validity, const Profile& profile) const
{
    const X509Pointer certificate = draft(subject, key, validity);
    addExtension(certificate.get(), NID_key_usage, profile.keyUsage);
    addExtension(certificate.get(), NID_ext_key_usage, profile.extendedKeyUsage);
    addPolicy(certificate.get(), profile);
    sign(certificate.get());
    return derOf(certificate.get());
}

std::string DemoAuthority::issue(const std::string& requestPem, const Validity& validity,
                                 const std::string& policy) const
{
    const BioPointer memory(
        BIO_new_mem_buf(requestPem.data(), static_cast<int>(requestPem.size())));
    const RequestPointer request(PEM_read_bio_X509_REQ(memory.get(), nullptr, nullptr, nullptr));
    require(request != nullptr, "this is no certificate request in PEM");
    EVP_PKEY* key = X509_REQ_get0_pubkey(request.get());
    require(key != nullptr && X509_REQ_verify(request.get(), key) == 1,
            "the request's signature does not verify");
    const X509Pointer certificate = draft(X509_REQ_get_subject_name(request.get()), key, validity);
    copyRequested(certificate.get(), request.get());
    addExtension(certificate.get(), NID_certificate_policies, policy);
    sign(certificate.get());
    return pemOf(certificate.get());
}

}  // namespace softcard
