// The ATR table: entries, and entries that are left out.

#include "cardlibs/readers/atr_table.h"
#include "cardlibs/state/card_error.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using cardlibs::Bytes;
using namespace cardlibs::readers;

AtrTable parse(const std::string& text)
{
    std::istringstream stream(text);
    return parseAtrTable(stream, "ATR-renew.ini");
}

constexpr char goodSoftware[] = "[software Prova]\nmodule = softhsm2\n"
                                "manufacturer = SoftHSM project\nmodel = SoftHSM v2\n";

TEST(AtrTable, allKeys_read)
{
    const AtrTable table = parse("; a comment\n"
                                 "[card Tessera Uno]\n"
                                 "module = opensc\n"
                                 "name = Tessera\n"
                                 "atr = 3B:FF 18 00\n"
                                 "atr_mask = FFFF00FF\n"
                                 "cns = yes\n"
                                 "ferrolux = no\n"
                                 "rsa_bits = 2048\n"
                                 "ec_bits = 384\n"
                                 "certificate_bytes = 3000\n"
                                 "token_label = *(Firma)\n"
                                 "\n"
                                 "[software Prova]\n"
                                 "module = /usr/lib/x.so\n"
                                 "manufacturer = SoftHSM project\n"
                                 "model = SoftHSM v2\n"
                                 "[default]\n"
                                 "module = opensc\n");
    EXPECT_THAT(table.complaints, IsEmpty());
    ASSERT_THAT(table.entries, SizeIs(3));
    const TableEntry& card = table.entries[0];
    EXPECT_EQ(card.kind, EntryKind::card);
    EXPECT_EQ(card.title, "Tessera Uno");
    EXPECT_EQ(card.name, "Tessera");
    EXPECT_EQ(card.module, "opensc");
    EXPECT_EQ(card.atr, (Bytes{0x3B, 0xFF, 0x18, 0x00}));
    EXPECT_EQ(card.atrMask, (Bytes{0xFF, 0xFF, 0x00, 0xFF}));
    EXPECT_TRUE(card.isCns);
    EXPECT_FALSE(card.isFerrolux);
    EXPECT_EQ(card.limits.rsaBits, 2048u);
    EXPECT_EQ(card.limits.ecBits, 384u);
    EXPECT_EQ(card.limits.certificateBytes, 3000u);
    EXPECT_EQ(card.tokenLabel, "*(Firma)");
    EXPECT_EQ(table.entries[1].kind, EntryKind::softwareToken);
    EXPECT_EQ(table.entries[1].name, "Prova");
    EXPECT_FALSE(table.entries[1].limits.rsaBits.has_value());
    EXPECT_EQ(table.entries[2].kind, EntryKind::otherCards);
}

struct BadRow {
    const char* text;
    int line;
    const char* reason;
};

