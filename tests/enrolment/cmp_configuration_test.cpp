// What a configuration of the way "cmp" must have, and what it must not.

#include "cmp_fixture.h"
#include "expected_error.h"

#include <QFile>

#include <gmock/gmock.h>
#include <openssl/pem.h>

#include <functional>

namespace trial {

using enrolment::Configuration;

namespace {

struct Mistake {
    const char* name;
    bool bySecret;
    std::function<void(Configuration&)> make;
    // A part of the error's text.
    const char* text;
};

void PrintTo(const Mistake& mistake, std::ostream* to)
{
    *to << mistake.name;
}

const Mistake mistakes[] = {
    {"noUrl", true, [](Configuration& c) { drop(c, "url"); }, "url"},
    {"otherScheme", true, [](Configuration& c) { set(c, "url", QStringLiteral("ftp://ca/cmp")); },
     "http://"},
    {"noProtection", true,
     [](Configuration& c) {
         drop(c, "secret-reference");
         drop(c, "secret-file");
     },
     "One protection is needed"},
    {"bothProtections", false,
     [](Configuration& c) {
         set(c, "secret-reference", QStringLiteral("x"));
         set(c, "secret-file", QStringLiteral("x"));
     },
     "One protection is needed"},
    {"noReference", true, [](Configuration& c) { drop(c, "secret-reference"); },
     "secret-reference"},
    {"noKey", false, [](Configuration& c) { drop(c, "signer-key-file"); }, "signer-key-file"},
    {"nobodyToTrust", false, [](Configuration& c) { drop(c, "server-anchors"); },
     "it must be known who signs the answers"},
    {"misspeltKey", true, [](Configuration& c) { set(c, "server-anchor", QStringLiteral("x")); },
     "server-anchor"},
    {"noSecretFile", true,
     [](Configuration& c) { set(c, "secret-file", QStringLiteral("/nonexistent")); },
     "/nonexistent"},
    {"secretOfEverybody", true,
     [](Configuration& c) {
         QFile::setPermissions(c.values.value(QStringLiteral("secret-file")),
                               QFileDevice::ReadOwner | QFileDevice::ReadOther);
     },
     "other users"},
    {"keyOfEverybody", false,
     [](Configuration& c) {
         QFile::setPermissions(c.values.value(QStringLiteral("signer-key-file")),
                               QFileDevice::ReadOwner | QFileDevice::ReadOther);
     },
     "other users"},
    {"keyThatIsNone", false,
     [](Configuration& c) {
         set(c, "signer-key-file",
             c.values.value(QStringLiteral("signer-key-file")) + QStringLiteral(".none"));
     },
     "private key in PEM"},
    {"keyOfAnother", false,
     [](Configuration& c) {
         set(c, "signer-key-file",
             c.values.value(QStringLiteral("signer-key-file")) + QStringLiteral(".other"));
     },
     "does not belong to the certificate"},
    {"expiredSigner", false,
     [](Configuration& c) {
         set(c, "signer-certificate",
             c.values.value(QStringLiteral("signer-certificate")) + QStringLiteral(".expired"));
         set(c, "signer-key-file",
             c.values.value(QStringLiteral("signer-key-file")) + QStringLiteral(".expired"));
     },
     "expired"},
    {"anchorsThatAreNone", false,
     [](Configuration& c) {
         set(c, "server-anchors", c.values.value(QStringLiteral("signer-key-file")));
     },
     "no certificate that can be read"},
};

class CmpConfiguration : public Cmp, public ::testing::WithParamInterface<Mistake> {};

}  // namespace

TEST_P(CmpConfiguration, mistake_isNamedAndNothingIsSent)
{
    serve();
    const auto& mistake = GetParam();
    file("signer.key.none", "no key");
    file("signer.key.other", keyPem(signer.key.get()));
    const MessageSigner expired(issuer, "Old Desk", -1);
    file("signer.pem.expired", pemOf(expired.certificate));
    file("signer.key.expired", keyPem(expired.key.get()));
    auto configuration = mistake.bySecret ? withSecret() : withSignature();
    mistake.make(configuration);
    const auto failure = failureOf([&] { return enrol(configuration); });
    EXPECT_EQ(failure.cause, "misconfigured");
    EXPECT_THAT(failure.text, ::testing::HasSubstr(mistake.text));
    EXPECT_THAT(failure.text, ::testing::Not(::testing::HasSubstr("horse")));
    EXPECT_EQ(server->requestCount(), 0);
}

INSTANTIATE_TEST_SUITE_P(Mistakes, CmpConfiguration, ::testing::ValuesIn(mistakes),
                         [](const ::testing::TestParamInfo<Mistake>& tried) {
                             return tried.param.name;
                         });

namespace {

using CmpEncryptedKey = Cmp;

}  // namespace

TEST_F(CmpEncryptedKey, passwordFile_opensIt)
{
    serve();
    BIO* memory = BIO_new(BIO_s_mem());
    ASSERT_EQ(PEM_write_bio_PKCS8PrivateKey(memory, client.key.get(), EVP_aes_128_cbc(), "open up",
                                            7, nullptr, nullptr),
              1);
    char* bytes = nullptr;
    const auto size = BIO_get_mem_data(memory, &bytes);
    const auto encrypted = file("encrypted.key", QByteArray(bytes, static_cast<int>(size)));
    BIO_free(memory);
    auto configuration = withSignature();
    set(configuration, "signer-key-file", encrypted);
    EXPECT_EQ(failureOf([&] { return enrol(configuration); }).cause, "misconfigured");

    set(configuration, "signer-key-password-file", file("password", "open up\n"));
    EXPECT_TRUE(isIssued(enrol(configuration)));
}

}  // namespace trial
