// Which key belongs to which certificate, and which pairs are ours, on cards that other programs
// have written to.

#include "cardlibs/contents/card_contents.h"
#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/crafted_card.h"

#include <gmock/gmock.h>
#include <openssl/core_names.h>
#include <openssl/rsa.h>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using cardlibs::Bytes;
using softcard::KeyType;
namespace contents = cardlibs::contents;
namespace fault = cardlibs::state::fault;
namespace x509 = cardlibs::x509;

class Pairing : public CraftedCard {};

TEST_F(Pairing, foreignKeyWithTheIdentifierOfACertificate_isNotItsKey)
{
    makeCard({"aut"});
    auto foreign = orderOf("aut", 9);
    foreign.label = "ssh";
    foreign.id = certificates().at(0).id;
    destroy(CKO_PRIVATE_KEY, "AUT0");
    destroy(CKO_PUBLIC_KEY, "AUT0");
    addKey(foreign);
    destroy(CKO_PUBLIC_KEY, "ssh");
    EXPECT_THAT(read().aut, IsEmpty());
}

TEST_F(Pairing, hiddenKeyWithCertificateAlone_isItsKey)
{
    makeCard({"aut"});
    destroy(CKO_PUBLIC_KEY, "AUT0");
    EXPECT_THAT(read().aut, SizeIs(1));
    proxy().wantsPinEachTime = true;
    EXPECT_THAT(read().aut, SizeIs(1));
    // Nothing but a login of its own would make it sign.
    EXPECT_EQ(proxy().count("C_Login(context)"), 0u);
}

TEST_F(Pairing, keyThatCannotBeToldFromAnother_certificatesAreNamedAsLeftOut)
{
    makeCard({});
    std::vector<std::string> numbers;
    for (const int number : {0, 1}) {
        auto order = orderOf("pra", number);
        order.id = {1, 2};
        numbers.push_back(x509::Certificate::parse(addCertificate(order)).value().serialNumber());
    }
    addCertificate("aut", 0);
    proxy().wantsPinEachTime = true;
    const ReadResult card = read();
    EXPECT_EQ(card.result, -500);
    EXPECT_THAT(card.pra, IsEmpty());
    EXPECT_THAT(card.aut, SizeIs(1));
    const LastError error = lastError();
    EXPECT_EQ(error.number, static_cast<int>(fault::certificatesLeftOut));
    for (const std::string& number : numbers)
        EXPECT_THAT(error.text, HasSubstr("PRA " + number));
}

TEST_F(Pairing, modulusWithoutExponent_foundByTheModulusWhateverTheIdentifier)
{
    makeCard({});
    auto order = orderOf("aut", 0, KeyType::rsa2048);
    order.id = {1, 2};
    addKey(order);
    const Bytes der = certify("AUT0", order);
    onCard([&](cardlibs::token::Session& session) {
        softcard::addCertificate(session, "AUT0", {9}, der);
    });
    destroy(CKO_PUBLIC_KEY, "AUT0");
    proxy().lackingAttributes = {CKA_PUBLIC_EXPONENT};
    EXPECT_THAT(read().aut, SizeIs(1));
    EXPECT_EQ(proxy().count("C_Sign"), 0u);
}

TEST_F(Pairing, certificateWithPaddingBehindIt_isRead)
{
    makeCard({});
    auto order = orderOf("aut", 0);
    order.id = {1, 2};
    addKey(order);
    Bytes padded = certify("AUT0", order);
    padded.resize(padded.size() + 16, 0);
    addCertificateObject("AUT0", order.id, padded, {0x30, 0});
    const ReadResult card = read();
    EXPECT_THAT(card.aut, SizeIs(1));
    EXPECT_EQ(card.pendingAut, 0);
}

TEST_F(Pairing, keyOfAnUnreadableCertificate_isNotPending)
{
    makeCard({});
    auto order = orderOf("aut", 0);
    order.id = {1, 2};
    addKey(order);
    ASSERT_EQ(read().pendingAut, 1);
    const Bytes subject = x509::Certificate::parse(certify("AUT0", order)).value().subject();
    for (const bool bySubject : {false, true}) {
        SCOPED_TRACE(bySubject);
        addCertificateObject("illeggibile", bySubject ? Bytes{4} : order.id, {0x30, 0x03, 1, 2, 3},
                             bySubject ? subject : Bytes{0x30, 0});
        EXPECT_EQ(read().pendingAut, 0);
        destroy(CKO_CERTIFICATE, "illeggibile");
    }
}