TEST(AtrTable, badEntry_reportedWithItsLineAndOthersKept)
{
    const BadRow rows[] = {
        {"[tessera x]\nmodule = a\n", 1, "[card NAME]"},
        {"[card ]\nmodule = a\n", 1, "[card NAME]"},
        {"[card x]\nmodule = a\n", 1, "\"atr\" is missing"},
        {"[card x]\natr = 3B00\n", 1, "\"module\" is missing"},
        {"[card x]\nmodule = a\natr = 3B0\n", 3, "atr: 2 to 33 bytes"},
        {"[card x]\nmodule = a\natr = 3B\n", 3, "atr: 2 to 33 bytes"},
        {"[card x]\nmodule = a\natr = zz00\n", 3, "atr: 2 to 33 bytes"},
        {"[card x]\nmodule = a\natr = 3B00\natr_mask = FFFFFF\n", 1, "differ in length"},
        {"[card x]\nmodule = a\natr = 3B00\ncns = maybe\n", 4, R"(cns: "yes" or "no")"},
        {"[card x]\nmodule = a\natr = 3B00\nferrolux = 1\n", 4, "ferrolux: \"yes\""},
        {"[card x]\nmodule = a\natr = 3B00\nrsa_bits = 0\n", 4, "rsa_bits: a number"},
        {"[card x]\nmodule = a\natr = 3B00\nec_bits = 2x\n", 4, "ec_bits: a number"},
        {"[card x]\nmodule = a\nmodule = b\natr = 3B00\n", 3, "stands twice"},
        {"[card x]\nmodule =\natr = 3B00\n", 2, "value is missing"},
        {"[card x]\nmodule = a\natr = 3B00\nmodel = y\n", 4, "not known in this section"},
        {"[card x]\nmodule = a\natr = 3B00\ncolour = y\n", 4, "not known in this section"},
        {"[software x]\nmodule = a\nmodel = y\n", 1, "\"manufacturer\" is missing"},
        {"[software x]\nmodule = a\nmanufacturer = y\n", 1, "\"model\" is missing"},
        {"[software x]\nmodule = a\ntoken_label = y\n", 3, "not known in this section"},
        {"[software x]\nmodule = a\natr = 3B00\n", 3, "not known in this section"},
    };
    for (const BadRow& row : rows) {
        SCOPED_TRACE(row.text);
        const AtrTable table = parse(std::string(row.text) + goodSoftware);
        ASSERT_THAT(table.complaints, SizeIs(1));
        EXPECT_EQ(table.complaints[0].line, row.line);
        EXPECT_THAT(table.complaints[0].reason, HasSubstr(row.reason));
        EXPECT_THAT(table.firstComplaint(),
                    HasSubstr("ATR-renew.ini:" + std::to_string(row.line) + ": "));
        ASSERT_THAT(table.entries, SizeIs(1));
        EXPECT_EQ(table.entries[0].title, "Prova");
    }
}

TEST(AtrTable, lineWithoutSense_reportedAndOthersKept)
{
    const AtrTable table = parse(std::string("senza senso\n") + goodSoftware);
    ASSERT_THAT(table.complaints, SizeIs(1));
    EXPECT_EQ(table.complaints[0].line, 1);
    EXPECT_THAT(table.entries, SizeIs(1));
}

TEST(AtrTable, lineTooLong_takesItsEntryAlone)
{
    const AtrTable table = parse(
        "[card x]\nmodule = a\natr = 3B00\nname = " + std::string(5000, 'n') + "\n" + goodSoftware);
    ASSERT_THAT(table.complaints, SizeIs(1));
    EXPECT_EQ(table.complaints[0].line, 4);
    EXPECT_THAT(table.entries, SizeIs(1));
}

TEST(AtrTable, cardLookUp_exactBeforeMaskedBeforeDefault)
{
    const AtrTable table = parse("[default]\nmodule = d\n"
                                 "[card masked]\nmodule = m\natr = 3B0000\natr_mask = FF00FF\n"
                                 "[card exact]\nmodule = e\natr = 3B1200\n");
    EXPECT_EQ(table.findCard({0x3B, 0x12, 0x00})->title, "exact");
    EXPECT_EQ(table.findCard({0x3B, 0x13, 0x00})->title, "masked");
    EXPECT_EQ(table.findCard({0x3B, 0x13, 0x01})->kind, EntryKind::otherCards);
    EXPECT_EQ(table.findCard({0x3B, 0x13})->kind, EntryKind::otherCards);
    EXPECT_EQ(parse(goodSoftware).findCard({0x3B, 0x13}), nullptr);
}

TEST(AtrTable, tokenLookUp_byManufacturerAndModel)
{
    const AtrTable table = parse(goodSoftware);
    EXPECT_NE(table.findToken("SoftHSM project", "SoftHSM v2"), nullptr);
    EXPECT_EQ(table.findToken("SoftHSM project", "SoftHSM v3"), nullptr);
    EXPECT_EQ(table.findToken("Other", "SoftHSM v2"), nullptr);
}

TEST(AtrTable, noFileOrNothingUsable_error)
{
    EXPECT_THROW(readAtrTable("/nonexistent/ATR-renew.ini"), cardlibs::state::CardError);
    EXPECT_THROW(readAtrTable("/dev/null"), cardlibs::state::CardError);
}

}  // namespace
