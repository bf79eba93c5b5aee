// The text that describes one certificate to the renewal library: fields joined by "#".

#ifndef TARVELOQT_CARDLIBS_CONTENTS_DESCRIPTOR_H
#define TARVELOQT_CARDLIBS_CONTENTS_DESCRIPTOR_H

#include "cardlibs/contents/card_contents.h"

#include <string>

namespace cardlibs::contents {

// The longest descriptor without its NUL.
constexpr std::size_t longestDescriptor = 4095;

// subject#issuer#IUT#policy#serial number#notBefore#notAfter#CKA_ID#, then for signature
// certificates the policy's explicit text and "#", then label of the pending key#fiscal code.
// UTF-8.
std::string descriptorOf(const CertifiedPair& pair, const std::string& pendingLabel);

}  // namespace cardlibs::contents

#endif
