// What an authority's answer may look like.

#include "cardlibs/x509/issued.h"
#include "tests/cardlibs/card_fixture.h"
#include "tests/cardlibs/outside_tools.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

using cardlibs::Bytes;
using cardlibs::x509::issuedBytes;
using cardlibs::x509::parseIssued;

class Issued : public ::testing::Test {
protected:
    Issued() { softcard::DemoAuthority::make(m_folder.path()); }

    std::string pem() const { return readText(m_folder.path() / "certificate.pem"); }
    std::string der() const
    {
        const std::string out = m_folder.path() / "out.der";
        EXPECT_EQ(runTool({"openssl", "x509", "-in", m_folder.path() / "certificate.pem",
                           "-outform", "DER", "-out", out})
                      .exitCode,
                  0);
        return readText(out);
    }

private:
    TemporaryFolder m_folder;
};

Bytes bytesOf(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

TEST_F(Issued, pemWithAndWithoutSurroundings_read)
{
    EXPECT_THAT(parseIssued(bytesOf(pem())), SizeIs(1));
    EXPECT_THAT(parseIssued(bytesOf("Subject: x\n" + pem() + "\n\n")), SizeIs(1));
    EXPECT_THAT(parseIssued(bytesOf(pem() + pem())), SizeIs(2));
}

TEST_F(Issued, base64WithoutFrame_read)
{
    std::string body = pem();
    body.erase(0, body.find('\n') + 1);
    body.erase(body.find("-----END"));
    EXPECT_THAT(parseIssued(bytesOf(body)), SizeIs(1));
    body.pop_back();
    body[0] = '!';
    EXPECT_THAT(parseIssued(bytesOf(body)), IsEmpty());
}

TEST_F(Issued, derByItsOwnLength_readWhateverFollows)
{
    const std::string whole = der() + std::string("\0rest", 5);
    const Bytes bytes = issuedBytes(whole.c_str());
    EXPECT_EQ(bytes, bytesOf(der()));
    EXPECT_THAT(parseIssued(bytes), SizeIs(1));
    // Trailing bytes make it something else than one certificate.
    EXPECT_THAT(parseIssued(bytesOf(der() + "x")), IsEmpty());
    EXPECT_THAT(parseIssued(bytesOf(der().substr(0, 100))), IsEmpty());
}

TEST_F(Issued, textThatBeginsLikeDer_readUpToItsNul)
{
    EXPECT_EQ(issuedBytes("0\x82"), bytesOf("0\x82"));
    EXPECT_EQ(issuedBytes("0"), bytesOf("0"));
    EXPECT_THAT(parseIssued(issuedBytes("0\x82")), IsEmpty());
}

TEST_F(Issued, tooLong_notLookedAt)
{
    EXPECT_THAT(issuedBytes(std::string(70000, 'A').c_str()), IsEmpty());
    EXPECT_THAT(parseIssued(Bytes(70000, 'A')), IsEmpty());
    EXPECT_THAT(parseIssued({}), IsEmpty());
}

}  // namespace
}  // namespace cardlibs_test
