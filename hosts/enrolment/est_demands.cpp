#include "hosts/enrolment/est_demands.h"

#include "hosts/texts/language.h"

#include <openssl/asn1t.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <array>
#include <vector>

namespace enrolment {

using texts::Text;

namespace {

struct Release {
    void operator()(ASN1_SEQUENCE_ANY* list) const { sk_ASN1_TYPE_pop_free(list, &ASN1_TYPE_free); }
    void operator()(X509_ATTRIBUTE* attribute) const { X509_ATTRIBUTE_free(attribute); }
    void operator()(X509_EXTENSIONS* list) const
    {
        sk_X509_EXTENSION_pop_free(list, &X509_EXTENSION_free);
    }
};
using Attribute = std::unique_ptr<X509_ATTRIBUTE, Release>;
using Extensions = std::unique_ptr<X509_EXTENSIONS, Release>;

QString dotted(const ASN1_OBJECT* object)
{
    std::array<char, 128> text{};
    OBJ_obj2txt(text.data(), text.size(), object, 1);
    return QString::fromLatin1(text.data());
}

QString nameOf(const ASN1_OBJECT* object)
{
    const int nid = OBJ_obj2nid(object);
    return nid == NID_undef ? dotted(object)
                            : QStringLiteral("%1 (%2)").arg(QString::fromLatin1(OBJ_nid2ln(nid)),
                                                            dotted(object));
}

// The request as far as demands speak of it.
struct Features {
    explicit Features(X509_REQ* pkcs10)
        : request(pkcs10)
        , key(X509_REQ_get0_pubkey(pkcs10))
        , keyType(EVP_PKEY_get_base_id(key))
        , signature(X509_REQ_get_signature_nid(pkcs10))
        , extensions(X509_REQ_get_extensions(pkcs10))
    {
        OBJ_find_sigid_algs(signature, &digest, nullptr);
        std::array<char, 80> group{};
        if (EVP_PKEY_get_group_name(key, group.data(), group.size(), nullptr) == 1) {
            curve = OBJ_txt2nid(group.data());
        }
    }

    X509_REQ* request;
    EVP_PKEY* key;
    int keyType;
    int signature;
    int digest = NID_undef;
    int curve = NID_undef;
    Extensions extensions;
};

// Demands of one sort, of which one must be met.
struct Alternatives {
    QStringList names;
    bool isMet = false;

    void add(const QString& name, bool meets)
    {
        names.append(name);
        isMet = isMet || meets;
    }
};

class Comparison {
public:
    explicit Comparison(X509_REQ* request)
        : m_features(request)
    {
    }

    void compareType(const ASN1_OBJECT* object)
    {
        int digest = NID_undef;
        int keyType = NID_undef;
        const int nid = OBJ_obj2nid(object);
        if (nid == NID_pkcs9_challengePassword) {
            m_unmet.append(Text("una password di sfida (%1) nella richiesta",
                                "a challenge password (%1) in the request")
                               .arg(dotted(object)));
        } else if (nid == NID_rsaEncryption || nid == NID_X9_62_id_ecPublicKey) {
            m_keyTypes.add(nameOf(object), nid == m_features.keyType);
        } else if (nid != NID_undef && OBJ_find_sigid_algs(nid, &digest, &keyType) == 1) {
            m_signatures.add(nameOf(object), nid == m_features.signature);
        } else if (nid != NID_undef && EVP_get_digestbynid(nid) != nullptr) {
            m_digests.add(nameOf(object), nid == m_features.digest);
        } else if (nid != NID_undef && X509V3_EXT_get_nid(nid) != nullptr) {
            requireExtension(object, nullptr);
        } else if (nid != NID_undef && ASN1_STRING_TABLE_get(nid) != nullptr) {
            requireNamePart(object);
        }
    }

    void compareAttribute(X509_ATTRIBUTE* attribute)
    {
        const ASN1_OBJECT* type = X509_ATTRIBUTE_get0_object(attribute);
        const int nid = OBJ_obj2nid(type);
        for (int i = 0; i < X509_ATTRIBUTE_count(attribute); ++i) {
            const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, i);
            if (nid == NID_ext_req && value->type == V_ASN1_SEQUENCE) {
                compareExtensions(value->value.sequence);
            } else if (nid == NID_ext_req && value->type == V_ASN1_OBJECT) {
                requireExtension(value->value.object, nullptr);
            } else if (nid == NID_X9_62_id_ecPublicKey && value->type == V_ASN1_OBJECT) {
                m_curves.add(nameOf(value->value.object),
                             OBJ_obj2nid(value->value.object) == m_features.curve);
            } else if (nid == NID_rsaEncryption && value->type == V_ASN1_INTEGER) {
                const long bits = ASN1_INTEGER_get(value->value.integer);
                m_lengths.add(Text("%1 bit", "%1 bits").arg(QString::number(bits)),
                              bits > 0 && EVP_PKEY_get_bits(m_features.key) >= bits);
            }
        }
        if (nid != NID_ext_req) {
            compareType(type);
        }
    }

