// Error numbers and texts, and what the two libraries remember.

#include "cardlibs/state/shared_state.h"

#include <gmock/gmock.h>
#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <set>

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

using namespace cardlibs::state;

bool isPrintableAscii(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7E; });
}

TEST(ErrorCatalogue, entries_ascendingNumbersAndTextsThatFit)
{
    std::set<std::string> texts;
    unsigned long previous = 0;
    for (const CatalogueEntry& entry : errorCatalogue()) {
        SCOPED_TRACE(entry.name);
        EXPECT_GT(entry.number, previous);
        previous = entry.number;
        const std::string text = entry.text;
        EXPECT_TRUE(isPrintableAscii(text));
        EXPECT_LE(text.size(), longestErrorText);
        // What is wrong, then what to do.
        EXPECT_THAT(text, HasSubstr(":"));
        EXPECT_THAT(text, EndsWith("."));
        EXPECT_TRUE(texts.insert(text).second);
    }
}

TEST(ErrorCatalogue, everyNumberOfOurOwn_hasAText)
{
    std::set<unsigned long> listed;
    for (const CatalogueEntry& entry : errorCatalogue())
        listed.insert(entry.number);
    EXPECT_EQ(listed.count(fault::unknownCard), 1u);
    for (unsigned long number = fault::noReader; number <= fault::internal; ++number)
        EXPECT_EQ(listed.count(number), 1u) << number;
    EXPECT_EQ(fault::unknownCard, 0xBFCu);
}

TEST(CardError, detail_appendedAsFarAsItFits)
{
    EXPECT_THAT(CardError(CKR_PIN_INCORRECT, "C_Login").text(), EndsWith(" (C_Login)"));
    const CardError lengthy(CKR_PIN_INCORRECT, std::string(500, 'x'));
    EXPECT_EQ(lengthy.text().size(), longestErrorText);
    EXPECT_THAT(lengthy.text(), EndsWith("x)"));
    EXPECT_TRUE(isPrintableAscii(CardError(fault::readerNotFound, "lettore \xC3\xB2\n").text()));
}

TEST(CardError, numberWithoutText_toldInHexadecimal)
{
    const CardError error(0x80000123UL);
    EXPECT_EQ(error.number(), 0x80000123UL);
    EXPECT_THAT(error.text(), HasSubstr("0x80000123"));
    EXPECT_STREQ(error.what(), error.text().c_str());
}

TEST(CardError, otherText_cutAndPrintable)
{
    const CardError error = CardError::withText(CKR_DEVICE_REMOVED, std::string(300, '\n'));
    EXPECT_EQ(error.number(), CKR_DEVICE_REMOVED);
    EXPECT_EQ(error.text(), std::string(longestErrorText, '?'));
}

TEST(Guarded, exceptions_becomeLastErrorAndFailure)
{
    EXPECT_EQ(guarded(-1, [] { return 7; }), 7);
    EXPECT_FALSE(sharedState().lastError.has_value());
    EXPECT_EQ(guarded(-1, []() -> int { throw CardError(CKR_PIN_LOCKED); }), -1);
    EXPECT_EQ(sharedState().lastError->number, CKR_PIN_LOCKED);
    EXPECT_EQ(guarded(-1, []() -> int { throw std::bad_alloc(); }), -1);
    EXPECT_EQ(sharedState().lastError->number, fault::internal);
    EXPECT_EQ(guarded(-1, [] { return 0; }), 0);
    EXPECT_FALSE(sharedState().lastError.has_value());
}

TEST(TablePath, order_handedOverThenApplicationFolderThenExecutable)
{
    sharedState() = {};
    EXPECT_THAT(currentTablePath(), EndsWith("/tests/../p11/ATR-renew.ini"));
    sharedState().applicationFolder = "/opt/host/bin";
    EXPECT_EQ(currentTablePath(), "/opt/host/bin/../p11/ATR-renew.ini");
    sharedState().tablePath = "/etc/table.ini";
    EXPECT_EQ(currentTablePath(), "/etc/table.ini");
    sharedState() = {};
}

}  // namespace
