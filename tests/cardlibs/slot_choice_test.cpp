// Which slots are a reader's, and which of several is meant.

#include "cardlibs/readers/reader_directory.h"
#include "cardlibs/readers/slot_choice.h"
#include "cardlibs/state/card_error.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;

using namespace cardlibs::readers;
namespace fault = cardlibs::state::fault;

struct DescriptionRow {
    const char* what;
    std::string readerName;
    // As the module tells it, without the padding that PKCS#11 prescribes.
    std::string description;
    bool isEqual;
};

TEST(SlotDescription, readerNameAndWhatModulesMakeOfIt_equal)
{
    const std::string sixty(60, 'r');
    const DescriptionRow rows[] = {
        {"short", "Lettore 00 00", "Lettore 00 00", true},
        {"another", "Lettore 00 00", "Lettore 00 01", false},
        {"a part", "Lettore 00 00", "Lettore 00", false},
        {"64 bytes", sixty + "0000", sixty + "0000", true},
        {"cut at 64", sixty + "0000 00 00", sixty + "0000", true},
        {"cut at 63", sixty + "0000 00 00", sixty + "000", false},
        {"blank at the cut", sixty + "000 00 00", sixty + "000", true},
        {"blanks behind the name", "Lettore 00 00  ", "Lettore 00 00", true},
        {"UTF-8 whole", "Lettor\u00e9 00", "Lettor\u00e9 00", true},
        {"UTF-8 cut inside the character", sixty + "000\u00e9 00", sixty + "000\xC3", true},
        {"UTF-8 cut before the character", sixty + "000\u00e9 00", sixty + "000", true},
        {"UTF-8 three bytes cut", sixty + "00\u20ac 00", sixty + "00\xE2\x82", true},
        {"UTF-8 four bytes cut", sixty + "0\U0001F511 00", sixty + "0\xF0\x9F\x94", true},
        {"UTF-8 ending at 64", sixty + "00\u00e9 00", sixty + "00\u00e9", true},
        {"UTF-8 ending at 64, dropped", sixty + "00\u00e9 00", sixty + "00", false},
        {"no character at all", "\x80\x80", "\x80\x80", true},
        {"empty", "", "", true},
    };
    for (const DescriptionRow& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(slotDescription(row.readerName) == slotDescription(row.description), row.isEqual);
    }
}

const std::vector<LabelledSlot> pinSlots = {{4, "Mario Rossi (PIN utente)"},
                                            {7, "Mario Rossi (PIN di firma)"}};

struct ChoiceRow {
    const char* pattern;
    std::optional<std::size_t> chosen;
};

TEST(SlotChoice, oneLabelFits_takenElseRefused)
{
    const ChoiceRow rows[] = {
        {"*(PIN di firma)", 1},
        {"*(PIN utente)", 0},
        {"Mario Rossi (PIN utente)", 0},
        {"*firma*", 1},
        {"*PIN utent?)", 0},
        {"firma", std::nullopt},
        {"*FIRMA*", std::nullopt},
        {"*", std::nullopt},
        {"*PIN*", std::nullopt},
        {"", std::nullopt},
    };
    for (const ChoiceRow& row : rows) {
        SCOPED_TRACE(row.pattern);
        if (row.chosen) {
            EXPECT_EQ(chooseSlot(pinSlots, row.pattern), *row.chosen);
            continue;
        }
        try {
            chooseSlot(pinSlots, row.pattern);
            ADD_FAILURE() << "chosen";
        } catch (const cardlibs::state::CardError& error) {
            EXPECT_EQ(error.number(), fault::slotAmbiguous);
            EXPECT_THAT(error.text(), HasSubstr("token_label"));
            EXPECT_THAT(error.text(), HasSubstr("Mario Rossi (PIN utente), Mario Rossi (PIN di f"));
        }
    }
}

TEST(SlotChoice, equalLabels_refusedWithinTheErrorText)
{
    std::vector<LabelledSlot> slots;
    for (CK_SLOT_ID slot = 0; slot < 20; ++slot)
        slots.push_back({slot, std::string(32, 'x')});
    try {
        chooseSlot(slots, std::string(32, 'x'));
        ADD_FAILURE() << "chosen";
    } catch (const cardlibs::state::CardError& error) {
        EXPECT_EQ(error.number(), fault::slotAmbiguous);
        EXPECT_LE(error.text().size(), cardlibs::state::longestErrorText);
    }
}

TEST(ListableName, bytesThatAListCannotHold_replacedAndCut)
{
    EXPECT_EQ(listableName("Lettore [CCID] 00 00"), "Lettore [CCID] 00 00");
    EXPECT_EQ(listableName("a|b"), "a_b");
    EXPECT_EQ(listableName("Lettor\u00e9"), "Lettor__");
    EXPECT_EQ(listableName("a\nb"), "a_b");
    EXPECT_EQ(listableName(std::string(300, 'n')), std::string(longestReaderName, 'n'));
}

}  // namespace
