// Byte strings as the card and DER have them, and their hexadecimal form.

#ifndef TARVELOQT_CARDLIBS_BYTES_H
#define TARVELOQT_CARDLIBS_BYTES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cardlibs {

using Bytes = std::vector<unsigned char>;

// Upper-case digits, two for each byte, nothing between them.
std::string hexadecimal(const Bytes& bytes);

// Reads digits of either case; blanks and colons between bytes are skipped. Nothing when anything
// else is met or a digit is left over.
std::optional<Bytes> parseHexadecimal(std::string_view text);

}  // namespace cardlibs

#endif
