// The made-up holders of software cards, as distinguished names.

#ifndef TARVELOQT_TOOLS_SOFTCARD_SUBJECT_H
#define TARVELOQT_TOOLS_SOFTCARD_SUBJECT_H

#include "cardlibs/x509/pointers.h"

#include <string>
#include <vector>

namespace softcard {

struct SubjectAttribute {
    // Object identifier, dotted.
    std::string type;
    // UTF-8.
    std::string value;
    // A V_ASN1_... string type that can hold the value.
    int stringType = V_ASN1_UTF8STRING;
    // Shares its relative name with the attribute before it.
    bool joinsPrevious = false;
};

struct Holder {
    std::string fiscalCode = "VLDNCL85M12F205X";
    std::string givenName = "Nicol\xC3\xB2";
    std::string surname = "Valdestri";
    std::string organisation = "Ente Dimostrativo";
    std::string identifier = "20269107350001";
};

// C, O, SN, GN, serialNumber, dnQualifier, CN and, when it is not empty, the title. serialPrefix
// stands before the fiscal code.
std::vector<SubjectAttribute> subjectOf(const Holder& holder, const std::string& serialPrefix,
                                        const std::string& title);

// Throws std::runtime_error for attributes that cannot be encoded.
cardlibs::x509::NamePointer nameOf(const std::vector<SubjectAttribute>& attributes);

}  // namespace softcard

#endif