TEST_F(Pairing, unreadableCertificateOfTheHolder_doesNotDisturbARenewal)
{
    makeCard({"aut"});
    const Bytes subject = certificates().at(0).certificate.subject();
    addCertificateObject("illeggibile", {4}, {0x30, 0x03, 1, 2, 3}, subject);
    const auto descriptor = read().aut.at(0);
    const std::string issued = issueFor("aut", descriptor);
    EXPECT_EQ(read().pendingAut, 1);
    install("aut", descriptor, issued);
    EXPECT_TRUE(lookAtToken(cardPin).works(certificateBytes(issued)));
}

TEST_F(Pairing, certificateStoredTwice_listedOnceAndRequestMade)
{
    makeCard({"aut"});
    const auto object = certificates().at(0);
    onCard([&](cardlibs::token::Session& session) {
        softcard::addCertificate(session, object.label, object.id, object.certificate.der());
    });
    ASSERT_THAT(read().aut, SizeIs(1));
    EXPECT_EQ(request(Function::aut, read().aut[0]).result, 0) << lastError().text;
    const auto objects = objectNames();
    EXPECT_EQ(request(Function::aut, read().aut[0]).result, 0) << lastError().text;
    EXPECT_EQ(objectNames(), objects);
}

TEST_F(Pairing, certificateWithoutIdentifier_requestedBySubject)
{
    makeCard({"aut"});
    auto order = orderOf("aut", 3);
    order.id = {1, 2};
    addKey(order);
    const Bytes der = certify("AUT3", order);
    onCard([&](cardlibs::token::Session& session) {
        softcard::addCertificate(session, "AUT3", {}, der);
    });
    const auto descriptor = descriptorOf(read(), der);
    ASSERT_EQ(descriptor[ckaIdField], "");
    auto stranger = descriptor;
    stranger[subjectField] = "2.5.4.3=Nessuno";
    EXPECT_NE(request(Function::aut, stranger).result, 0);
    EXPECT_EQ(lastError().number, static_cast<int>(fault::subjectDiffers));
    const std::string issued = issueFor("aut", descriptor);
    install("aut", descriptor, issued);
    const TokenLook token = lookAtToken(cardPin);
    EXPECT_TRUE(token.works(certificateBytes(issued)));
    EXPECT_FALSE(token.holds(der));
    EXPECT_THAT(token.certificates, SizeIs(2));
}

TEST_F(Pairing, softwareKeyThatWasImported_notUsedForARequest)
{
    makeCard({});
    const x509::KeyPointer software(EVP_RSA_gen(2048));
    ASSERT_TRUE(software);
    const auto number = [&](const char* name) {
        BIGNUM* raw = nullptr;
        EXPECT_EQ(EVP_PKEY_get_bn_param(software.get(), name, &raw), 1);
        const x509::NumberPointer held(raw);
        Bytes bytes(static_cast<std::size_t>(BN_num_bytes(held.get())));
        BN_bn2bin(held.get(), bytes.data());
        return bytes;
    };
    addCertificate(orderOf("aut", 0, KeyType::rsa2048));
    const x509::Certificate renewed = certificates().at(0).certificate;
    for (const bool isSensitive : {false, true})
        onCard([&](cardlibs::token::Session& session) {
            cardlibs::token::Template key;
            key.number(CKA_CLASS, CKO_PRIVATE_KEY)
                .number(CKA_KEY_TYPE, CKK_RSA)
                .flag(CKA_TOKEN, true)
                .flag(CKA_PRIVATE, true)
                .flag(CKA_SENSITIVE, isSensitive)
                .flag(CKA_EXTRACTABLE, false)
                .flag(CKA_SIGN, true)
                .text(CKA_LABEL, "AUT1")
                .bytes(CKA_ID, contents::newLink(renewed))
                .bytes(CKA_SUBJECT, renewed.subject())
                .bytes(CKA_MODULUS, number(OSSL_PKEY_PARAM_RSA_N))
                .bytes(CKA_PUBLIC_EXPONENT, number(OSSL_PKEY_PARAM_RSA_E))
                .bytes(CKA_PRIVATE_EXPONENT, number(OSSL_PKEY_PARAM_RSA_D))
                .bytes(CKA_PRIME_1, number(OSSL_PKEY_PARAM_RSA_FACTOR1))
                .bytes(CKA_PRIME_2, number(OSSL_PKEY_PARAM_RSA_FACTOR2))
                .bytes(CKA_EXPONENT_1, number(OSSL_PKEY_PARAM_RSA_EXPONENT1))
                .bytes(CKA_EXPONENT_2, number(OSSL_PKEY_PARAM_RSA_EXPONENT2))
                .bytes(CKA_COEFFICIENT, number(OSSL_PKEY_PARAM_RSA_COEFFICIENT1));
            session.create(key);
        });
    const auto descriptor = read().aut.at(0);
    const std::size_t before = objectNames().size();
    EXPECT_EQ(request(Function::aut, descriptor).result, 0) << lastError().text;
    EXPECT_EQ(objectNames().size(), before + 2);
    EXPECT_EQ(request(Function::aut, descriptor).result, 0) << lastError().text;
    EXPECT_EQ(objectNames().size(), before + 2);
}

