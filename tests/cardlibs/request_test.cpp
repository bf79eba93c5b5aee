// Certificate requests made on a SoftHSM2 token.

#include "cardlibs/renewing/key_making.h"
#include "cardlibs/state/card_error.h"
#include "cardlibs/state/shared_state.h"
#include "cardlibs/x509/name.h"
#include "tests/cardlibs/outside_judges.h"
#include "tests/cardlibs/outside_tools.h"
#include "tests/cardlibs/renewal_steps.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;

using cardlibs::Bytes;
using cardlibs::contents::KeyObject;
using softcard::KeyType;
namespace fault = cardlibs::state::fault;

class Request : public RenewalFixture {
protected:
    std::vector<KeyObject> privateKeys()
    {
        std::vector<KeyObject> keys;
        onCard([&](cardlibs::token::Session& session) {
            keys = cardlibs::contents::readObjects(session).privateKeys;
        });
        return keys;
    }

    std::vector<KeyObject> keysLabelled(const std::string& label)
    {
        std::vector<KeyObject> keys;
        for (KeyObject& key : privateKeys())
            if (key.label == label)
                keys.push_back(std::move(key));
        return keys;
    }

    void expectFailure(const RequestResult& result, unsigned long number)
    {
        EXPECT_NE(result.result, 0);
        EXPECT_EQ(result.pem, "");
        EXPECT_EQ(lastError().number, static_cast<int>(number)) << lastError().text;
    }
};

softcard::CertifiedKeyOrder orderOf(const std::string& kind, int number,
                                    KeyType keyType = KeyType::p256)
{
    return softcard::orderFor(softcard::findKind(kind), number, keyType, 30);
}

std::string publicKeyPem(const std::string& requestPem)
{
    const TemporaryFolder folder;
    writeText(folder.path() / "request.pem", requestPem);
    return runTool({"openssl", "req", "-in", folder.path() / "request.pem", "-noout", "-pubkey"})
        .output;
}

