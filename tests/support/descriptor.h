// Certificate descriptors as the card-renewal library writes them, and the records that come of
// them.

#ifndef TARVELOQT_TESTS_SUPPORT_DESCRIPTOR_H
#define TARVELOQT_TESTS_SUPPORT_DESCRIPTOR_H

#include "printing.h"

#include <string>

namespace support {

struct Descriptor {
    std::string subject = "2.5.4.6=IT,2.5.4.5=ABCDEF12G34H567I,2.5.4.3=Anna Verdi";
    std::string issuer = "2.5.4.6=IT,2.5.4.10=Castelvane,2.5.4.3=Castelvane Demo CA";
    std::string iut = "2026500000001";
    std::string policy = "1.3.76.16.2.1";
    std::string serial = "0A1B2C";
    std::string notBefore = "20240101000000";
    std::string notAfter = "20300101000000";
    std::string ckaId = "C0FFEE";
    std::string explicitText;  // signature descriptors only
    std::string pending;
    std::string fiscalCode = "CARDCODE";
};

// Ten fields.
std::string authenticationText(const Descriptor& descriptor);

// Eleven fields.
std::string signatureText(const Descriptor& descriptor);

// The first so many fields of a descriptor's text.
std::string firstFields(const std::string& text, int count);

// yyyyMMdd000000 of the day that lies so many days from today.
std::string inDays(int days);

// The fields that every certificate record has, with this fiscal code.
PlainRecord certificateRecord(const Descriptor& descriptor, const std::string& fiscalCode);

// "RENEW_CERTID" of a record.
std::string renewalIdentifier(const std::string& fiscalCode, const std::string& iut,
                              const std::string& pendingKey, const std::string& serial);

}  // namespace support

#endif
