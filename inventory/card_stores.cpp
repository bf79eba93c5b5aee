#include "inventory/card_stores.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <deque>
#include <limits>

namespace inventory {

QString boundedText(const char* text, std::size_t size)
{
    return text == nullptr ? QString()
                           : QString::fromUtf8(text, static_cast<int>(strnlen(text, size)));
}

void renewElements(char** store, std::size_t elements)
{
    // Reachable for ever, so that what is kept on purpose is not mistaken for a leak.
    static auto* const everyBuffer = new std::deque<std::array<char, storeElementSize>>;
    for (std::size_t i = 0; i < elements; ++i) {
        store[i] = everyBuffer->emplace_back().data();
    }
}

int statedCount(const char* element)
{
    if (element == nullptr) {
        return 0;
    }
    const char* const end = element + strnlen(element, storeElementSize);
    // from_chars would take a minus sign.
    const char* const digits =
        std::find_if(element, end, [](char c) { return c < '0' || c > '9'; });
    int count = 0;
    const auto result = std::from_chars(element, digits, count);
    return result.ec == std::errc::result_out_of_range ? std::numeric_limits<int>::max() : count;
}

}  // namespace inventory