TEST_F(Request, madeForEachKind_pairUnderTheKindsLabelAndLinked)
{
    makeCard({"aut", "pra", "cns"});
    const ReadResult before = read();
    struct Row {
        Function function;
        const std::vector<std::string>& descriptor;
        const char* label;
    };
    const Row rows[] = {{Function::aut, before.aut[0], "AUT1"},
                        {Function::pra, before.pra[0], "DS1"},
                        {Function::aut, before.cns[0], "CNS0"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const std::size_t had = keysLabelled(row.label).size();
        const RequestResult made = request(row.function, row.descriptor, row.label);
        ASSERT_EQ(made.result, 0) << lastError().text;
        EXPECT_THAT(made.pem, StartsWith("-----BEGIN CERTIFICATE REQUEST-----\n"));
        EXPECT_EQ(keysLabelled(row.label).size(), had + 1);
    }
    const ReadResult after = read();
    EXPECT_EQ(after.aut[0][8], "AUT1");
    EXPECT_EQ(after.pra[0][9], "DS1");
    EXPECT_EQ(after.cns[0][8], "CNS0");
    EXPECT_NE(after.pendingAut, 0);
    EXPECT_NE(after.pendingPra, 0);
    EXPECT_NE(after.pendingCns, 0);
    for (const auto& object : certificates())
        for (const KeyObject& key : privateKeys())
            if (key.id.size() == cardlibs::contents::linkSize &&
                cardlibs::contents::linkNames(key.id, object.certificate)) {
                EXPECT_EQ(cardlibs::contents::parseKeyLabel(key.label)->kind,
                          cardlibs::contents::parseKeyLabel(object.label)->kind);
            }
}

TEST_F(Request, repeated_sameKeyAgainWhateverTheLabel)
{
    makeCard({"aut"});
    const std::vector<std::string> descriptor = read().aut[0];
    const RequestResult first = request(Function::aut, descriptor);
    const std::size_t objects = objectNames().size();
    const RequestResult second = request(Function::aut, descriptor);
    const RequestResult third = request(Function::aut, descriptor, "AUT77");
    ASSERT_EQ(first.result, 0);
    ASSERT_EQ(second.result, 0);
    ASSERT_EQ(third.result, 0);
    EXPECT_EQ(publicKeyPem(first.pem), publicKeyPem(second.pem));
    EXPECT_EQ(publicKeyPem(first.pem), publicKeyPem(third.pem));
    EXPECT_EQ(objectNames().size(), objects);
}

TEST_F(Request, twoOfAKind_pendingPairIsNotLentToTheOther)
{
    makeCard({"aut", "aut"});
    const ReadResult before = read();
    const RequestResult first = request(Function::aut, before.aut[0]);
    ASSERT_EQ(first.result, 0);
    // The free-label call now reports the pending pair's label, which belongs to the first.
    EXPECT_EQ(labels().aut, "AUT2");
    const RequestResult second = request(Function::aut, before.aut[1]);
    ASSERT_EQ(second.result, 0);
    EXPECT_NE(publicKeyPem(first.pem), publicKeyPem(second.pem));
    EXPECT_THAT(keysLabelled("AUT2"), SizeIs(1));
    EXPECT_THAT(keysLabelled("AUT3"), SizeIs(1));
    EXPECT_EQ(publicKeyPem(request(Function::aut, before.aut[0]).pem), publicKeyPem(first.pem));
    EXPECT_EQ(publicKeyPem(request(Function::aut, before.aut[1]).pem), publicKeyPem(second.pem));
}

TEST_F(Request, pendingPairUnfit_newPairAndOldOneStays)
{
    makeCard({"aut"});
    const std::vector<std::string> descriptor = read().aut[0];
    auto weak = orderOf("aut", 1, KeyType::rsa1024);
    weak.id = cardlibs::contents::newLink(certificates()[0].certificate);
    addKey(weak);
    EXPECT_EQ(read().aut[0][8], "AUT1");
    ASSERT_EQ(request(Function::aut, descriptor).result, 0);
    ASSERT_THAT(keysLabelled("AUT1"), SizeIs(1));
    EXPECT_EQ(keysLabelled("AUT1")[0].publicKey->bits(), 1024u);
    EXPECT_THAT(keysLabelled("AUT2"), SizeIs(1));
}

TEST_F(Request, newKey_algorithmAndSizeOfTheOldOneAndRsaNeverBelow2048)
{
    makeCard({});
    struct Row {
        unsigned long bits;
        KeyType old;
        cardlibs::x509::PublicKey::Algorithm algorithm;
    };
    using Algorithm = cardlibs::x509::PublicKey::Algorithm;
    const Row rows[] = {{256, KeyType::p256, Algorithm::ec},
                        {384, KeyType::p384, Algorithm::ec},
                        {2048, KeyType::rsa1024, Algorithm::rsa},
                        {2048, KeyType::rsa2048, Algorithm::rsa},
                        {3072, KeyType::rsa3072, Algorithm::rsa}};
    int number = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bits);
        auto order = orderOf("aut", 10 + number, row.old);
        order.validity = softcard::validityFor(10 + number);
        order.id = {static_cast<unsigned char>(number), 1};
        addCertificate(order);
        const std::string label = "AUT" + std::to_string(50 + number);
        const std::string subject =
            cardlibs::x509::nameText(certificates().back().certificate.subject());
        labels();
        const RequestResult made =
            createRequest(Function::aut, label, cardPin, cardlibs::hexadecimal(order.id), subject);
        ASSERT_EQ(made.result, 0) << lastError().text;
        ASSERT_THAT(keysLabelled(label), SizeIs(1));
        EXPECT_EQ(keysLabelled(label)[0].publicKey->bits(), row.bits);
        EXPECT_EQ(keysLabelled(label)[0].publicKey->algorithm, row.algorithm);
        ++number;
    }
}

