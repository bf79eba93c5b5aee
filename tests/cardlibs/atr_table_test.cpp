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
        {"[card x\nmodule = a\natr = 3B00\n", 1, "[card NAME]"},
        {"[card x] y\nmodule = a\natr = 3B00\n", 1, "[card NAME]"},
        {"[default x]\nmodule = a\n", 1, "[card NAME]"},
        {"\nmodule = a\nname = b\n", 2, "[card NAME]"},
        {"[card x]\n\n", 1, "\"module\" is missing"},
        {"[default]\n", 1, "\"module\" is missing"},
        {"[software x]\n; nothing yet\n", 1, "\"module\" is missing"},
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
        {"[card x]\nmodule = a\natr = 3B00\ncns yes\n", 4, "neither a section nor"},
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

TEST(AtrTable, linesWithoutSense_reportedAndOthersKept)
{
    const AtrTable table = parse(std::string("senza senso\nancora\n") + goodSoftware +
                                 "[card x]\nmodule = a\natr = 3B00\nname ; = b\n");
    ASSERT_THAT(table.complaints, SizeIs(3));
    EXPECT_EQ(table.complaints[0].line, 1);
    EXPECT_EQ(table.complaints[1].line, 2);
    EXPECT_EQ(table.complaints[2].line, 10);
    EXPECT_THAT(table.entries, SizeIs(2));
}

const std::string goodCard = "[card Buona]\nmodule = a\natr = 3B00\n";

TEST(AtrTable, lineTooLong_takesItsEntryAlone)
{
    const std::string tooLong = "name = " + std::string(5000, 'n') + "\n";
    const std::pair<std::string, int> rows[] = {
        {goodCard + "[card x]\nmodule = a\natr = 3B00\n" + tooLong, 7},
        {goodCard + "[card x]\n" + tooLong + "module = a\natr = 3B00\n", 5},
        {tooLong + goodCard, 1},
    };
    for (const auto& [text, line] : rows) {
        const AtrTable table = parse(text + goodSoftware);
        ASSERT_THAT(table.complaints, SizeIs(1));
        EXPECT_EQ(table.complaints[0].line, line);
        EXPECT_EQ(table.complaints[0].reason, "the line is too long");
        ASSERT_THAT(table.entries, SizeIs(2));
        EXPECT_EQ(table.entries[0].title, "Buona");
        EXPECT_EQ(table.entries[1].title, "Prova");
    }
}

TEST(AtrTable, lineOf198Bytes_isTheLongestThatIsRead)
{
    for (const std::size_t size : {198U, 199U}) {
        const std::string key = "name = ";
        const AtrTable table = parse(goodCard + key + std::string(size - key.size(), 'n') + "\n");
        EXPECT_EQ(table.entries.size(), size == 198U ? 1U : 0U);
        EXPECT_EQ(table.complaints.size(), size == 198U ? 0U : 1U);
    }
}

TEST(AtrTable, longComment_isNoMistake)
{
    const std::string words(5000, 'c');
    const AtrTable table = parse("[card x]\n  ; " + words + "\nmodule = a\n# " + words +
                                 "\natr = 3B00\n" + goodSoftware);
    EXPECT_THAT(table.complaints, IsEmpty());
    EXPECT_THAT(table.entries, SizeIs(2));
}

TEST(AtrTable, longTitlesThatBeginAlike_areEntriesOfTheirOwn)
{
    const std::string title(5000, 't');
    const AtrTable table =
        parse("[card " + title + "1]\nmodule = a\natr = 3B01\n[card " + title +
              "2]\nmodule = b\natr = 3B02\n[card " + title + "2]\nmodule = c\natr = 3B03\n");
    EXPECT_THAT(table.complaints, IsEmpty());
    ASSERT_THAT(table.entries, SizeIs(3));
    EXPECT_EQ(table.entries[0].title, title + "1");
    EXPECT_EQ(table.entries[1].title, title + "2");
    EXPECT_EQ(table.entries[1].line, 4);
    EXPECT_EQ(table.entries[2].module, "c");
}

TEST(AtrTable, indentedLinesByteOrderMarkAndCarriageReturns_makeNoDifference)
{
    const AtrTable table =
        parse("\xEF\xBB\xBF  [card x] ; the first\r\n\tmodule = a\r\n"
              "\t  atr = 3B00\r\n\r\n  [default]\t# the rest\r\n module = b\r\n");
    EXPECT_THAT(table.complaints, IsEmpty());
    ASSERT_THAT(table.entries, SizeIs(2));
    EXPECT_EQ(table.entries[0].module, "a");
    EXPECT_EQ(table.entries[0].line, 1);
    EXPECT_EQ(table.entries[1].kind, EntryKind::otherCards);
    EXPECT_EQ(table.entries[1].line, 5);
}

TEST(AtrTable, cardLookUp_exactBeforeMaskedBeforeDefault)
{
    const AtrTable table = parse("[default]\nmodule = d\n"
                                 "[card masked]\nmodule = m\natr = 3B0000\natr_mask = FF00FF\n"
                                 "[card exact]\nmodule = e\natr = 3B1200\n");
    EXPECT_EQ(table.matchCard({0x3B, 0x12, 0x00}).entry->title, "exact");
    EXPECT_EQ(table.matchCard({0x3B, 0x13, 0x00}).entry->title, "masked");
    EXPECT_EQ(table.matchCard({0x3B, 0x13, 0x01}).entry->kind, EntryKind::otherCards);
    EXPECT_EQ(table.matchCard({0x3B, 0x13}).entry->kind, EntryKind::otherCards);
    EXPECT_EQ(parse(goodSoftware).matchCard({0x3B, 0x13}).entry, nullptr);
}

TEST(AtrTable, tokenLookUp_byManufacturerAndModel)
{
    const AtrTable table = parse(goodSoftware);
    EXPECT_NE(table.matchToken("SoftHSM project", "SoftHSM v2").entry, nullptr);
    EXPECT_EQ(table.matchToken("SoftHSM project", "SoftHSM v3").entry, nullptr);
    EXPECT_EQ(table.matchToken("Other", "SoftHSM v2").entry, nullptr);
}

TEST(AtrTable, noFileOrNothingUsable_error)
{
    EXPECT_THROW(readAtrTable("/nonexistent/ATR-renew.ini"), cardlibs::state::CardError);
    EXPECT_THROW(readAtrTable("/dev/null"), cardlibs::state::CardError);
}

}  // namespace
