// From a PC/SC reader to its slot, with readers that no service has to show.

#include "cardlibs/readers/reader_directory.h"
#include "tests/cardlibs/proxy_fixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;

using namespace cardlibs::readers;
using cardlibs::Bytes;
using cardlibs::state::CardError;
namespace fault = cardlibs::state::fault;

const Bytes cardAtr = {0x3B, 0x86, 0x80, 0x01, 0x54, 0x41, 0x52, 0x56, 0x45, 0x4C, 0x09};

PcscReader readerWithCard(const std::string& name)
{
    PcscReader reader;
    reader.name = name;
    reader.isStateKnown = true;
    reader.hasCard = true;
    reader.atr = cardAtr;
    return reader;
}

PcscReader emptyReader(const std::string& name)
{
    PcscReader reader;
    reader.name = name;
    reader.isStateKnown = true;
    return reader;
}

class ReaderDirectory : public ProxyFixture {
protected:
    ReaderDirectory()
    {
        writeTable("[card Prova]\nmodule = " PROXY_FILE "\natr = " +
                   cardlibs::hexadecimal(cardAtr) + "\ntoken_label = Carta*\n");
        makeCard({});
        startProxy();
    }

    // The slot of the card has this description, padded with this byte.
    void describeSlot(const std::string& description, char padding = ' ')
    {
        proxy().changeSlotInfo = [=](CK_SLOT_INFO& info, bool isInitialised) {
            const std::string text = isInitialised ? description : "Altro lettore";
            std::memset(info.slotDescription, padding, 64);
            std::copy_n(text.begin(), std::min<std::size_t>(64, text.size()), info.slotDescription);
        };
    }

    // Of the first reader: 0 for a card found, else what was in the way.
    unsigned long follow(const std::vector<PcscReader>& readers)
    {
        CardPath path;
        try {
            const AtrTable table = readAtrTable(tablePath());
            const CardPlace place = followToCard(table, readers, readers.at(0), path);
            EXPECT_EQ(place.info.label, "Carta di prova");
            return 0;
        } catch (const CardError& error) {
            m_text = error.text();
            return error.number();
        }
    }

    std::string m_text;
};

const std::string sixty(60, 'r');

TEST_F(ReaderDirectory, longOrPaddedNames_leadToTheirSlot)
{
    const std::pair<std::string, std::string> rows[] = {
        {"Lettore 00 00", "Lettore 00 00"},
        {sixty + "abcd 00 00", sixty + "abcd"},
        // The blank between two words is the last byte that there is room for.
        {sixty + "abc 00 00", sixty + "abc"},
        {sixty + "abc\u00e9 00 00", sixty + "abc\u00e9"},
        {sixty + "abc\u00e9 00 00", sixty + "abc"},
        {std::string(127, 'n'), std::string(64, 'n')},
    };
    for (const auto& [name, description] : rows) {
        SCOPED_TRACE(name);
        for (const char padding : {' ', '\0'}) {
            describeSlot(description, padding);
            EXPECT_EQ(follow({readerWithCard(name)}), 0u) << m_text;
        }
    }
}

TEST_F(ReaderDirectory, descriptionOfAnotherReader_slotNotFound)
{
    describeSlot("Lettore 00 0");
    EXPECT_EQ(follow({readerWithCard("Lettore 00 00")}), fault::slotNotFound);
    describeSlot(sixty + "abce");
    EXPECT_EQ(follow({readerWithCard(sixty + "abcd 00 00")}), fault::slotNotFound);
}

TEST_F(ReaderDirectory, twoCardsInReadersEqualInSixtyFourBytes_refusedThoughOneSlotIsThere)
{
    describeSlot(sixty + "abcd");
    EXPECT_EQ(follow({readerWithCard(sixty + "abcd 00 00"), readerWithCard(sixty + "abcd 00 01")}),
              fault::readerAmbiguous);
    EXPECT_THAT(m_text, HasSubstr(sixty + "abcd 00 00"));
    EXPECT_EQ(follow({readerWithCard(sixty + "abcd 00 00"), emptyReader(sixty + "abcd 00 01")}), 0u)
        << m_text;
    EXPECT_EQ(follow({readerWithCard(sixty + "abcd 00 00"), readerWithCard(sixty + "abce 00 00")}),
              0u)
        << m_text;
}

TEST_F(ReaderDirectory, noCardOrMute_saidBeforeTheModuleIsAsked)
{
    EXPECT_EQ(follow({emptyReader("Lettore")}), CKR_TOKEN_NOT_PRESENT);
    PcscReader mute = readerWithCard("Lettore");
    mute.isMute = true;
    EXPECT_EQ(follow({mute}), CKR_TOKEN_NOT_RECOGNIZED);
    EXPECT_EQ(proxy().count("C_GetSlotList"), 0u);
}

}  // namespace
}  // namespace cardlibs_test
