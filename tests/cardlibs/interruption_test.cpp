// Every PKCS#11 call of a request and of an installation made to fail in turn, on cards in every
// state that a renewal meets.

#include "cardlibs/x509/name.h"
#include "tests/cardlibs/foreign_objects.h"
#include "tests/cardlibs/proxy_fixture.h"
#include "tests/cardlibs/run_counts.h"
#include "tests/cardlibs/token_look.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <tuple>

namespace cardlibs_test {
namespace {

using ::testing::IsEmpty;

using cardlibs::Bytes;
using softcard::KeyType;

enum class Situation {
    plain,
    // A request was made before.
    pendingPair,
    // A certificate of the same kind is under renewal, too.
    otherPendingPair,
    // The old key may still be needed to decrypt.
    oldKeyDecrypts,
    // The certificate is installed without naming the one to replace.
    nothingNamed,
    // The same, and that one has left the card.
    replacedOneGone,
    identifiersOfTheToken,
    // The same, and the request's subject is not quite that of the certificate.
    organisationReplaced,
    pinForEachSignature,
};

struct Row {
    const char* kind;
    KeyType keyType;
    Situation situation;
};

const char* situationName(Situation situation)
{
    switch (situation) {
    case Situation::pendingPair:
        return "pendingPair";
    case Situation::otherPendingPair:
        return "otherPendingPair";
    case Situation::oldKeyDecrypts:
        return "oldKeyDecrypts";
    case Situation::nothingNamed:
        return "nothingNamed";
    case Situation::replacedOneGone:
        return "replacedOneGone";
    case Situation::identifiersOfTheToken:
        return "identifiersOfTheToken";
    case Situation::organisationReplaced:
        return "organisationReplaced";
    case Situation::pinForEachSignature:
        return "pinForEachSignature";
    case Situation::plain:
        break;
    }
    return "plain";
}

const char* faultName(Fault fault)
{
    switch (fault) {
    case Fault::afterwards:
        return "answerLost";
    case Fault::fromHereOn:
        return "cardGone";
    case Fault::pulledAndBack:
        return "cardPulledAndBack";
    case Fault::instead:
        break;
    }
    return "notMade";
}

using Case = std::tuple<Row, Fault>;

std::string caseName(const ::testing::TestParamInfo<Case>& info)
{
    const auto& [row, fault] = info.param;
    std::string kind = row.kind;
    kind.erase(std::remove(kind.begin(), kind.end(), '-'), kind.end());
    return kind + "_" + keyTypeName(row.keyType) + "_" + situationName(row.situation) + "_" +
           faultName(fault);
}

class Interruption : public ProxyFixture, public ::testing::WithParamInterface<Case> {
protected:
    const Row& row() const { return std::get<Row>(GetParam()); }
    bool is(Situation situation) const { return row().situation == situation; }

    softcard::CertifiedKeyOrder order(int number) const
    {
        auto wanted = softcard::orderFor(softcard::findKind(row().kind), number, row().keyType, 30);
        if (is(Situation::oldKeyDecrypts))
            wanted.profile.keyUsage +=
                row().keyType == KeyType::p256 ? ",keyAgreement" : ",keyEncipherment";
        return wanted;
    }

    // A card with foreign objects, another certificate, and the one that is due.
    void prepare()
    {
        makeCard({});
        onCard([&](cardlibs::token::Session& session) {
            addForeignObjects(session, folder().authority());
        });
        m_bystander = addCertificate(functionFor(row().kind) == Function::pra ? "aut" : "pra", 7);
        proxy().choosesIdentifiers =
            is(Situation::identifiersOfTheToken) || is(Situation::organisationReplaced);
        proxy().wantsPinEachTime = is(Situation::pinForEachSignature);
        if (is(Situation::otherPendingPair)) {
            const Bytes other = addCertificate(order(3));
            ASSERT_EQ(requestFor(row().kind, descriptorOf(read(), other)).result, 0);
        }
        const ObjectFiles before = objectFiles(folder().tokens());
        m_due = addCertificate(order(0));
        m_dueFiles = without(objectFiles(folder().tokens()), before);
        m_descriptor = descriptorOf(read(), m_due);
        if (is(Situation::organisationReplaced))
            m_descriptor[subjectField] =
                cardlibs::x509::withReplacedOrganisation(m_descriptor[subjectField]);
        m_reader = reader();
        if (is(Situation::pendingPair)) {
            ASSERT_EQ(request(), 0) << lastError().text;
        }
    }

    int request()
    {
        const LabelResult labels = findFreeLabels(m_reader, cardPin);
        if (labels.result != 0)
            return labels.result;
        const Function function = functionFor(row().kind);
        const RequestResult made =
            createRequest(function,
                          isCnsKind(row().kind)       ? "CNS0"
                          : function == Function::pra ? labels.pra
                                                      : labels.aut,
                          cardPin, m_descriptor[ckaIdField], m_descriptor[subjectField]);
        m_request = made.pem;
        return made.result;
    }

