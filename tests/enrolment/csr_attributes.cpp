#include "csr_attributes.h"

#include "hosts/enrolment/openssl_object.h"

#include <openssl/asn1.h>
#include <openssl/conf.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace trial {

QByteArray csrAttributes(const QByteArray& lines)
{
    const QByteArray text = "all=SEQUENCE:entries\n[entries]\n" + lines + '\n';
    const enrolment::Owned<BIO> bio(BIO_new_mem_buf(text.constData(), text.size()));
    const std::unique_ptr<CONF, decltype(&NCONF_free)> conf(NCONF_new(nullptr), &NCONF_free);
    if (NCONF_load_bio(conf.get(), bio.get(), nullptr) != 1) {
        throw std::runtime_error("no configuration");
    }
    const std::unique_ptr<ASN1_TYPE, decltype(&ASN1_TYPE_free)> value(
        ASN1_generate_nconf("SEQUENCE:entries", conf.get()), &ASN1_TYPE_free);
    unsigned char* der = nullptr;
    const int size = value == nullptr ? -1 : i2d_ASN1_TYPE(value.get(), &der);
    if (size < 0) {
        throw std::runtime_error("no sequence");
    }
    QByteArray bytes(reinterpret_cast<const char*>(der), size);
    OPENSSL_free(der);
    return bytes;
}

}  // namespace trial
