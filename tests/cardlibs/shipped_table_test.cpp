// The ATR table that is shipped: what it says of cards, and what its document says of it.

#include "cardlibs/readers/atr_table.h"
#include "cardlibs/token/module_file.h"
#include "tests/cardlibs/outside_tools.h"

#include <gmock/gmock.h>

#include <bitset>
#include <set>
#include <sstream>

namespace cardlibs_test {
namespace {

using ::testing::IsEmpty;

using cardlibs::Bytes;
using namespace cardlibs::readers;

std::vector<TableEntry> shippedCards()
{
    std::vector<TableEntry> cards;
    for (const TableEntry& entry : readAtrTable(SHIPPED_TABLE).entries)
        if (entry.kind == EntryKind::card)
            cards.push_back(entry);
    return cards;
}

bool isExact(const TableEntry& card)
{
    return card.atrMask == Bytes(card.atr.size(), 0xFF);
}

bool canFitOneAtr(const TableEntry& one, const TableEntry& other)
{
    if (one.atr.size() != other.atr.size())
        return false;
    for (std::size_t i = 0; i < one.atr.size(); ++i)
        if (((one.atr[i] ^ other.atr[i]) & one.atrMask[i] & other.atrMask[i]) != 0)
            return false;
    return true;
}

std::string treatment(const TableEntry& card)
{
    std::ostringstream text;
    text << card.module << " " << card.isCns << card.isFerrolux << " " << card.tokenLabel;
    for (const auto& limit :
         {card.limits.rsaBits, card.limits.ecBits, card.limits.certificateBytes})
        text << " " << limit.value_or(0);
    return text.str();
}

TEST(ShippedTable, entries_readWithoutComplaintAndManyOfThem)
{
    const AtrTable table = readAtrTable(SHIPPED_TABLE);
    EXPECT_THAT(table.complaints, IsEmpty());
    EXPECT_NE(table.matchToken("SoftHSM project", "SoftHSM v2").entry, nullptr);
    EXPECT_GT(shippedCards().size(), 150u);
    for (const TableEntry& entry : table.entries)
        EXPECT_NE(entry.kind, EntryKind::otherCards);
}

TEST(ShippedTable, titlesAndAtrs_areUnique)
{
    std::set<std::string> titles;
    std::set<std::pair<Bytes, Bytes>> atrs;
    for (const TableEntry& card : shippedCards()) {
        EXPECT_TRUE(titles.insert(card.title).second) << card.title;
        EXPECT_TRUE(atrs.emplace(card.atr, card.atrMask).second) << card.title;
    }
}

TEST(ShippedTable, masks_coverEveryBitOfTheAtrAndEnoughOfThem)
{
    for (const TableEntry& card : shippedCards()) {
        SCOPED_TRACE(card.title);
        ASSERT_EQ(card.atr.size(), card.atrMask.size());
        std::size_t bits = 0;
        for (std::size_t i = 0; i < card.atr.size(); ++i) {
            EXPECT_EQ(card.atr[i] & ~card.atrMask[i], 0) << "byte " << i;
            bits += std::bitset<8>(card.atrMask[i]).count();
        }
        EXPECT_GE(bits, 32u);
    }
}

TEST(ShippedTable, entriesThatFitOneAtr_treatItAlike)
{
    const std::vector<TableEntry> cards = shippedCards();
    for (std::size_t i = 0; i < cards.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            if (isExact(cards[i]) == isExact(cards[j]) && canFitOneAtr(cards[i], cards[j])) {
                EXPECT_EQ(treatment(cards[i]), treatment(cards[j]))
                    << cards[i].title << " and " << cards[j].title;
            }
}

TEST(ShippedTable, cardEntries_nameAModuleThatIsRegistered)
{
    for (const TableEntry& card : shippedCards())
        EXPECT_EQ(cardlibs::token::moduleFile(card.module), "opensc-pkcs11.so") << card.title;
}

struct ExampleRow {
    const char* atr;
    const char* name;
    bool isCns;
};

// Several for each pattern that stands for more than one card.
TEST(ShippedTable, knownAtr_findsItsModel)
{
    const ExampleRow rows[] = {
        {"3BFF1800FF8131FE55006B02090200011101434E531131808E", "CNS", true},
        {"3BFF1800FFC10A31FE55006B0508C805010101434E531031801C", "CNS", true},
        {"3BDF18008131FE7D006B150C0180011101434E53103180E9", "CNS", true},
        {"3BFF1800FF8131FE55006B02090200024954494420203180C2", "CIE", false},
        {"3BF41800FF8131805500318000C7", "CIE 1", false},
        {"3BF51800008131FE454D794549449A", "MyEID", false},
        {"3BF51800FF8131FE454D7945494465", "MyEID", false},
        {"3BF59600008131FE454D7945494414", "MyEID", false},
        {"3BFE1800008131FE458031815448534D31738021408107FA", "SmartCard-HSM", false},
        {"3BDA18FF81B1FE751F030031F573C001600090001C", "OpenPGP v3", false},
        {"3BFD1300008131FE158073C021C057597562694B657940", "YubiKey 5", false},
        {"3BF21800FFC10A31FE55C8068A", "CardOS M4.2", false},
        {"3BF21800FFC10A31FE55C8088C", "CardOS M4.2", false},
        {"3B7F96000080318065B084413DF6120FFE829000", "IDPrime MD 830, 840, 3810, 3840, 8840",
         false},
        // Another letter in the historical bytes, and a card that nobody serves.
        {"3BFF1800FF8131FE55006B02090200011101434E541131808E", nullptr, false},
        {"3B868001415441525645", nullptr, false},
    };
    const AtrTable table = readAtrTable(SHIPPED_TABLE);
    for (const ExampleRow& row : rows) {
        SCOPED_TRACE(row.atr);
        const auto atr = parseAtr(row.atr);
        ASSERT_TRUE(atr);
        const TableEntry* card = table.matchCard(*atr).entry;
        ASSERT_EQ(card != nullptr, row.name != nullptr);
        if (card != nullptr) {
            EXPECT_EQ(card->name, row.name);
            EXPECT_EQ(card->isCns, row.isCns);
        }
    }
}

TEST(ShippedTable, cnsFlag_standsAtNationalServicesCardsAlone)
{
    for (const TableEntry& card : shippedCards())
        EXPECT_EQ(card.isCns, card.name == "CNS") << card.title;
}

// "| `driver` | cards | entries | keys |" of each "; ---- driver: cards (keys made: keys)" and what
// follows it.
std::vector<std::string> groupsOfTable()
{
    std::vector<std::string> rows;
    std::string head;
    std::string keys;
    std::size_t entries = 0;
    const auto finish = [&] {
        if (!head.empty())
            rows.push_back(head + std::to_string(entries) + " | " + keys + " |");
        entries = 0;
    };
    std::istringstream lines(readText(SHIPPED_TABLE));
    std::string line;
    const std::string mark = "; ---- ";
    const std::string keysMark = " (keys made: ";
    while (std::getline(lines, line)) {
        if (line.rfind("[card ", 0) == 0)
            ++entries;
        if (line.rfind(mark, 0) != 0)
            continue;
        finish();
        const std::size_t colon = line.find(": ");
        const std::size_t bracket = line.find(keysMark);
        head = "| `" + line.substr(mark.size(), colon - mark.size()) + "` | " +
               line.substr(colon + 2, bracket - colon - 2) + " | ";
        keys = line.substr(bracket + keysMark.size());
        keys.pop_back();
    }
    finish();
    return rows;
}

TEST(ShippedTable, documentsList_isWhatIsShipped)
{
    std::vector<std::string> documented;
    std::istringstream lines(readText(std::string(DOCUMENTS) + "/atr-table.md"));
    std::string line;
    bool isInside = false;
    while (std::getline(lines, line)) {
        if (line.rfind("## ", 0) == 0)
            isInside = line == "## Cards in the shipped table";
        if (isInside && line.rfind("| `", 0) == 0)
            documented.push_back(line);
    }
    EXPECT_EQ(documented, groupsOfTable());
    EXPECT_GT(documented.size(), 20u);
}

}  // namespace
}  // namespace cardlibs_test
