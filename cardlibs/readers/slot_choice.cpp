#include "cardlibs/readers/slot_choice.h"

#include "cardlibs/state/card_error.h"
#include "cardlibs/token/module.h"

#include <fnmatch.h>

#include <algorithm>
#include <optional>

namespace cardlibs::readers {
namespace {

constexpr std::size_t descriptionSize = 64;

// RFC 3629: bytes of the character that this lead byte begins; 1 for anything else, so that text in
// another encoding stays whole.
std::size_t characterSize(unsigned char lead)
{
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    if (lead >= 0xE0 && lead < 0xF0)
        return 3;
    if (lead >= 0xC2 && lead < 0xE0)
        return 2;
    return 1;
}

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

std::string withoutCutCharacter(std::string text)
{
    const auto lead = std::find_if(text.rbegin(), text.rend(), [](char byte) {
        return !isContinuation(static_cast<unsigned char>(byte));
    });
    if (lead == text.rend())
        return text;
    const auto have = static_cast<std::size_t>(lead - text.rbegin()) + 1;
    if (have < characterSize(static_cast<unsigned char>(*lead)))
        text.resize(text.size() - have);
    return text;
}

std::string labelsOf(const std::vector<LabelledSlot>& slots)
{
    std::string labels;
    for (const LabelledSlot& slot : slots)
        labels += (labels.empty() ? "" : ", ") + slot.label;
    return labels;
}

}  // namespace

std::string slotDescription(const std::string& readerName)
{
    const std::string cut = withoutCutCharacter(readerName.substr(0, descriptionSize));
    return token::unpadded(reinterpret_cast<const unsigned char*>(cut.data()), cut.size());
}

std::size_t chooseSlot(const std::vector<LabelledSlot>& slots, const std::string& labelPattern)
{
    std::optional<std::size_t> chosen;
    bool isAmbiguous = false;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (fnmatch(labelPattern.c_str(), slots[i].label.c_str(), 0) != 0)
            continue;
        isAmbiguous = chosen.has_value();
        chosen = i;
        if (isAmbiguous)
            break;
    }
    if (!chosen || isAmbiguous)
        throw state::CardError(state::fault::slotAmbiguous, labelsOf(slots));
    return *chosen;
}

}  // namespace cardlibs::readers
