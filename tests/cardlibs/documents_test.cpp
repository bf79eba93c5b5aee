// The documents of the card libraries say what the code does.

#include "cardlibs/contents/kind.h"
#include "cardlibs/readers/atr_table.h"
#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/outside_tools.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace state = cardlibs::state;

std::string document(const char* name)
{
    std::string text = readText(std::string(DOCUMENTS) + "/" + name);
    EXPECT_THAT(text, Not(IsEmpty())) << name;
    return text;
}

// Cells of the table rows below the heading, or of the whole document for an empty heading.
std::vector<std::vector<std::string>> tableRows(const std::string& text, const std::string& heading)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    std::string line;
    bool isInside = heading.empty();
    while (std::getline(lines, line)) {
        if (line.rfind("## ", 0) == 0)
            isInside = heading.empty() || line == "## " + heading;
        if (!isInside || line.rfind("| ", 0) != 0)
            continue;
        std::vector<std::string> cells;
        std::istringstream parts(line.substr(2));
        std::string cell;
        while (std::getline(parts, cell, '|')) {
            cell.erase(0, cell.find_first_not_of(' '));
            cell.erase(cell.find_last_not_of(' ') + 1);
            cells.push_back(cell);
        }
        rows.push_back(cells);
    }
    // The first row names the columns.
    if (!rows.empty())
        rows.erase(rows.begin());
    return rows;
}

std::string inHexadecimal(unsigned long number)
{
    char text[32] = {};
    std::snprintf(text, sizeof text, "0x%lX", number);
    return text;
}

TEST(ErrorsDocument, rows_areTheCatalogue)
{
    std::vector<std::vector<std::string>> expected;
    for (const state::CatalogueEntry& entry : state::errorCatalogue())
        expected.push_back({inHexadecimal(entry.number), entry.name, entry.text});
    EXPECT_EQ(tableRows(document("errors.md"), ""), expected);
}

TEST(AtrTableDocument, keys_areThoseThatAreRead)
{
    const auto rows = tableRows(document("atr-table.md"), "Keys");
    ASSERT_THAT(rows, SizeIs(12));
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        const std::string key = row[0].substr(1, row[0].size() - 2);
        const bool isYesNo = row[2].find("`yes`") != std::string::npos;
        const bool isAtr = key.rfind("atr", 0) == 0;
        const std::string value = isYesNo ? "yes" : isAtr ? "3B00" : "4096";
        for (const char* section : {"card", "software", "default"}) {
            const bool isAllowed =
                row[1].rfind("all", 0) == 0 || row[1].find(section) != std::string::npos;
            const std::string name = section == std::string("default") ? "" : " x";
            std::ostringstream text;
            text << "[" << section << name << "]\n" << key << " = " << value << "\n";
            std::istringstream stream(text.str());
            const auto table = cardlibs::readers::parseAtrTable(stream, "t");
            // What is left to complain of a known key is what else is missing.
            const std::string complaint = table.firstComplaint();
            EXPECT_EQ(complaint.find("not known") == std::string::npos, isAllowed) << section;
            const bool isRequired = row[1].find("required") != std::string::npos;
            if (isAllowed && isRequired) {
                EXPECT_THAT(complaint, Not(HasSubstr("\"" + key + "\" is missing")));
            }
        }
    }
}

TEST(AtrTableDocument, example_isReadWithoutComplaint)
{
    const std::string text = document("atr-table.md");
    const std::size_t begin = text.find("```ini\n") + 7;
    std::istringstream stream(text.substr(begin, text.find("```", begin) - begin));
    const auto table = cardlibs::readers::parseAtrTable(stream, "example");
    EXPECT_THAT(table.complaints, IsEmpty());
    EXPECT_NE(table.matchToken("SoftHSM project", "SoftHSM v2").entry, nullptr);
}

TEST(CardLayoutDocument, kindsAndLabels_areThoseOfTheCode)
{
    using cardlibs::contents::Kind;
    const std::string text = document("card-layout.md");
    std::vector<std::string> kinds;
    for (const auto& row : tableRows(text, "Kinds"))
        kinds.push_back(row[0]);
    EXPECT_EQ(kinds,
              (std::vector<std::string>{cardlibs::contents::kindName(Kind::cns),
                                        cardlibs::contents::kindName(Kind::signature),
                                        cardlibs::contents::kindName(Kind::authentication)}));
    std::vector<std::string> labels;
    for (const auto& row : tableRows(text, "Labels"))
        labels.push_back(row[0]);
    const auto lowest = [](Kind kind) {
        return cardlibs::contents::lowestFreeLabel(kind, {}).text();
    };
    const auto prefix = [&](Kind kind) { return lowest(kind).substr(0, lowest(kind).size() - 1); };
    EXPECT_EQ(labels,
              (std::vector<std::string>{"`" + prefix(Kind::authentication) + "` and a number",
                                        "`" + prefix(Kind::signature) + "` and a number",
                                        "`" + lowest(Kind::cns) + "`"}));
}

TEST(CardLayoutDocument, descriptor_hasAsManyFieldsAsTheTableSays)
{
    std::size_t fields = 0;
    std::size_t ofSignaturesAlone = 0;
    for (const auto& row : tableRows(document("card-layout.md"), "Descriptors")) {
        // "notBefore, notAfter" are two.
        fields += row[0].find(", ") == std::string::npos ? 1 : 2;
        ofSignaturesAlone += row[0].back() == '*' ? 1 : 0;
    }
    EXPECT_EQ(fields, 11u);
    EXPECT_EQ(ofSignaturesAlone, 1u);
}

}  // namespace
}  // namespace cardlibs_test