TEST_F(Request, newPrivateKey_sensitiveAndNotExtractable)
{
    makeCard({"aut"});
    ASSERT_EQ(request(Function::aut, read().aut[0]).result, 0);
    onCard([](cardlibs::token::Session& session) {
        cardlibs::token::Template sought;
        sought.number(CKA_CLASS, CKO_PRIVATE_KEY).text(CKA_LABEL, "AUT1");
        const auto keys = session.find(sought);
        ASSERT_THAT(keys, SizeIs(1));
        const auto key = session.read(keys[0], {CKA_SENSITIVE, CKA_EXTRACTABLE, CKA_LOCAL,
                                                CKA_NEVER_EXTRACTABLE, CKA_PRIVATE, CKA_TOKEN});
        EXPECT_EQ(key.flag(CKA_SENSITIVE), true);
        EXPECT_EQ(key.flag(CKA_EXTRACTABLE), false);
        EXPECT_EQ(key.flag(CKA_NEVER_EXTRACTABLE), true);
        EXPECT_EQ(key.flag(CKA_LOCAL), true);
        EXPECT_EQ(key.flag(CKA_PRIVATE), true);
        EXPECT_EQ(key.flag(CKA_TOKEN), true);
    });
}

// Subjects that other programs lose something of.
TEST_F(Request, awkwardSubject_byteForByteThatOfTheCertificate)
{
    makeCard({});
    auto order = orderOf("aut", 0);
    order.id = {0xA1, 0xB2};
    order.subject = {
        {"2.5.4.6", "IT", V_ASN1_PRINTABLESTRING},
        {"2.5.4.10", "Soci\xC3\xA9t\xC3\xA9, \"Uno+Due\" #3; v2.5.4.5=x", V_ASN1_UTF8STRING},
        {"2.5.4.4", "B\xC3\xB6hm", V_ASN1_BMPSTRING},
        {"2.5.4.42", "Ren\xC3\xA9", V_ASN1_T61STRING},
        {"2.5.4.5", "VLDNCL85M12F205X", V_ASN1_PRINTABLESTRING},
        {"2.5.4.3", " spazi ", V_ASN1_UTF8STRING},
        {"2.5.4.12", "Primo", V_ASN1_UTF8STRING, true},
        {"2.5.4.11", "", V_ASN1_UTF8STRING},
        {"1.2.840.113549.1.9.1", "nome@example.org", V_ASN1_IA5STRING},
    };
    addCertificate(order);
    const std::vector<std::string> descriptor = read().aut.at(0);
    EXPECT_EQ(descriptor[0].find('#'), std::string::npos);
    const RequestResult made = request(Function::aut, descriptor);
    ASSERT_EQ(made.result, 0) << lastError().text;

    expectRequestJudgedGood(made.pem, certificates()[0].certificate.subject());
}

TEST_F(Request, organisationReplacedInTheText_replacedInTheSubjectAlone)
{
    makeCard({"role"});
    const std::vector<std::string> descriptor = read().pra[0];
    std::vector<std::string> rewritten = descriptor;
    rewritten[0] = cardlibs::x509::withReplacedOrganisation(descriptor[0]);
    ASSERT_NE(rewritten[0], descriptor[0]);
    const RequestResult made = request(Function::pra, rewritten);
    ASSERT_EQ(made.result, 0) << lastError().text;
    const Bytes expected =
        *cardlibs::x509::withReplacedOrganisation(certificates()[0].certificate.subject());
    EXPECT_EQ(keysLabelled("DS1").at(0).subject, expected);
    const TemporaryFolder folder;
    writeText(folder.path() / "request.pem", made.pem);
    const ToolRun shown = runTool({"openssl", "req", "-in", folder.path() / "request.pem", "-noout",
                                   "-subject", "-nameopt", "utf8,sep_comma_plus"});
    EXPECT_THAT(shown.output, HasSubstr("O=GRATAX/01382321006,SN=Valdestri"));
}

TEST_F(Request, otherSubjectText_refusedAndNoKeyMade)
{
    makeCard({"aut"});
    std::vector<std::string> descriptor = read().aut[0];
    const auto before = objectNames();
    descriptor[0] += ",2.5.4.11=X";
    expectFailure(request(Function::aut, descriptor), fault::subjectDiffers);
    EXPECT_EQ(objectNames(), before);
}

