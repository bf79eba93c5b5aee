// Issued certificates that must not get onto the card, and what is only just accepted.

#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/installation_fixture.h"

#include <algorithm>

namespace cardlibs_test {
namespace {

using cardlibs::Bytes;
using softcard::KeyType;
namespace fault = cardlibs::state::fault;

softcard::CertifiedKeyOrder orderOf(const std::string& kind, int number,
                                    KeyType keyType = KeyType::p256)
{
    return softcard::orderFor(softcard::findKind(kind), number, keyType, 30);
}

TEST_F(Installation, unreadable_refusedBeforeTheCardIsAsked)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    const std::string& id = descriptor[ckaIdField];
    const std::string broken[] = {
        "",
        "nessun certificato",
        issued.substr(0, issued.size() / 2),
        readText(folder().authority() / "key.pem"),
        std::string(70000, 'A'),
        "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n",
        issued + "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"};
    for (const std::string& text : broken) {
        SCOPED_TRACE(text.substr(0, 40));
        expectRefused([&] { return save(Function::aut, id, text); }, fault::issuedUnreadable);
    }
    expectRefused([&] { return save(Function::aut, "XY", issued); }, fault::invalidArgument);
}

TEST_F(Installation, certificateOfAnotherKey_refused)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const std::string& id = descriptor[ckaIdField];
    ASSERT_EQ(request(Function::aut, descriptor).result, 0);
    const TemporaryFolder scratch;
    ASSERT_EQ(runTool({"openssl", "req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout",
                       scratch.path() / "key.pem", "-out", scratch.path() / "req.pem", "-subj",
                       "/serialNumber=VLDNCL85M12F205X"})
                  .exitCode,
              0);
    const std::string foreign = issue(readText(scratch.path() / "req.pem"));
    expectRefused([&] { return save(Function::aut, id, foreign); }, fault::issuedForOtherKey);
}

TEST_F(Installation, wrongHolderOrTimeOrKind_refused)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const std::string& id = descriptor[ckaIdField];
    const RequestResult made = request(Function::aut, descriptor);
    const std::time_t now = std::time(nullptr);
    constexpr std::time_t hour = 3600;
    expectRefused(
        [&] {
            return save(Function::aut, id, issue(made.pem, {now - 48 * hour, now - hour}));
        },
        fault::issuedExpired);
    expectRefused(
        [&] {
            return save(Function::aut, id, issue(made.pem, {now + 25 * hour, now + 999 * hour}));
        },
        fault::issuedNotYetValid);
    const auto certifyAs = [&](const std::vector<softcard::SubjectAttribute>& subject,
                               const softcard::Profile& profile) {
        Bytes der;
        onCard([&](cardlibs::token::Session& session) {
            for (const auto& key : cardlibs::contents::readObjects(session).privateKeys)
                if (key.label == "AUT1")
                    der = softcard::DemoAuthority::open(folder().authority())
                              .certify(softcard::nameOf(subject).get(),
                                       cardlibs::x509::evpKey(*key.publicKey).get(),
                                       {now, now + 999 * hour}, profile);
        });
        return std::string(der.begin(), der.end());
    };
    const softcard::CertifiedKeyOrder order = orderOf("aut", 1);
    softcard::Holder somebody;
    somebody.fiscalCode = "RSSMRA70A01H501S";
    expectRefused(
        [&] {
            return save(Function::aut, id,
                        certifyAs(softcard::subjectOf(somebody, "", ""), order.profile));
        },
        fault::issuedForOtherHolder);
    expectRefused(
        [&] {
            return save(Function::aut, id,
                        certifyAs(order.subject, {"critical,nonRepudiation", "", ""}));
        },
        fault::issuedOfOtherKind);
    expectRefused([&] { return save(Function::pra, id, issue(made.pem)); },
                  fault::certificateOfOtherKind);
    // Authorities may choose another qualifier, order and string types.
    auto reordered = order.subject;
    std::reverse(reordered.begin(), reordered.end());
    for (auto& attribute : reordered) {
        if (attribute.type == "2.5.4.46")
            attribute.value = "altro";
        if (attribute.type == "2.5.4.5")
            attribute.stringType = V_ASN1_UTF8STRING;
    }
    EXPECT_EQ(save(Function::aut, id, certifyAs(reordered, order.profile)), 0) << lastError().text;
}

TEST_F(Installation, beginsWithinADay_accepted)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const RequestResult made = request(Function::aut, descriptor);
    const std::time_t now = std::time(nullptr);
    constexpr std::time_t hour = 3600;
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField],
                   issue(made.pem, {now + 23 * hour, now + 999 * hour})),
              0)
        << lastError().text;
}

TEST_F(Installation, tooLargeForTheTable_refused)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    writeTable("[software SoftHSM2]\nmodule = softhsm2\nmanufacturer = SoftHSM project\n"
               "model = SoftHSM v2\ncertificate_bytes = 300\n");
    expectRefused([&] { return save(Function::aut, descriptor[ckaIdField], issued); },
                  fault::issuedTooLarge);
}

TEST_F(Installation, wrongPin_refused)
{
    makeCard({"aut"});
    const auto descriptor = read().aut[0];
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    labels();
    expectRefused(
        [&] {
            return saveCertificate(Function::aut, wrongPin, descriptor[ckaIdField], "AUT1", issued);
        },
        CKR_PIN_INCORRECT);
}

}  // namespace
}  // namespace cardlibs_test
