// Issued certificates installed on a SoftHSM2 token.

#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/installation_fixture.h"
#include "tests/cardlibs/outside_tools.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

using cardlibs::Bytes;
using softcard::KeyType;
namespace fault = cardlibs::state::fault;

softcard::CertifiedKeyOrder orderOf(const std::string& kind, int number,
                                    KeyType keyType = KeyType::p256)
{
    return softcard::orderFor(softcard::findKind(kind), number, keyType, 30);
}

TEST_F(Installation, eachKindAndKeyType_newCertificateWithItsKeyAndOldOneGone)
{
    struct Row {
        const char* kind;
        KeyType keyType;
        Function function;
    };
    const Row rows[] = {
        {"aut", KeyType::rsa2048, Function::aut},  {"aut", KeyType::p256, Function::aut},
        {"aut", KeyType::p384, Function::aut},     {"pra", KeyType::rsa2048, Function::pra},
        {"pra", KeyType::p256, Function::pra},     {"role", KeyType::p384, Function::pra},
        {"cns", KeyType::rsa2048, Function::aut},  {"cns", KeyType::p256, Function::aut},
        {"cns-like", KeyType::p256, Function::aut}};
    makeCard({});
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.kind) + " " + std::to_string(static_cast<int>(row.keyType)));
        const Bytes old = addCertificate(orderOf(row.kind, 0, row.keyType));
        const bool isCns = std::string(row.kind).rfind("cns", 0) == 0;
        const auto storeOf = [&](const ReadResult& result) {
            return isCns ? result.cns : row.function == Function::pra ? result.pra : result.aut;
        };
        const auto descriptor = storeOf(read()).at(0);
        const RequestResult made =
            isCns ? requestCns(descriptor) : request(row.function, descriptor);
        ASSERT_EQ(made.result, 0) << lastError().text;
        ASSERT_EQ(workingPairs(), 1u);
        const std::string issued = issue(made.pem);
        ASSERT_EQ(save(row.function, descriptor[ckaIdField], issued), 0) << lastError().text;
        EXPECT_EQ(workingPairs(), 1u);
        EXPECT_THAT(objectNames(), SizeIs(3));
        ASSERT_THAT(certificates(), SizeIs(1));
        EXPECT_NE(certificates()[0].certificate.der(), old);
        const auto renewed = storeOf(read());
        ASSERT_THAT(renewed, SizeIs(1));
        EXPECT_GT(renewed[0][notAfterField], descriptor[notAfterField]);
        EXPECT_EQ(renewed[0][subjectField], descriptor[subjectField]);
        // Certificate and key of the new pair bear one identifier.
        for (const std::string& name : objectNames())
            EXPECT_THAT(name, HasSubstr(renewed[0][ckaIdField]));
        onCard([](cardlibs::token::Session& session) {
            cardlibs::token::Template anything;
            for (const CK_OBJECT_HANDLE handle : session.find(anything))
                session.destroy(handle);
        });
    }
}

TEST_F(Installation, repeated_changesNothingAndSucceeds)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    ASSERT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0);
    const auto after = objectNames();
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    EXPECT_EQ(save(Function::aut, "", issued), 0) << lastError().text;
    EXPECT_EQ(save(Function::aut, read().aut[0][ckaIdField], issued), 0) << lastError().text;
    EXPECT_EQ(objectNames(), after);
}

TEST_F(Installation, cutShortBeforeTheRemoval_supersededThenCompleted)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    const Bytes old = certificates()[0].certificate.der();
    ASSERT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0);
    // As if the removal had stopped after the keys: the replaced certificate is on the card again.
    const auto completed = objectNames();
    onCard([&](cardlibs::token::Session& session) {
        softcard::addCertificate(session, "AUT0", *cardlibs::parseHexadecimal(descriptor[7]), old);
    });
    const ReadResult between = read();
    EXPECT_EQ(between.autCount, "1");
    EXPECT_NE(between.aut[0][serialField], descriptor[serialField]);
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    EXPECT_EQ(objectNames(), completed);
}

