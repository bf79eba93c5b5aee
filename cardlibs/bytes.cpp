#include "cardlibs/bytes.h"

namespace cardlibs {
namespace {

int digitValue(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

}  // namespace

std::string hexadecimal(const Bytes& bytes)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

std::optional<Bytes> parseHexadecimal(std::string_view text)
{
    Bytes bytes;
    std::size_t at = 0;
    while (at < text.size()) {
        if (text[at] == ' ' || text[at] == ':') {
            ++at;
            continue;
        }
        if (at + 1 >= text.size())
            return std::nullopt;
        const int high = digitValue(text[at]);
        const int low = digitValue(text[at + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.push_back(static_cast<unsigned char>(high * 16 + low));
        at += 2;
    }
    return bytes;
}

}  // namespace cardlibs