    int install()
    {
        const LabelResult labels = findFreeLabels(m_reader, cardPin);
        if (labels.result != 0)
            return labels.result;
        const bool namesNone = is(Situation::nothingNamed) || is(Situation::replacedOneGone);
        return saveCertificate(functionFor(row().kind), cardPin,
                               namesNone ? "" : m_descriptor[ckaIdField], labels.aut, m_issued);
    }

    void issueForRequest()
    {
        ASSERT_EQ(request(), 0) << lastError().text;
        m_issued = issue(m_request);
        m_new = certificateBytes(m_issued);
        if (is(Situation::replacedOneGone))
            for (const CK_OBJECT_CLASS objectClass :
                 {CKO_PRIVATE_KEY, CKO_PUBLIC_KEY, CKO_CERTIFICATE})
                removeDue(objectClass);
    }

    void removeDue(CK_OBJECT_CLASS objectClass)
    {
        onCard([&](cardlibs::token::Session& session) {
            cardlibs::token::Template sought;
            sought.number(CKA_CLASS, objectClass)
                .bytes(CKA_ID, *cardlibs::parseHexadecimal(m_descriptor[ckaIdField]));
            const auto found = session.find(sought);
            ASSERT_EQ(found.size(), 1u);
            session.destroy(found[0]);
        });
    }

    // As after the card was put in and looked through by the host.
    void startOver()
    {
        restoreCard();
        ASSERT_EQ(read().result, 0) << lastError().text;
        proxy().calls.clear();
        proxy().failuresPlayed = 0;
    }

    // Runs the operation once for each of its calls with that call failing. After each, the card is
    // looked at; then the operation is repeated without a failure, and the card looked at again.
    template <typename Operation, typename Look, typename FinalLook>
    void failEachCall(const char* name, Operation&& operation, Look&& look, FinalLook&& finalLook)
    {
        keepCard();
        startOver();
        ASSERT_EQ(operation(), 0) << lastError().text;
        const std::vector<std::string> calls = proxy().calls;
        ASSERT_GT(calls.size(), 30u);
        const Fault fault = std::get<Fault>(GetParam());
        const bool isCardGone = fault == Fault::fromHereOn || fault == Fault::pulledAndBack;
        std::size_t failuresSeen = 0;
        for (std::size_t call = 1; call <= calls.size(); ++call) {
            SCOPED_TRACE("call " + std::to_string(call) + " (" + calls[call - 1] + ")");
            startOver();
            proxy().fault = fault;
            proxy().failure = isCardGone ? CKR_DEVICE_REMOVED : CKR_DEVICE_ERROR;
            proxy().failingCall = call;
            const int result = operation();
            EXPECT_GT(proxy().failuresPlayed, 0u);
            if (result != 0) {
                ++failuresSeen;
                EXPECT_EQ(lastError().result, 0);
            }
            proxy().failingCall = 0;
            look(lookAtToken(cardPin));
            EXPECT_EQ(operation(), 0) << lastError().text;
            finalLook(lookAtToken(cardPin));
            if (HasFailure())
                return;
        }
        // Closing may fail without harm, and looking for the card is done twice.
        EXPECT_GT(failuresSeen, calls.size() / 2);
        countDisturbedCalls(name, faultName(fault), calls.size());
    }

    void expectOthersUntouched(const ObjectFiles& others, const TokenLook& token) const
    {
        EXPECT_THAT(changedFiles(others, objectFiles(folder().tokens())), IsEmpty());
        EXPECT_TRUE(token.works(m_bystander));
    }

