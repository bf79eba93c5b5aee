#include "tests/support/eligibility_fixture.h"
#include "tests/support/limitation.h"
#include "tests/support/typist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

using namespace support;
using testing::HasSubstr;

namespace {

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    return text;
}

class LimitationOfUse : public EligibilityTest {};

TEST_F(LimitationOfUse, textAndPolicy_decideThePolicyToAskFor)
{
    struct Row {
        const char* condition;
        std::string policy;
        std::string text;
        std::string askedPolicy;
    };
    const std::string plainPolicy = "1.3.76.36.1.1.1";
    const std::string limitedPolicy = "1.3.76.36.1.1.23";
    const Row table[] = {
        {"limited", plainPolicy, limitation, limitedPolicy},
        {"limited, with the policy for it", limitedPolicy, limitation, limitedPolicy},
        {"in capitals", plainPolicy, upper(limitation), limitedPolicy},
        {"among other text", plainPolicy, "Nota. " + limitation + ". Fine.", limitedPolicy},
        {"another policy", "1.3.76.36.1.1.2", limitation, "1.3.76.36.1.1.2"},
        {"longer policy", "1.3.76.36.1.1.11", limitation, "1.3.76.36.1.1.11"},
        {"policy with a blank", "1.3.76.36.1.1.1 ", limitation, "1.3.76.36.1.1.1 "},
        {"no text", plainPolicy, "", plainPolicy},
        {"other text", plainPolicy, "Uso limitato", plainPolicy},
        {"text cut short", plainPolicy, limitation.substr(0, limitation.size() - 1), plainPolicy},
        {"no text, with the policy for it", limitedPolicy, "", limitedPolicy},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        answer("s\n");
        StandardOutput output;
        Descriptor descriptor = limited(renewable(pra()));
        descriptor.iut = "2026500128001";
        descriptor.policy = row.policy;
        descriptor.explicitText = row.text;
        check(pra(), descriptor);
        PlainRecord expected = renewableRecord(pra(), descriptor, holder);
        expected["policy"] = row.askedPolicy;
        EXPECT_EQ(record(pra(), 1), expected);
        EXPECT_EQ(output.text(), "");
        EXPECT_EQ(input->rest(), "s\n");
        EXPECT_THAT(newLog(), HasSubstr("[*]: policy: " + row.policy + "\n"));
    }
}

TEST_F(LimitationOfUse, identifierCode_decidesWhetherTheQuestionIsAsked)
{
    struct Row {
        const char* iut;
        bool isAsked;
    };
    const Row table[] = {
        {"2026500129001", true}, {"xxxx500129", true},  {"500129", false},
        {"202500129001", false}, {"20265001290", true}, {"2026500128001", false},
        {"202650012", false},    {"", false},           {"20260500129", false},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.iut);
        answer("s\n");
        StandardOutput output;
        Descriptor descriptor = limited(renewable(pra()));
        descriptor.iut = row.iut;
        check(pra(), descriptor);
        EXPECT_EQ(output.text().find(questionText) != std::string::npos, row.isAsked);
        EXPECT_EQ(record(pra(), 1)["policy"], row.isAsked ? "1.3.76.36.1.1.1" : "1.3.76.36.1.1.23");
        EXPECT_EQ(input->rest(), row.isAsked ? "" : "s\n");
    }
}

TEST_F(LimitationOfUse, consoleAnswer_decides)
{
    struct Row {
        const char* typed;
        bool isYes;
        const char* rest;
    };
    const Row table[] = {
        {"s\n", true, ""},
        {"S\n", true, ""},
        {"si\n", true, ""},
        {"SI\n", true, ""},
        {"sI\n", true, ""},
        {"s\xc3\xac\n", true, ""},
        {"S\xc3\x8c\n", true, ""},
        {"y\n", true, ""},
        {"Y\n", true, ""},
        {"yes\n", true, ""},
        {"YES\n", true, ""},
        {"yes", true, ""},
        {"n\n", false, ""},
        {"no\n", false, ""},
        {"\n", false, ""},
        {"", false, ""},
        {"ye\n", false, ""},
        {"sic\n", false, ""},
        {"ss\n", false, ""},
        {"1\n", false, ""},
        // As a Latin-1 terminal sends it.
        {"s\xec\n", true, ""},
        {"\xff\n", false, ""},
        {"n\ns\n", false, "s\n"},
        {"s\nnext\n", true, "next\n"},
    };
    for (const char* policy : {"1.3.76.36.1.1.1", "1.3.76.36.1.1.23"}) {
        for (const Row& row : table) {
            SCOPED_TRACE(row.typed);
            answer(row.typed);
            StandardOutput output;
            Descriptor descriptor = limited(renewable(pra()));
            descriptor.policy = policy;
            check(pra(), descriptor);
            EXPECT_THAT(output.text(), HasSubstr(questionText));
            EXPECT_EQ(record(pra(), 1)["policy"],
                      row.isYes ? "1.3.76.36.1.1.1" : "1.3.76.36.1.1.23");
            EXPECT_EQ(input->rest(), row.rest);
        }
    }
}

