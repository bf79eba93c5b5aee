#include "cardlibs/x509/name.h"

#include "cardlibs/x509/pointers.h"

#include <algorithm>

namespace cardlibs::x509 {
namespace {

using TypePointer = Pointer<ASN1_TYPE, ASN1_TYPE_free>;

std::string dottedType(const ASN1_OBJECT* object)
{
    char text[256] = {};
    const int length = OBJ_obj2txt(text, sizeof text, object, 1);
    return length > 0 ? std::string(text) : std::string();
}

bool isStringType(int type)
{
    switch (type) {
    case V_ASN1_UTF8STRING:
    case V_ASN1_NUMERICSTRING:
    case V_ASN1_PRINTABLESTRING:
    case V_ASN1_T61STRING:
    case V_ASN1_IA5STRING:
    case V_ASN1_VISIBLESTRING:
    case V_ASN1_UNIVERSALSTRING:
    case V_ASN1_BMPSTRING:
        return true;
    default:
        return false;
    }
}

std::optional<std::string> utf8Of(const ASN1_STRING* value)
{
    if (!isStringType(ASN1_STRING_type(value)))
        return std::nullopt;
    unsigned char* raw = nullptr;
    const int length = ASN1_STRING_to_UTF8(&raw, value);
    if (length < 0)
        return std::nullopt;
    std::string text(reinterpret_cast<const char*>(raw), static_cast<std::size_t>(length));
    OPENSSL_free(raw);
    return text;
}

Bytes derOf(const ASN1_STRING* value)
{
    const TypePointer type(ASN1_TYPE_new());
    unsigned char* raw = nullptr;
    if (!type || ASN1_TYPE_set1(type.get(), ASN1_STRING_type(value), value) != 1)
        return {};
    const int length = i2d_ASN1_TYPE(type.get(), &raw);
    if (length <= 0)
        return {};
    Bytes der(raw, raw + length);
    OPENSSL_free(raw);
    return der;
}

// One tag-length-value at the start of the bytes; the whole length, or 0 when it is cut short.
struct Element {
    unsigned char tag = 0;
    std::size_t header = 0;
    std::size_t length = 0;

    std::size_t whole() const { return header + length; }
};

std::optional<Element> elementAt(const Bytes& der, std::size_t at)
{
    if (at + 2 > der.size())
        return std::nullopt;
    Element element{der[at], 2, der[at + 1]};
    if (element.length >= 0x80) {
        const std::size_t octets = element.length & 0x7F;
        if (octets == 0 || octets > 4 || at + 2 + octets > der.size())
            return std::nullopt;
        element.header += octets;
        element.length = 0;
        for (std::size_t i = 0; i < octets; ++i)
            element.length = element.length << 8 | der[at + 2 + i];
    }
    if (element.whole() > der.size() - at)
        return std::nullopt;
    return element;
}

Bytes enclosed(unsigned char tag, const Bytes& content)
{
    Bytes der = {tag};
    if (content.size() < 0x80) {
        der.push_back(static_cast<unsigned char>(content.size()));
    } else {
        Bytes octets;
        for (std::size_t rest = content.size(); rest != 0; rest >>= 8)
            octets.insert(octets.begin(), static_cast<unsigned char>(rest & 0xFF));
        der.push_back(static_cast<unsigned char>(0x80 | octets.size()));
        der.insert(der.end(), octets.begin(), octets.end());
    }
    der.insert(der.end(), content.begin(), content.end());
    return der;
}

constexpr unsigned char setTag = 0x31;
constexpr unsigned char sequenceTag = 0x30;
constexpr unsigned char organisationType[] = {0x06, 0x03, 0x55, 0x04, 0x0A};

// The replacement in the string type of the value it replaces.
std::optional<Bytes> organisationValue(unsigned char tag)
{
    Bytes content;
    switch (tag) {
    case V_ASN1_UTF8STRING:
    case V_ASN1_PRINTABLESTRING:
    case V_ASN1_T61STRING:
    case V_ASN1_IA5STRING:
    case V_ASN1_VISIBLESTRING:
        content.assign(replacementOrganisation.begin(), replacementOrganisation.end());
        break;
    case V_ASN1_BMPSTRING:
    case V_ASN1_UNIVERSALSTRING:
        for (const char c : replacementOrganisation) {
            content.insert(content.end(), tag == V_ASN1_BMPSTRING ? 1 : 3, 0);
            content.push_back(static_cast<unsigned char>(c));
        }
        break;
    default:
        return std::nullopt;
    }
    return enclosed(tag, content);
}

// Rebuilds the element at `at` with the first organisation inside it replaced; the element as it
// stands when there is none. done is set when the replacement was made.
std::optional<Bytes> rebuilt(const Bytes& der, std::size_t at, bool& done)
{
    const std::optional<Element> element = elementAt(der, at);
    if (!element)
        return std::nullopt;
    const auto begin = der.begin() + static_cast<std::ptrdiff_t>(at);
    const auto contentBegin = begin + static_cast<std::ptrdiff_t>(element->header);
    const auto end = begin + static_cast<std::ptrdiff_t>(element->whole());
    const Bytes original(begin, end);
    if (done || (element->tag != sequenceTag && element->tag != setTag))
        return original;

    Bytes content;
    if (element->length > sizeof organisationType &&
        std::equal(std::begin(organisationType), std::end(organisationType), contentBegin)) {
        const std::size_t valueAt = at + element->header + sizeof organisationType;
        const std::optional<Bytes> value = organisationValue(der[valueAt]);
        if (!value)
            return std::nullopt;
        content.assign(std::begin(organisationType), std::end(organisationType));
        content.insert(content.end(), value->begin(), value->end());
        done = true;
        return enclosed(element->tag, content);
    }
    for (std::size_t inner = at + element->header; inner < at + element->whole();) {
        const std::optional<Element> child = elementAt(der, inner);
        const std::optional<Bytes> part = rebuilt(der, inner, done);
        if (!child || !part)
            return std::nullopt;
        content.insert(content.end(), part->begin(), part->end());
        inner += child->whole();
    }
    return enclosed(element->tag, content);
}

void appendHexPair(std::string& text, unsigned char byte)
{
    text += '\\';
    text += hexadecimal({byte});
}

bool isControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

std::string escapedValue(const std::string& value)
{
    static constexpr std::string_view special = "\"+,;<>\\";
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        const bool edgeBlank = c == ' ' && (i == 0 || i + 1 == value.size());
        const bool dotOfType = c == '.' && !text.empty() && text.back() == '2';
        if (c == '#' || dotOfType || isControl(c)) {
            appendHexPair(text, static_cast<unsigned char>(c));
        } else {
            if (edgeBlank || special.find(c) != std::string_view::npos)
                text += '\\';
            text += c;
        }
    }
    return text;
}

}  // namespace