    bool isReadable() const { return m_isReadable; }

    QStringList unmet() const
    {
        QStringList all = m_unmet;
        const std::pair<const Alternatives*, Text> sorts[] = {
            {&m_keyTypes, Text("una chiave di tipo %1", "a key of the type %1")},
            {&m_curves, Text("una chiave sulla curva %1", "a key on the curve %1")},
            {&m_lengths, Text("una chiave di almeno %1", "a key of at least %1")},
            {&m_signatures, Text("una firma con %1", "a signature by %1")},
            {&m_digests, Text("una firma con l'impronta %1", "a signature with the digest %1")},
        };
        for (const auto& [alternatives, phrase] : sorts) {
            if (!alternatives->names.isEmpty() && !alternatives->isMet) {
                all.append(phrase.arg(alternatives->names.join(Text(" o ", " or ").string())));
            }
        }
        return all;
    }

private:
    void compareExtensions(const ASN1_STRING* sequence)
    {
        const unsigned char* bytes = ASN1_STRING_get0_data(sequence);
        const Extensions demanded(
            d2i_X509_EXTENSIONS(nullptr, &bytes, ASN1_STRING_length(sequence)));
        m_isReadable = m_isReadable && demanded != nullptr;
        for (int i = 0; i < sk_X509_EXTENSION_num(demanded.get()); ++i) {
            X509_EXTENSION* extension = sk_X509_EXTENSION_value(demanded.get(), i);
            requireExtension(X509_EXTENSION_get_object(extension),
                             X509_EXTENSION_get_data(extension));
        }
    }

    // value: null or empty when any will do.
    void requireExtension(const ASN1_OBJECT* type, const ASN1_OCTET_STRING* value)
    {
        const int index = X509v3_get_ext_by_OBJ(m_features.extensions.get(), type, -1);
        const bool isAnyValue = value == nullptr || ASN1_STRING_length(value) == 0;
        const bool isMet =
            index >= 0 && (isAnyValue || ASN1_OCTET_STRING_cmp(
                                             value, X509_EXTENSION_get_data(X509v3_get_ext(
                                                        m_features.extensions.get(), index))) == 0);
        if (!isMet) {
            m_unmet.append(Text("l'estensione %1", "the extension %1").arg(nameOf(type)) +
                           (index >= 0
                                ? Text(" con un altro valore", " with another value").string()
                                : QString()));
        }
    }

    void requireNamePart(const ASN1_OBJECT* type)
    {
        const X509_NAME* subject = X509_REQ_get_subject_name(m_features.request);
        const bool isThere = X509_NAME_get_index_by_OBJ(subject, type, -1) >= 0 ||
                             X509_REQ_get_attr_by_OBJ(m_features.request, type, -1) >= 0;
        if (!isThere) {
            m_unmet.append(
                Text("%1 nel nome del titolare", "%1 in the holder's name").arg(nameOf(type)));
        }
    }

    Features m_features;
    QStringList m_unmet;
    Alternatives m_keyTypes;
    Alternatives m_curves;
    Alternatives m_lengths;
    Alternatives m_signatures;
    Alternatives m_digests;
    bool m_isReadable = true;
};

}  // namespace

std::optional<QStringList> unmetDemands(const QByteArray& csrAttributes, X509_REQ* request)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(csrAttributes.constData());
    const auto* end = bytes + csrAttributes.size();
    const std::unique_ptr<ASN1_SEQUENCE_ANY, Release> list(
        d2i_ASN1_SEQUENCE_ANY(nullptr, &bytes, csrAttributes.size()));
    bool isReadable = list != nullptr && bytes == end;
    Comparison comparison(request);
    for (int i = 0; isReadable && i < sk_ASN1_TYPE_num(list.get()); ++i) {
        const ASN1_TYPE* entry = sk_ASN1_TYPE_value(list.get(), i);
        if (entry->type == V_ASN1_OBJECT) {
            comparison.compareType(entry->value.object);
            continue;
        }
        Attribute attribute;
        if (entry->type == V_ASN1_SEQUENCE) {
            const unsigned char* der = ASN1_STRING_get0_data(entry->value.sequence);
            attribute.reset(
                d2i_X509_ATTRIBUTE(nullptr, &der, ASN1_STRING_length(entry->value.sequence)));
        }
        isReadable = attribute != nullptr;
        if (isReadable) {
            comparison.compareAttribute(attribute.get());
        }
    }
    ERR_clear_error();
    return isReadable && comparison.isReadable() ? std::make_optional(comparison.unmet())
                                                 : std::nullopt;
}

}  // namespace enrolment
