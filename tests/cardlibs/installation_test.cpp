// Issued certificates installed on a SoftHSM2 token.

#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/installation_fixture.h"
#include "tests/cardlibs/outside_tools.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::SizeIs;

using cardlibs::Bytes;
using softcard::KeyType;
namespace fault = cardlibs::state::fault;

softcard::CertifiedKeyOrder orderOf(const std::string& kind, int number,
                                    KeyType keyType = KeyType::p256)
{
    return softcard::orderFor(softcard::findKind(kind), number, keyType, 30);
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

}  // namespace
}  // namespace cardlibs_test
