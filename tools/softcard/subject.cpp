#include "tools/softcard/subject.h"

#include <stdexcept>

namespace softcard {
namespace {

using cardlibs::x509::NamePointer;

using ObjectPointer = cardlibs::x509::Pointer<ASN1_OBJECT, ASN1_OBJECT_free>;
using StringPointer = cardlibs::x509::Pointer<ASN1_STRING, ASN1_STRING_free>;

StringPointer encoded(const SubjectAttribute& attribute)
{
    ASN1_STRING* raw = nullptr;
    // No libcrypto table is asked: it would refuse values that real certificates have.
    const unsigned long mask = ASN1_tag2bit(attribute.stringType);
    const int type =
        ASN1_mbstring_copy(&raw, reinterpret_cast<const unsigned char*>(attribute.value.data()),
                           static_cast<int>(attribute.value.size()), MBSTRING_UTF8, mask);
    StringPointer value(raw);
    if (type != attribute.stringType)
        throw std::runtime_error("cannot encode the subject attribute " + attribute.type);
    return value;
}

}  // namespace

std::vector<SubjectAttribute> subjectOf(const Holder& holder, const std::string& serialPrefix,
                                        const std::string& title)
{
    std::vector<SubjectAttribute> attributes = {
        {"2.5.4.6", "IT", V_ASN1_PRINTABLESTRING},
        {"2.5.4.10", holder.organisation},
        {"2.5.4.4", holder.surname},
        {"2.5.4.42", holder.givenName},
        {"2.5.4.5", serialPrefix + holder.fiscalCode, V_ASN1_PRINTABLESTRING},
        {"2.5.4.46", holder.identifier, V_ASN1_PRINTABLESTRING},
        {"2.5.4.3", holder.surname + " " + holder.givenName},
    };
    if (!title.empty())
        attributes.push_back({"2.5.4.12", title});
    return attributes;
}

NamePointer nameOf(const std::vector<SubjectAttribute>& attributes)
{
    NamePointer name(X509_NAME_new());
    for (const SubjectAttribute& attribute : attributes) {
        const ObjectPointer type(OBJ_txt2obj(attribute.type.c_str(), 1));
        const StringPointer value = encoded(attribute);
        if (!name || !type ||
            X509_NAME_add_entry_by_OBJ(
                name.get(), type.get(), attribute.stringType, ASN1_STRING_get0_data(value.get()),
                ASN1_STRING_length(value.get()), -1, attribute.joinsPrevious ? -1 : 0) != 1)
            throw std::runtime_error("cannot add the subject attribute " + attribute.type);
    }
    return name;
}

}  // namespace softcard
