// Distinguished names (RFC 5280, section 4.1.2.4): their DER as the certificate has it, and the
// text by which a renewal names them.

#ifndef TARVELOQT_CARDLIBS_X509_NAME_H
#define TARVELOQT_CARDLIBS_X509_NAME_H

#include "cardlibs/bytes.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cardlibs::x509 {

struct Attribute {
    // Dotted object identifier.
    std::string type;
    // UTF-8; absent when the value is no string, or not valid in its own type.
    std::optional<std::string> value;
    // Tag and contents of the value as they stand.
    Bytes der;
    // True when this attribute shares its relative name with the one before it.
    bool joinsPrevious = false;
};

// In the order of the DER. Nothing when the DER is no name.
std::optional<std::vector<Attribute>> parseName(const Bytes& der);

// "2.5.4.6=IT,2.5.4.10=Ente": order of the certificate, types dotted, "," between relative names
// and
// "+" within one; values escaped as in RFC 4514, section 2.4, with "#" and the dot of every "2." as
// hexadecimal pairs besides, so that neither is ever found in a value. A value that is no string is
// "\23" and its DER in hexadecimal. Empty when the DER is no name.
std::string nameText(const Bytes& der);

// "#" and control characters as hexadecimal pairs: for texts that stand between "#" themselves.
std::string fieldText(const std::string& utf8);

// Value of the first attribute of this type, empty when there is none.
std::string firstValue(const Bytes& der, std::string_view type);

// The organisation that renewals of certain role certificates carry instead of the certificate's.
inline constexpr std::string_view replacementOrganisation = "GRATAX/01382321006";

// The text with everything from just behind the first "2.5.4.10=" up to the next "2." replaced by
// replacementOrganisation; unchanged when either is missing.
std::string withReplacedOrganisation(const std::string& nameText);

// The same on the DER: the first organisationName gets replacementOrganisation in its own string
// type, everything else stays byte for byte. Nothing when that type cannot hold it or there is no
// such attribute.
std::optional<Bytes> withReplacedOrganisation(const Bytes& der);

// True when both have the same attributes with the same texts, whatever their order and string
// types; attributes of the type left out do not count.
bool sameAttributes(const Bytes& left, const Bytes& right, std::string_view leftOut);

}  // namespace cardlibs::x509

#endif