    std::string m_reader;
    Bytes m_bystander;
    Bytes m_due;
    ObjectFiles m_dueFiles;
    std::vector<std::string> m_descriptor;
    std::string m_request;
    std::string m_issued;
    Bytes m_new;
};

class InterruptedRequest : public Interruption {};
class InterruptedInstallation : public Interruption {};

TEST_P(InterruptedRequest, anyCall_oldPairWorksOthersUntouchedAndRepeatable)
{
    ASSERT_NO_FATAL_FAILURE(prepare());
    const ObjectFiles before = objectFiles(folder().tokens());
    const std::size_t atTheEnd = before.size() + (is(Situation::pendingPair) ? 0 : 2);
    const auto look = [&](const TokenLook& token) {
        EXPECT_TRUE(token.works(m_due));
        expectOthersUntouched(before, token);
    };
    ASSERT_NO_FATAL_FAILURE(failEachCall(
        "request", [&] { return request(); }, look,
        [&](const TokenLook& token) {
            look(token);
            EXPECT_EQ(token.objects, atTheEnd);
        }));
    // What the last repetition handed out leads to a certificate.
    ASSERT_NO_FATAL_FAILURE(issueForRequest());
    EXPECT_EQ(install(), 0) << lastError().text;
    EXPECT_TRUE(lookAtToken(cardPin).works(m_new));
}

TEST_P(InterruptedInstallation, anyCall_neverNeitherOthersUntouchedAndRepeatable)
{
    ASSERT_NO_FATAL_FAILURE(prepare());
    ASSERT_NO_FATAL_FAILURE(issueForRequest());
    const bool oldOneStays = is(Situation::oldKeyDecrypts);
    const bool oldOneIsThere = !is(Situation::replacedOneGone);
    const ObjectFiles before = objectFiles(folder().tokens());
    // The new key is among them.
    const ObjectFiles others = oldOneStays ? before : without(before, m_dueFiles);
    const std::size_t atTheEnd = others.size() + 1;
    ASSERT_NO_FATAL_FAILURE(failEachCall(
        "installation", [&] { return install(); },
        [&](const TokenLook& token) {
            if (oldOneIsThere) {
                EXPECT_TRUE(token.works(m_due) || token.works(m_new));
            }
            expectOthersUntouched(others, token);
        },
        [&](const TokenLook& token) {
            EXPECT_TRUE(token.works(m_new));
            EXPECT_EQ(token.works(m_due), oldOneStays);
            EXPECT_EQ(token.holds(m_due), oldOneStays);
            EXPECT_EQ(token.objects, atTheEnd);
            expectOthersUntouched(others, token);
        }));
}

const Row ecKinds[] = {
    {"aut", KeyType::p256, Situation::plain},      {"pra", KeyType::p256, Situation::plain},
    {"role", KeyType::p256, Situation::plain},     {"cns", KeyType::p256, Situation::plain},
    {"cns-like", KeyType::p256, Situation::plain},
};

const Row rsaInstallations[] = {
    {"aut", KeyType::rsa2048, Situation::plain},
    {"pra", KeyType::rsa2048, Situation::plain},
    {"role", KeyType::rsa2048, Situation::plain},
    {"cns", KeyType::rsa2048, Situation::plain},
    {"cns-like", KeyType::rsa2048, Situation::plain},
    {"aut", KeyType::rsa2048, Situation::oldKeyDecrypts},
};

// States in which both operations run.
const Row everyState[] = {
    {"aut", KeyType::p256, Situation::otherPendingPair},
    {"role", KeyType::p256, Situation::otherPendingPair},
    {"aut", KeyType::p256, Situation::oldKeyDecrypts},
    {"aut", KeyType::p256, Situation::identifiersOfTheToken},
    {"cns", KeyType::p256, Situation::identifiersOfTheToken},
    {"role", KeyType::p256, Situation::organisationReplaced},
    {"pra", KeyType::p256, Situation::pinForEachSignature},
};

// Most runs make RSA keys, which takes its time, and does not differ from kind to kind.
const Row rsaRequests[] = {{"aut", KeyType::rsa2048, Situation::oldKeyDecrypts}};

const Row repeatedRequests[] = {
    {"aut", KeyType::p256, Situation::pendingPair},
    {"pra", KeyType::rsa2048, Situation::pendingPair},
    {"cns", KeyType::p256, Situation::pendingPair},
};

const Row recoveries[] = {
    {"aut", KeyType::p256, Situation::nothingNamed},
    {"pra", KeyType::rsa2048, Situation::nothingNamed},
    {"cns", KeyType::p256, Situation::nothingNamed},
    {"aut", KeyType::p256, Situation::replacedOneGone},
    {"role", KeyType::p256, Situation::replacedOneGone},
    {"cns", KeyType::rsa2048, Situation::replacedOneGone},
};

template <std::size_t size>
auto withFaults(const Row (&rows)[size], const std::vector<Fault>& faults)
{
    return ::testing::Combine(::testing::ValuesIn(rows), ::testing::ValuesIn(faults));
}

template <std::size_t size>
auto withAllFaults(const Row (&rows)[size])
{
    return withFaults(rows,
                      {Fault::instead, Fault::afterwards, Fault::fromHereOn, Fault::pulledAndBack});
}

INSTANTIATE_TEST_SUITE_P(EcKinds, InterruptedRequest, withAllFaults(ecKinds), caseName);
INSTANTIATE_TEST_SUITE_P(Rsa, InterruptedRequest,
                         withFaults(rsaRequests, {Fault::instead, Fault::afterwards}), caseName);
INSTANTIATE_TEST_SUITE_P(States, InterruptedRequest, withAllFaults(everyState), caseName);
INSTANTIATE_TEST_SUITE_P(Repeated, InterruptedRequest, withAllFaults(repeatedRequests), caseName);
INSTANTIATE_TEST_SUITE_P(EcKinds, InterruptedInstallation, withAllFaults(ecKinds), caseName);
INSTANTIATE_TEST_SUITE_P(RsaKinds, InterruptedInstallation, withAllFaults(rsaInstallations),
                         caseName);
INSTANTIATE_TEST_SUITE_P(States, InterruptedInstallation, withAllFaults(everyState), caseName);
INSTANTIATE_TEST_SUITE_P(Recoveries, InterruptedInstallation, withAllFaults(recoveries), caseName);

}  // namespace
}  // namespace cardlibs_test
