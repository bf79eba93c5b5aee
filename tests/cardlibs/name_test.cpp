// Names as text, and the organisation that some renewals replace.

#include "cardlibs/x509/name.h"
#include "tools/softcard/subject.h"

#include <gmock/gmock.h>

namespace {

using cardlibs::Bytes;
using cardlibs::x509::nameText;
using softcard::SubjectAttribute;
namespace x509 = cardlibs::x509;

Bytes derOf(const std::vector<SubjectAttribute>& attributes)
{
    const x509::NamePointer name = softcard::nameOf(attributes);
    const unsigned char* der = nullptr;
    std::size_t length = 0;
    EXPECT_EQ(X509_NAME_get0_der(name.get(), &der, &length), 1);
    return Bytes(der, der + length);
}

struct ValueRow {
    const char* what;
    std::string value;
    std::string text;
};

TEST(NameText, values_escapedSoThatTypesAndSeparatorsAreNeverFoundInThem)
{
    const ValueRow rows[] = {
        {"plain", "Ente Dimostrativo", "Ente Dimostrativo"},
        {"separators", "a,b+c;d", R"(a\,b\+c\;d)"},
        {"quotes", R"("x" <y> \z)", R"(\"x\" \<y\> \\z)"},
        {"field separator", "n#3", "n\\233"},
        {"leading hash", "#1", "\\231"},
        {"edge blanks", " x ", "\\ x\\ "},
        {"single blank", " ", "\\ "},
        {"inner blanks", "x  y", "x  y"},
        {"type look-alike", "2.5.4.5=X", "2\\2E5.4.5=X"},
        {"version", "v12.2.2", "v12\\2E2\\2E2"},
        {"number ending in 2 before a dot", "32.5", "32\\2E5"},
        {"equals sign", "a=b", "a=b"},
        {"two bytes", "Nicol\xC3\xB2", "Nicol\xC3\xB2"},
        {"control", std::string("a\x02.b"), "a\\02\\2Eb"},
        {"line end", "a\nb", "a\\0Ab"},
        {"nul", std::string("a\0b", 3), "a\\00b"},
        {"empty", "", ""},
    };
    for (const ValueRow& row : rows) {
        SCOPED_TRACE(row.what);
        const std::string text = nameText(derOf({{"2.5.4.11", row.value}}));
        EXPECT_EQ(text, "2.5.4.11=" + row.text);
        EXPECT_EQ(text.find('#'), std::string::npos);
        EXPECT_EQ(text.find("2.", 1), std::string::npos);
    }
}

TEST(NameText, stringTypes_allReadAsUtf8)
{
    for (const int type :
         {V_ASN1_UTF8STRING, V_ASN1_BMPSTRING, V_ASN1_T61STRING, V_ASN1_UNIVERSALSTRING}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(nameText(derOf({{"2.5.4.4", "B\xC3\xB6hm", type}})), "2.5.4.4=B\xC3\xB6hm");
    }
}

TEST(NameText, order_thatOfTheCertificateWithPlusInsideARelativeName)
{
    // DER sorts what shares a relative name.
    EXPECT_EQ(nameText(derOf({{"2.5.4.6", "IT", V_ASN1_PRINTABLESTRING},
                              {"2.5.4.5", "X1", V_ASN1_PRINTABLESTRING},
                              {"2.5.4.3", "Uno", V_ASN1_UTF8STRING, true},
                              {"0.9.2342.19200300.100.1.1", "u"}})),
              "2.5.4.6=IT,2.5.4.5=X1+2.5.4.3=Uno,0.9.2342.19200300.100.1.1=u");
}

TEST(NameText, valueThatIsNoString_hexadecimalOfItsDer)
{
    // x500UniqueIdentifier, a bit string with one unused bit.
    const Bytes name = {0x30, 0x0D, 0x31, 0x0B, 0x30, 0x09, 0x06, 0x03,
                        0x55, 0x04, 0x2D, 0x03, 0x02, 0x01, 0x54};
    EXPECT_EQ(nameText(name), "2.5.4.45=\\2303020154");
}

TEST(NameText, notAName_empty)
{
    EXPECT_EQ(nameText({}), "");
    EXPECT_EQ(nameText({0x30, 0x05, 0x31}), "");
    Bytes trailing = derOf({{"2.5.4.3", "x"}});
    trailing.push_back(0);
    EXPECT_EQ(nameText(trailing), "");
    // Bytes that are no UTF-8 where UTF-8 is declared.
    EXPECT_EQ(nameText({0x30, 0x0D, 0x31, 0x0B, 0x30, 0x09, 0x06, 0x03, 0x55, 0x04, 0x03, 0x0C,
                        0x02, 0xC3, 0x28}),
              "");
}

TEST(NameText, nameWithoutAttributes_empty)
{
    EXPECT_EQ(nameText({0x30, 0x00}), "");
}

TEST(ReplacedOrganisation, text_upToTheNextType)
{
    EXPECT_EQ(x509::withReplacedOrganisation("2.5.4.6=IT,2.5.4.10=Ente,2.5.4.3=X"),
              "2.5.4.6=IT,2.5.4.10=GRATAX/013823210062.5.4.3=X");
    EXPECT_EQ(x509::withReplacedOrganisation("2.5.4.6=IT,2.5.4.10=Ente"),
              "2.5.4.6=IT,2.5.4.10=Ente");
    EXPECT_EQ(x509::withReplacedOrganisation("2.5.4.6=IT,2.5.4.3=X"), "2.5.4.6=IT,2.5.4.3=X");
}

TEST(ReplacedOrganisation, der_inItsOwnStringTypeAndNothingElseChanged)
{
    for (const int type : {V_ASN1_UTF8STRING, V_ASN1_PRINTABLESTRING, V_ASN1_BMPSTRING,
                           V_ASN1_T61STRING, V_ASN1_UNIVERSALSTRING}) {
        SCOPED_TRACE(type);
        const std::vector<SubjectAttribute> before = {{"2.5.4.6", "IT", V_ASN1_PRINTABLESTRING},
                                                      {"2.5.4.10", "Ente", type},
                                                      {"2.5.4.10", "Secondo", type},
                                                      {"2.5.4.3", std::string(200, 'x')}};
        std::vector<SubjectAttribute> after = before;
        after[1].value = x509::replacementOrganisation;
        const auto replaced = x509::withReplacedOrganisation(derOf(before));
        ASSERT_TRUE(replaced.has_value());
        EXPECT_EQ(*replaced, derOf(after));
    }
}

TEST(ReplacedOrganisation, derWithoutOrganisationOrCutShort_nothing)
{
    EXPECT_FALSE(x509::withReplacedOrganisation(derOf({{"2.5.4.3", "X"}})).has_value());
    Bytes cut = derOf({{"2.5.4.10", "Ente"}});
    cut.pop_back();
    EXPECT_FALSE(x509::withReplacedOrganisation(cut).has_value());
    EXPECT_FALSE(x509::withReplacedOrganisation(Bytes()).has_value());
}

TEST(ReplacedOrganisation, inAMultiValuedName_neighboursKeepTheirOrder)
{
    // A set out of DER's order, as some authorities write it, must stay so.
    const Bytes name = {0x30, 0x1A, 0x31, 0x18, 0x30, 0x09, 0x06, 0x03, 0x55, 0x04,
                        0x0B, 0x0C, 0x02, 'z',  'z',  0x30, 0x0B, 0x06, 0x03, 0x55,
                        0x04, 0x0A, 0x0C, 0x04, 'E',  'n',  't',  'e'};
    const auto replaced = x509::withReplacedOrganisation(name);
    ASSERT_TRUE(replaced.has_value());
    EXPECT_EQ(nameText(*replaced), "2.5.4.11=zz+2.5.4.10=GRATAX/01382321006");
}

TEST(FieldText, separatorAndControls_hexadecimal)
{
    EXPECT_EQ(x509::fieldText("Uso #1, 2.5\n"), "Uso \\231, 2.5\\0A");
}

TEST(FirstValue, ofAType_orEmpty)
{
    const Bytes name = derOf({{"2.5.4.5", "A"}, {"2.5.4.5", "B"}});
    EXPECT_EQ(x509::firstValue(name, "2.5.4.5"), "A");
    EXPECT_EQ(x509::firstValue(name, "2.5.4.46"), "");
}

TEST(SameAttributes, orderStringTypeAndQualifier_doNotCount)
{
    const Bytes left = derOf({{"2.5.4.3", "X"}, {"2.5.4.4", "Y"}, {"2.5.4.46", "1"}});
    EXPECT_TRUE(x509::sameAttributes(
        left, derOf({{"2.5.4.4", "Y", V_ASN1_BMPSTRING}, {"2.5.4.3", "X"}}), "2.5.4.46"));
    EXPECT_FALSE(x509::sameAttributes(left, derOf({{"2.5.4.3", "X"}}), "2.5.4.46"));
}

}  // namespace