TEST_F(Installation, cutShortAfterTheWriting_oldOneSupersededThenRemoved)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const RequestResult made = request(Function::aut, descriptor);
    const std::string issued = issue(made.pem);
    // As if it had stopped right after the new certificate was written.
    onCard([&](cardlibs::token::Session& session) {
        const auto objects = cardlibs::contents::readObjects(session);
        for (const auto& key : objects.privateKeys)
            if (key.label == "AUT1") {
                const std::string der =
                    inForm(issued, {"x509", "-in", "IN", "-outform", "DER", "-out", "OUT"});
                softcard::addCertificate(session, key.label, key.id, Bytes(der.begin(), der.end()));
            }
    });
    EXPECT_EQ(workingPairs(), 2u);
    const ReadResult between = read();
    ASSERT_THAT(between.aut, SizeIs(1));
    EXPECT_NE(between.aut[0][serialField], descriptor[serialField]);
    EXPECT_EQ(between.pendingAut, 0);
    labels();
    EXPECT_NE(createRequest(Function::aut, "AUT5", cardPin, descriptor[ckaIdField],
                            descriptor[subjectField])
                  .result,
              0);
    EXPECT_EQ(lastError().number, static_cast<int>(fault::certificateNotOnCard));
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    EXPECT_THAT(objectNames(), SizeIs(3));
    EXPECT_EQ(workingPairs(), 1u);
}

TEST_F(Installation, requestRepeated_certificateOfEitherIsInstalled)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const std::string first = issue(request(Function::aut, descriptor).pem);
    const std::string second = issue(request(Function::aut, descriptor).pem);
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], first), 0) << lastError().text;
    EXPECT_EQ(workingPairs(), 1u);
    // The key has its certificate now; another one for it is not for a pending key.
    expectRefused([&] { return save(Function::aut, "", second); }, fault::issuedForOtherKey);
}

TEST_F(Installation, twoDueAtOnce_installedInEitherOrder)
{
    for (const bool reversed : {false, true}) {
        SCOPED_TRACE(reversed);
        folder().clear();
        folder().prepare();
        makeCard({"aut", "aut"});
        const ReadResult before = read();
        std::vector<std::string> issued;
        for (const auto& descriptor : before.aut)
            issued.push_back(issue(request(Function::aut, descriptor).pem));
        const std::vector<std::size_t> order =
            reversed ? std::vector<std::size_t>{1, 0} : std::vector<std::size_t>{0, 1};
        for (const std::size_t at : order) {
            expectRefused(
                [&] { return save(Function::aut, before.aut[1 - at][ckaIdField], issued[at]); },
                fault::replacesOther);
            EXPECT_EQ(save(Function::aut, before.aut[at][ckaIdField], issued[at]), 0)
                << lastError().text;
            EXPECT_EQ(workingPairs(), 2u);
        }
        EXPECT_THAT(objectNames(), SizeIs(6));
        for (const auto& descriptor : read().aut)
            EXPECT_GT(descriptor[notAfterField], before.aut[0][notAfterField]);
    }
}

TEST_F(Installation, recovery_emptyIdentifierInstallsForThePendingKey)
{
    makeCard({});
    for (const Function function : {Function::aut, Function::pra}) {
        addCertificate("aut", 0);
        const auto descriptor = read().aut.at(0);
        const std::string issued = issue(request(Function::aut, descriptor).pem);
        // The certificate to be replaced is gone by the time the new one comes.
        onCard([](cardlibs::token::Session& session) {
            const auto objects = cardlibs::contents::readObjects(session);
            session.destroy(objects.certificates.at(0).handle);
            for (const auto& key : objects.privateKeys)
                if (key.label == "AUT0")
                    session.destroy(key.handle);
            for (const auto& key : objects.publicKeys)
                if (key.label == "AUT0")
                    session.destroy(key.handle);
        });
        const ReadResult pending = read();
        EXPECT_EQ(pending.autCount, "0");
        EXPECT_NE(pending.pendingAut, 0);
        EXPECT_EQ(save(function, "", issued), 0) << lastError().text;
        EXPECT_EQ(workingPairs(), 1u);
        EXPECT_THAT(read().aut, SizeIs(1));
        onCard([](cardlibs::token::Session& session) {
            cardlibs::token::Template anything;
            for (const CK_OBJECT_HANDLE handle : session.find(anything))
                session.destroy(handle);
        });
    }
}

