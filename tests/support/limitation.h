// Signature certificates with a limitation of use, and the question about them.

#ifndef TARVELOQT_TESTS_SUPPORT_LIMITATION_H
#define TARVELOQT_TESTS_SUPPORT_LIMITATION_H

#include "descriptor.h"

#include <string>

namespace support {

// The explicit text that names the limitation.
extern const std::string limitation;

// What the user is asked.
extern const std::string questionText;

// This signature certificate, limited, and of the organisation whose holders are asked.
Descriptor limited(Descriptor descriptor);

}  // namespace support

#endif