std::optional<std::vector<Attribute>> parseName(const Bytes& der)
{
    const ErrorQueueGuard guard;
    const unsigned char* at = der.data();
    const NamePointer name(d2i_X509_NAME(nullptr, &at, static_cast<long>(der.size())));
    if (!name || at != der.data() + der.size())
        return std::nullopt;
    std::vector<Attribute> attributes;
    int previousSet = -1;
    for (int i = 0; i < X509_NAME_entry_count(name.get()); ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name.get(), i);
        const ASN1_STRING* value = X509_NAME_ENTRY_get_data(entry);
        Attribute attribute;
        attribute.type = dottedType(X509_NAME_ENTRY_get_object(entry));
        attribute.value = utf8Of(value);
        attribute.der = derOf(value);
        attribute.joinsPrevious = X509_NAME_ENTRY_set(entry) == previousSet;
        previousSet = X509_NAME_ENTRY_set(entry);
        attributes.push_back(std::move(attribute));
    }
    return attributes;
}

std::string nameText(const Bytes& der)
{
    const auto attributes = parseName(der);
    if (!attributes)
        return {};
    std::string text;
    for (const Attribute& attribute : *attributes) {
        if (!text.empty())
            text += attribute.joinsPrevious ? '+' : ',';
        text += attribute.type + "=";
        text +=
            attribute.value ? escapedValue(*attribute.value) : "\\23" + hexadecimal(attribute.der);
    }
    return text;
}

std::string fieldText(const std::string& utf8)
{
    std::string text;
    for (const char c : utf8) {
        if (c == '#' || isControl(c))
            appendHexPair(text, static_cast<unsigned char>(c));
        else
            text += c;
    }
    return text;
}

std::string firstValue(const Bytes& der, std::string_view type)
{
    const auto attributes = parseName(der);
    if (!attributes)
        return {};
    for (const Attribute& attribute : *attributes)
        if (attribute.type == type && attribute.value)
            return *attribute.value;
    return {};
}

std::string withReplacedOrganisation(const std::string& nameText)
{
    static constexpr std::string_view type = "2.5.4.10=";
    const std::size_t found = nameText.find(type);
    if (found == std::string::npos)
        return nameText;
    const std::size_t begin = found + type.size();
    const std::size_t end = nameText.find("2.", begin);
    if (end == std::string::npos)
        return nameText;
    std::string text = nameText;
    return text.replace(begin, end - begin, replacementOrganisation);
}

std::optional<Bytes> withReplacedOrganisation(const Bytes& der)
{
    bool done = false;
    std::optional<Bytes> replaced = rebuilt(der, 0, done);
    if (!done)
        return std::nullopt;
    return replaced;
}

bool sameAttributes(const Bytes& left, const Bytes& right, std::string_view leftOut)
{
    const auto sorted = [&](const Bytes& der) {
        std::vector<std::string> texts;
        for (const Attribute& attribute : parseName(der).value_or(std::vector<Attribute>()))
            if (attribute.type != leftOut)
                texts.push_back(attribute.type + "=" +
                                attribute.value.value_or(hexadecimal(attribute.der)));
        std::sort(texts.begin(), texts.end());
        return texts;
    };
    return sorted(left) == sorted(right);
}

}  // namespace cardlibs::x509
