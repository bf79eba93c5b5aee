// Log transcripts with their time stamps masked.

#ifndef TARVELOQT_TESTS_SUPPORT_TRANSCRIPT_H
#define TARVELOQT_TESTS_SUPPORT_TRANSCRIPT_H

#include <string>

namespace support {

// Replaces every time stamp "[dd MMM yyyy hh:mm:ss]" by "[*]", after checking that the clock has
// shown the moment it names.
std::string maskStamps(const std::string& log);

}  // namespace support

#endif
