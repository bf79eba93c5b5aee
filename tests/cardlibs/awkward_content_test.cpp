// Renewals of certificates whose subjects and notices trip up programs that read them as text.

#include "cardlibs/x509/certificate.h"
#include "tests/cardlibs/outside_judges.h"
#include "tests/cardlibs/renewed_card.h"

#include <gmock/gmock.h>

#include <tuple>

namespace cardlibs_test {
namespace {

using ::testing::SizeIs;

using softcard::KeyType;
using softcard::SubjectAttribute;

struct Content {
    const char* name;
    // Follow the holder's own attributes.
    std::vector<SubjectAttribute> attributes;
    std::string notice;
    std::string noticeText;
};

void PrintTo(const Content& content, std::ostream* stream)
{
    *stream << content.name;
}

const std::vector<Content>& contents()
{
    static const std::vector<Content> all = {
        {"multiValued",
         {{"2.5.4.11", "Uno"}, {"2.5.4.12", "Due", V_ASN1_UTF8STRING, true}},
         "",
         ""},
        {"bmpString", {{"2.5.4.11", "B\xC3\xB6hm \xE2\x82\xAC", V_ASN1_BMPSTRING}}, "", ""},
        {"t61String", {{"2.5.4.11", "Ren\xC3\xA9", V_ASN1_T61STRING}}, "", ""},
        {"universalString", {{"2.5.4.11", "\xE2\x82\xAC", V_ASN1_UNIVERSALSTRING}}, "", ""},
        {"hash", {{"2.5.4.11", "#7 scala n#3 #"}}, "", ""},
        {"separators", {{"2.5.4.11", R"(a, b+c; "d" <e> \f=g)"}}, "", ""},
        {"typeLookAlikes", {{"2.5.4.11", "x,2.5.4.5=FALSO+2.5.4.46=9"}}, "", ""},
        {"emptyValue", {{"2.5.4.11", ""}, {"2.5.4.12", "", V_ASN1_PRINTABLESTRING}}, "", ""},
        {"blanks", {{"2.5.4.11", "  spazi  "}, {"2.5.4.12", " "}}, "", ""},
        {"lineEnds", {{"2.5.4.11", "prima\r\nseconda"}}, "", ""},
        {"mailAddress", {{"1.2.840.113549.1.9.1", "n@example.org", V_ASN1_IA5STRING}}, "", ""},
        {"noticeWithHash",
         {},
         "Limite #1: v2.5, \xE2\x82\xAC 100#",
         "Limite \\231: v2.5, \xE2\x82\xAC 100\\23"},
        {"longValue", {{"2.5.4.11", std::string(600, 'x')}}, "", ""},
    };
    return all;
}

using Case = std::tuple<Content, const char*>;

std::string caseName(const ::testing::TestParamInfo<Case>& info)
{
    return rowName(std::get<1>(info.param), KeyType::p256) + "_" + std::get<0>(info.param).name;
}

std::size_t occurrences(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class AwkwardContent : public RenewedCard, public ::testing::WithParamInterface<Case> {};

TEST_P(AwkwardContent, renewed_descriptorWholeAndSubjectByteForByte)
{
    const auto& [content, kind] = GetParam();
    ASSERT_NO_FATAL_FAILURE(makeCardOfOthers());
    auto order = softcard::orderFor(softcard::findKind(kind), 0, KeyType::p256, 30);
    order.subject.insert(order.subject.end(), content.attributes.begin(), content.attributes.end());
    order.profile.explicitText = content.notice;
    Due due = addDue(order, kind);
    ASSERT_NO_FATAL_FAILURE(requestFor(due));

    const bool isSignature = functionFor(kind) == Function::pra;
    ASSERT_THAT(due.descriptor, SizeIs(isSignature ? 11 : 10));
    EXPECT_EQ(due.descriptor.back(), "VLDNCL85M12F205X");
    EXPECT_EQ(occurrences(due.descriptor[subjectField], "2.5.4.5="), 1u);
    EXPECT_EQ(occurrences(due.descriptor[subjectField], "2.5.4.46="), 1u);
    if (isSignature) {
        EXPECT_EQ(due.descriptor[8], content.noticeText);
    }

    const auto subject = cardlibs::x509::Certificate::parse(due.certificate).value().subject();
    expectRequestJudgedGood(due.request, subject);
    expectCertificateJudgedGood(
        due.issued, softcard::DemoAuthority::certificateFile(folder().authority()), subject);
    ASSERT_EQ(install(due), 0) << lastError().text;
    expectRenewed(due, "normal");
    expectForeignObjectsUntouched();
}

INSTANTIATE_TEST_SUITE_P(Subjects, AwkwardContent,
                         ::testing::Combine(::testing::ValuesIn(contents()),
                                            ::testing::Values("aut", "pra")),
                         caseName);

}  // namespace
}  // namespace cardlibs_test