TEST_F(Request, certificateNotThere_orOfOtherKind_refusedAndNoKeyMade)
{
    makeCard({"aut", "pra"});
    const ReadResult card = read();
    const auto before = objectNames();
    std::vector<std::string> unknown = card.aut[0];
    unknown[ckaIdField] = "00112233";
    expectFailure(request(Function::aut, unknown), fault::certificateNotOnCard);
    unknown[ckaIdField] = "";
    expectFailure(request(Function::aut, unknown), fault::certificateNotOnCard);
    unknown[ckaIdField] = "XY";
    expectFailure(request(Function::aut, unknown), fault::invalidArgument);
    expectFailure(request(Function::pra, card.aut[0]), fault::certificateOfOtherKind);
    expectFailure(request(Function::aut, card.pra[0]), fault::certificateOfOtherKind);
    expectFailure(request(Function::aut, card.aut[0], "CNS0"), fault::certificateOfOtherKind);
    expectFailure(request(Function::aut, card.aut[0], "DS7"), fault::invalidArgument);
    expectFailure(request(Function::aut, card.aut[0], "altro"), fault::invalidArgument);
    EXPECT_EQ(objectNames(), before);
}

TEST_F(Request, severalCertificatesOfOneIdentifier_toldApartBySubjectElseRefused)
{
    makeCard({});
    auto first = orderOf("aut", 0);
    first.id = {7, 7};
    auto second = orderOf("aut", 1);
    second.id = {7, 7};
    second.subject.push_back({"2.5.4.11", "Altra"});
    addCertificate(first);
    addCertificate(second);
    for (const auto& descriptor : read().aut)
        EXPECT_EQ(request(Function::aut, descriptor).result, 0) << lastError().text;
    auto twin = orderOf("aut", 2);
    twin.id = {7, 7};
    addCertificate(twin);
    for (const auto& descriptor : read().aut) {
        const bool isUnique = descriptor[0].find("Altra") != std::string::npos;
        EXPECT_EQ(request(Function::aut, descriptor).result == 0, isUnique);
        if (!isUnique) {
            EXPECT_EQ(lastError().number, static_cast<int>(fault::certificateAmbiguous));
        }
    }
}

TEST_F(Request, withoutFreeLabelCallBefore_refused)
{
    makeCard({"aut"});
    const std::vector<std::string> descriptor = read().aut[0];
    expectFailure(createRequest(Function::aut, "AUT1", cardPin, descriptor[ckaIdField],
                                descriptor[subjectField]),
                  fault::noReaderChosen);
}

TEST_F(Request, wrongPin_refusedAndNoKeyMade)
{
    makeCard({"aut"});
    const std::vector<std::string> descriptor = read().aut[0];
    const auto before = objectNames();
    labels();
    expectFailure(createRequest(Function::aut, "AUT1", wrongPin, descriptor[ckaIdField],
                                descriptor[subjectField]),
                  CKR_PIN_INCORRECT);
    EXPECT_EQ(objectNames(), before);
}

TEST_F(Request, limitsOfTheTable_refusedBeforeAKeyIsMade)
{
    makeCard({"aut"}, KeyType::p384);
    const std::vector<std::string> descriptor = read().aut[0];
    const auto before = objectNames();
    const std::string entry = "[software SoftHSM2]\nmodule = softhsm2\n"
                              "manufacturer = SoftHSM project\nmodel = SoftHSM v2\n";
    writeTable(entry + "ec_bits = 256\n");
    expectFailure(request(Function::aut, descriptor), CKR_KEY_SIZE_RANGE);
    writeTable(entry + "certificate_bytes = 100\n");
    expectFailure(request(Function::aut, descriptor), fault::issuedTooLarge);
    EXPECT_EQ(objectNames(), before);
    writeTable(entry + "ec_bits = 384\ncertificate_bytes = 4096\n");
    EXPECT_EQ(request(Function::aut, descriptor).result, 0);
}

TEST_F(Request, usages_asInTheCertificateAndNoPolicy)
{
    makeCard({"aut"});
    const RequestResult made = request(Function::aut, read().aut[0]);
    const TemporaryFolder folder;
    writeText(folder.path() / "request.pem", made.pem);
    const ToolRun shown =
        runTool({"openssl", "req", "-in", folder.path() / "request.pem", "-noout", "-text"});
    EXPECT_THAT(shown.output, HasSubstr("X509v3 Key Usage: critical"));
    EXPECT_THAT(shown.output, HasSubstr("Digital Signature"));
    EXPECT_THAT(shown.output, HasSubstr("TLS Web Client Authentication"));
    EXPECT_EQ(shown.output.find("Policies"), std::string::npos);
}

}  // namespace
}  // namespace cardlibs_test