TEST_F(Pairing, certificateLargerThanExpectedOnATokenThatLacksAttributes_isRead)
{
    makeCard({});
    auto order = orderOf("aut", 0, KeyType::rsa2048);
    for (int i = 0; i < 160; ++i)
        order.subject.push_back({"2.5.4.11", std::string(60, 'x')});
    const Bytes der = addCertificate(order);
    ASSERT_GT(der.size(), 8192u);
    proxy().lackingAttributes = {CKA_ID};
    // Its descriptor has no room, but it is known.
    const ReadResult card = read();
    EXPECT_EQ(card.result, -500);
    EXPECT_EQ(card.pendingAut, 0);
}

struct Identifier {
    const char* name;
    Bytes (*of)(const x509::PublicKey& key);
};

Bytes digestOf(const EVP_MD* algorithm, const Bytes& data)
{
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    EXPECT_EQ(EVP_Digest(data.data(), data.size(), digest.data(), &length, algorithm, nullptr), 1);
    digest.resize(20);
    return digest;
}

Bytes publicKeyDer(const x509::PublicKey& key, int (*encode)(const EVP_PKEY*, unsigned char**))
{
    unsigned char* raw = nullptr;
    const int length = encode(x509::evpKey(key).get(), &raw);
    EXPECT_GT(length, 0);
    Bytes der(raw, raw + length);
    OPENSSL_free(raw);
    return der;
}

// Of RFC 5280, section 4.2.1.2, and RFC 7093, section 2.
TEST_F(Pairing, identifiersThatTokensDeriveFromTheKey_linkedByKindAndSubject)
{
    const Identifier identifiers[] = {
        {"SHA-1 of the key",
         [](const x509::PublicKey& key) {
             return digestOf(EVP_sha1(), publicKeyDer(key, i2d_PublicKey));
         }},
        {"SHA-1 of the key with its algorithm",
         [](const x509::PublicKey& key) {
             return digestOf(EVP_sha1(), publicKeyDer(key, i2d_PUBKEY));
         }},
        {"SHA-256 of the key",
         [](const x509::PublicKey& key) {
             return digestOf(EVP_sha256(), publicKeyDer(key, i2d_PublicKey));
         }},
        {"SHA-256 of the key with its algorithm",
         [](const x509::PublicKey& key) {
             return digestOf(EVP_sha256(), publicKeyDer(key, i2d_PUBKEY));
         }},
    };
    for (const KeyType keyType : {KeyType::p256, KeyType::rsa2048})
        for (const Identifier& identifier : identifiers) {
            SCOPED_TRACE(std::string(identifier.name) + " " + keyTypeName(keyType));
            folder().clear();
            folder().prepare();
            startProxy();
            makeCard({});
            addCertificate(orderOf("aut", 0, keyType));
            proxy().choosesIdentifiers = true;
            proxy().deriveIdentifier = [&](const Bytes& value) {
                return identifier.of(
                    keyType == KeyType::rsa2048
                        ? x509::rsaPublicKey(value, {1, 0, 1}).value()
                        : x509::ecPublicKey(x509::curveParameters(NID_X9_62_prime256v1), value)
                              .value());
            };
            const auto descriptor = read().aut.at(0);
            issueFor("aut", descriptor);
            const std::size_t objects = objectNames().size();
            EXPECT_EQ(read().aut.at(0)[8], "AUT1");
            const std::string issued = issueFor("aut", descriptor);
            EXPECT_EQ(objectNames().size(), objects);
            install("aut", descriptor, issued);
            EXPECT_EQ(lookAtToken(cardPin).objects, 3u);
        }
}

}  // namespace
}  // namespace cardlibs_test