TEST_F(Installation, forms_pemDerPkcs7AndChainAreRead)
{
    const std::vector<std::vector<std::string>> forms = {
        {"x509", "-in", "IN", "-out", "OUT"},
        {"x509", "-in", "IN", "-text", "-out", "OUT"},
        {"x509", "-in", "IN", "-outform", "DER", "-out", "OUT"},
        {"crl2pkcs7", "-nocrl", "-certfile", "IN", "-certfile", "CA", "-out", "OUT"},
        {"crl2pkcs7", "-nocrl", "-certfile", "IN", "-outform", "DER", "-out", "OUT"},
    };
    makeCard({"aut"});
    for (const auto& form : forms) {
        SCOPED_TRACE(form[0] + " " + form.back() + std::to_string(form.size()));
        const auto descriptor = read().aut.at(0);
        const std::string pem = issue(request(Function::aut, descriptor).pem);
        const std::string formed = inForm(pem, form);
        EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], formed), 0) << lastError().text;
        EXPECT_EQ(workingPairs(), 1u);
        EXPECT_NE(read().aut.at(0)[serialField], descriptor[serialField]);
    }
    const auto descriptor = read().aut.at(0);
    const std::string chain = readText(folder().authority() / "certificate.pem") +
                              issue(request(Function::aut, descriptor).pem);
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], chain), 0) << lastError().text;
}

TEST_F(Installation, oldKeyMayDecrypt_pairStaysSuperseded)
{
    makeCard({});
    auto order = orderOf("aut", 0, KeyType::rsa2048);
    order.profile.keyUsage = "critical,digitalSignature,keyEncipherment";
    addCertificate(order);
    const auto descriptor = read().aut.at(0);
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    ASSERT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    EXPECT_EQ(workingPairs(), 2u);
    const ReadResult after = read();
    ASSERT_THAT(after.aut, SizeIs(1));
    EXPECT_NE(after.aut[0][serialField], descriptor[serialField]);
    const auto settled = objectNames();
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0);
    EXPECT_EQ(objectNames(), settled);
}

TEST_F(Installation, keyUsedByAnotherCertificate_staysOnTheCard)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    // A second certificate for the same key, as after a renewal that kept the key.
    onCard([&](cardlibs::token::Session& session) {
        const auto objects = cardlibs::contents::readObjects(session);
        const auto& key = objects.privateKeys.at(0);
        const auto order = orderOf("aut", 0);
        softcard::addCertificate(session, "altro", {9, 9},
                                 softcard::DemoAuthority::open(folder().authority())
                                     .certify(softcard::nameOf(order.subject).get(),
                                              cardlibs::x509::evpKey(*key.publicKey).get(),
                                              order.validity, order.profile));
    });
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    ASSERT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    EXPECT_EQ(workingPairs(), 2u);
    EXPECT_THAT(certificates(), SizeIs(2));
}

TEST_F(Installation, foreignObjects_untouched)
{
    makeCard({"aut"});
    auto ssh = orderOf("aut", 0);
    ssh.label = "ssh";
    ssh.id = {5, 5};
    addKey(ssh);
    auto otherPending = orderOf("aut", 9);
    otherPending.id = {6, 6};
    otherPending.subject = {{"2.5.4.3", "Un altro"}};
    addKey(otherPending);
    onCard([&](cardlibs::token::Session& session) {
        const std::string der = inForm(readText(folder().authority() / "certificate.pem"),
                                       {"x509", "-in", "IN", "-outform", "DER", "-out", "OUT"});
        softcard::addCertificate(session, "AUT0", {1}, Bytes(der.begin(), der.end()));
    });
    const auto isForeign = [](const std::string& name) {
        return name.find(" ssh ") != std::string::npos || name.find("AUT9") != std::string::npos ||
               name == "certificate AUT0 01";
    };
    std::vector<std::string> before;
    for (const std::string& name : objectNames())
        if (isForeign(name))
            before.push_back(name);
    ASSERT_THAT(before, SizeIs(5));
    const auto descriptor = read().aut.at(0);
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    ASSERT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    std::vector<std::string> after;
    for (const std::string& name : objectNames())
        if (isForeign(name))
            after.push_back(name);
    EXPECT_EQ(after, before);
}