TEST_F(LimitationOfUse, skippedCertificate_isAskedAboutButKeepsTheCardsPolicy)
{
    for (const std::string& policy :
         {std::string("1.3.76.36.1.1.1"), std::string("1.3.76.36.1.1.23")}) {
        for (const char* issuer : {"castelvane", "Another CA"}) {
            SCOPED_TRACE(policy + ", " + issuer);
            answer(policy == "1.3.76.36.1.1.1" ? "n\n" : "s\n");
            StandardOutput output;
            Descriptor descriptor = limited(renewable(pra()));
            descriptor.policy = policy;
            descriptor.issuer = issuer;
            descriptor.notAfter = inDays(200);
            check(pra(), descriptor);
            EXPECT_THAT(output.text(), HasSubstr(questionText));
            EXPECT_EQ(record(pra(), 1)["policy"], policy);
            EXPECT_EQ(record(pra(), 1).count("MODALITA' RINNOVO"), 1U);
        }
    }
}

TEST_F(LimitationOfUse, twoLimitedCertificates_areAskedAboutOneByOne)
{
    answer("s\nn\n");
    StandardOutput output;
    checkAll(pra(),
             {signatureText(limited(renewable(pra()))), signatureText(limited(renewable(pra())))});
    const std::string asked = output.text();
    EXPECT_NE(asked.find(questionText), asked.rfind(questionText));
    EXPECT_EQ(record(pra(), 1)["policy"], "1.3.76.36.1.1.1");
    EXPECT_EQ(record(pra(), 2)["policy"], "1.3.76.36.1.1.23");
}

// The question gives time for anything to happen between two certificates.
TEST_F(LimitationOfUse, skipCheckMarkerPlacedDuringTheQuestion_holdsFromThatCertificateOn)
{
    Descriptor due = renewable(pra());
    due.notAfter = inDays(200);
    const Descriptor asked = limited(due);
    {
        Typist typist("", questionText, "s\n", [this] { placeMarker("skipCheck.rnw"); });
        checkAll(pra(), {signatureText(due), signatureText(asked), signatureText(due)});
        EXPECT_EQ(typist.shown(), questionText);
    }
    EXPECT_EQ(record(pra(), 1),
              skippedRecord(pra(), due, holder, "Certificati non ancora in scadenza"));
    EXPECT_EQ(record(pra(), 2)["policy"], "1.3.76.36.1.1.1");
    EXPECT_EQ(record(pra(), 2).count("MODALITA' RINNOVO"), 0U);
    EXPECT_EQ(record(pra(), 3), renewableRecord(pra(), due, holder));
}

TEST_F(LimitationOfUse, skipCheckMarkerRemovedDuringTheQuestion_datesAreLookedAtAgain)
{
    placeMarker("skipCheck.rnw");
    Descriptor due = renewable(pra());
    due.notAfter = inDays(200);
    {
        Typist typist("", questionText, "s\n", [] {
            EXPECT_EQ(unlink((applicationFolder() + "/skipCheck.rnw").c_str()), 0);
        });
        checkAll(pra(), {signatureText(due), signatureText(limited(due))});
        EXPECT_EQ(typist.shown(), questionText);
    }
    EXPECT_EQ(record(pra(), 1), renewableRecord(pra(), due, holder));
    EXPECT_EQ(record(pra(), 2).count("MODALITA' RINNOVO"), 1U);
}

}  // namespace