// What others make of a card after a renewal.
TEST_F(Installation, outsideJudges_readTheCertificateAndSignWithItsKey)
{
    makeCard({"aut"}, KeyType::rsa2048);
    const auto descriptor = read().aut[0];
    const RequestResult made = request(Function::aut, descriptor);
    const std::string issued = issue(made.pem);
    ASSERT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    const std::string id = read().aut.at(0)[ckaIdField];

    const TemporaryFolder scratch;
    const auto file = [&](const char* name) { return (scratch.path() / name).string(); };
    writeText(file("request.pem"), made.pem);
    writeText(file("issued.pem"), issued);
    writeText(file("pin"), cardPin);
    EXPECT_EQ(runTool({"openssl", "req", "-in", file("request.pem"), "-noout", "-verify"}).exitCode,
              0);
    const ToolRun verified =
        runTool({"openssl", "verify", "-CAfile", folder().authority() / "certificate.pem",
                 file("issued.pem")});
    EXPECT_EQ(verified.exitCode, 0) << verified.output;

    setenv("TEST_PIN", cardPin, 1);
    const ToolRun fetched =
        runTool({"pkcs11-tool", "--module", softhsmModule(), "--read-object", "--type", "cert",
                 "--id", id, "--output-file", file("fetched.der")});
    EXPECT_EQ(fetched.exitCode, 0) << fetched.output;
    const std::string der = inForm(issued, {"x509", "-in", "IN", "-outform", "DER", "-out", "OUT"});
    EXPECT_EQ(readText(file("fetched.der")), der);

    writeText(file("data"), "da firmare");
    const ToolRun sealed =
        runTool({"pkcs11-tool", "--module", softhsmModule(), "--login", "--pin", "env:TEST_PIN",
                 "--sign", "--mechanism", "SHA256-RSA-PKCS", "--id", id, "--input-file",
                 file("data"), "--output-file", file("signature")});
    EXPECT_EQ(sealed.exitCode, 0) << sealed.output;
    ASSERT_EQ(runTool({"openssl", "x509", "-in", file("issued.pem"), "-noout", "-pubkey", "-out",
                       file("public.pem")})
                  .exitCode,
              0);
    const ToolRun checked = runTool({"openssl", "dgst", "-sha256", "-verify", file("public.pem"),
                                     "-signature", file("signature"), file("data")});
    EXPECT_EQ(checked.exitCode, 0) << checked.output;

    setenv("GNUTLS_PIN", cardPin, 1);
    const ToolRun listed = runTool({"p11tool", "--provider", softhsmModule(), "--batch",
                                    "--list-all", "--login", "pkcs11:token=Carta%20di%20prova"});
    EXPECT_EQ(listed.exitCode, 0) << listed.output;
    EXPECT_THAT(listed.output, HasSubstr("Label: AUT1"));
    EXPECT_EQ(listed.output.find("Label: AUT0"), std::string::npos);
    const ToolRun tried =
        runTool({"p11tool", "--provider", softhsmModule(), "--batch", "--login", "--test-sign",
                 "pkcs11:token=Carta%20di%20prova;object=AUT1;type=private"});
    EXPECT_EQ(tried.exitCode, 0) << tried.output;
    unsetenv("GNUTLS_PIN");
    unsetenv("TEST_PIN");
}

}  // namespace
}  // namespace cardlibs_test
