// An authority that takes its time, and connections that end in the middle of a transaction: the
// later run goes on where the earlier one stood.

#include "cmp_fixture.h"
#include "expected_error.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gmock/gmock.h>

namespace trial {

using enrolment::Answer;
using enrolment::Configuration;
using enrolment::Deferred;
using ::testing::HasSubstr;

namespace {

class CmpWaiting : public Cmp, public ::testing::WithParamInterface<bool> {
protected:
    Configuration configuration() const { return GetParam() ? withSecret() : withSignature(); }

    // As a later process would: nothing is left but the state, and that went through a file.
    Answer resume(const QJsonObject& state) const
    {
        return enrol(configuration(),
                     QJsonDocument::fromJson(QJsonDocument(state).toJson()).object());
    }
    // The state of a request that waits at the authority; empty after a failed test.
    QJsonObject deferredState()
    {
        authority->letsWait = true;
        authority->checkAfterSeconds = 3600;
        const auto answer = enrol(configuration());
        const auto* deferred = std::get_if<Deferred>(&answer);
        EXPECT_NE(deferred, nullptr);
        return deferred == nullptr ? QJsonObject() : deferred->state;
    }
};

Reply cut(Reply reply)
{
    reply.cutAfter = 40;
    return reply;
}

}  // namespace

TEST_P(CmpWaiting, soonDecided_bringsTheCertificateInTheSameRun)
{
    authority->letsWait = true;
    serve([this](const Received& received, int number) {
        authority->letsWait = number < 4;
        return answerOfAuthority(received);
    });
    const auto answer = enrol(configuration());
    ASSERT_TRUE(isIssued(answer));
    EXPECT_EQ(authority->bodyTypes, (QVector<int>{pkcs10Message, pollMessage, pollMessage,
                                                  pollMessage, confirmationMessage}));
}

TEST_P(CmpWaiting, notDecided_isDeferredWithTheWishAndTheWords)
{
    serve();
    authority->letsWait = true;
    authority->checkAfterSeconds = 3600;
    const auto answer = enrol(configuration());
    const auto* deferred = std::get_if<Deferred>(&answer);
    ASSERT_NE(deferred, nullptr);
    EXPECT_EQ(deferred->retryAfter, std::chrono::hours(1));
    EXPECT_THAT(deferred->reason.toStdString(), HasSubstr("an officer decides"));
    EXPECT_EQ(authority->bodyTypes, (QVector<int>{pkcs10Message, pollMessage}));
}

TEST_P(CmpWaiting, decidedBetweenTheRuns_continuesTheTransaction)
{
    serve();
    const auto state = deferredState();
    authority->letsWait = false;
    const auto answer = resume(state);
    ASSERT_TRUE(isIssued(answer));
    EXPECT_EQ(authority->bodyTypes,
              (QVector<int>{pkcs10Message, pollMessage, pollMessage, confirmationMessage}));
    EXPECT_EQ(authority->issued, 1);
    EXPECT_EQ(authority->confirmed, 1);
}

TEST_P(CmpWaiting, manyRunsWithoutDecision_keepAStateOfTheSameSize)
{
    serve();
    auto state = deferredState();
    const auto kept = state.value(QStringLiteral("answers")).toArray().size();
    for (int run = 0; run < 3; ++run) {
        const auto answer = resume(state);
        ASSERT_TRUE(std::holds_alternative<Deferred>(answer));
        state = std::get<Deferred>(answer).state;
        EXPECT_EQ(state.value(QStringLiteral("answers")).toArray().size(), kept);
    }
    authority->letsWait = false;
    EXPECT_TRUE(isIssued(resume(state)));
    EXPECT_EQ(authority->bodyTypes.count(pkcs10Message), 1);
}

TEST_P(CmpWaiting, refusedBetweenTheRuns_isTheAuthoritysReason)
{
    serve();
    const auto state = deferredState();
    authority->letsWait = false;
    authority->rejection =
        Rejection{1 << OSSL_CMP_PKIFAILUREINFO_notAuthorized, "not our customer"};
    const auto failure = failureOf([&] { return resume(state); });
    EXPECT_EQ(failure.cause, "refused");
    EXPECT_THAT(failure.text, HasSubstr("not our customer"));
    EXPECT_EQ(authority->bodyTypes.count(pkcs10Message), 1);
}

TEST_P(CmpWaiting, transactionForgotten_sendsTheRequestAnewOnce)
{
    serve();
    const auto state = deferredState();
    restartAuthority(usualIdentity());
    const auto answer = resume(state);
    ASSERT_TRUE(isIssued(answer));
    EXPECT_EQ(authority->bodyTypes,
              (QVector<int>{pollMessage, pkcs10Message, confirmationMessage}));
}

TEST_P(CmpWaiting, pollCut_keepsTheState)
{
    serve([this](const Received& received, int number) {
        auto reply = answerOfAuthority(received);
        return number == 2 ? cut(reply) : reply;
    });
    authority->letsWait = true;
    const auto first = enrol(configuration());
    ASSERT_TRUE(std::holds_alternative<Deferred>(first));
    const auto& deferred = std::get<Deferred>(first);
    EXPECT_THAT(deferred.reason.toStdString(), HasSubstr("answer cannot be had yet"));
    EXPECT_FALSE(deferred.state.isEmpty());
}

TEST_P(CmpWaiting, confirmationUnanswered_isConfirmedByTheNextRun)
{
    // The connection ends before the authority gets the first confirmation.
    serve([this](const Received& received, int number) {
        return number == 2 ? cut(reply(200, {}, {})) : answerOfAuthority(received);
    });
    const auto first = enrol(configuration());
    ASSERT_TRUE(std::holds_alternative<Deferred>(first));
    const auto& deferred = std::get<Deferred>(first);
    EXPECT_THAT(deferred.reason.toStdString(), HasSubstr("confirmation"));
    EXPECT_EQ(authority->confirmed, 0);

    const auto second = resume(deferred.state);
    ASSERT_TRUE(isIssued(second));
    EXPECT_EQ(authority->bodyTypes, (QVector<int>{pkcs10Message, confirmationMessage}));
    EXPECT_EQ(authority->issued, 1);
    EXPECT_EQ(authority->confirmed, 1);
}

TEST_P(CmpWaiting, stateOfAnotherRequest_isNotUsed)
{
    serve();
    const auto state = deferredState();
    authority->letsWait = false;
    key = newKey();
    pkcs10 = requestPem(key.get());
    const auto answer = resume(state);
    ASSERT_TRUE(isIssued(answer));
    EXPECT_EQ(authority->bodyTypes.count(pkcs10Message), 2);
}

TEST_P(CmpWaiting, stateTamperedWith_isNotBelieved)
{
    serve();
    const auto state = deferredState();
    authority->letsWait = false;
    auto answers = state.value(QStringLiteral("answers")).toArray();
    auto bytes = QByteArray::fromBase64(answers.at(0).toString().toLatin1());
    bytes[bytes.size() - 1] = static_cast<char>(bytes.at(bytes.size() - 1) ^ 1);
    answers[0] = QString::fromLatin1(bytes.toBase64());
    auto changed = state;
    changed.insert(QStringLiteral("answers"), answers);
    ASSERT_TRUE(isIssued(resume(changed)));
    EXPECT_EQ(authority->bodyTypes,
              (QVector<int>{pkcs10Message, pollMessage, pkcs10Message, confirmationMessage}));
}

TEST_P(CmpWaiting, state_holdsNoSecret)
{
    serve();
    const auto bytes = QJsonDocument(deferredState()).toJson();
    QByteArray decoded;
    for (const auto& answer : QJsonDocument::fromJson(bytes)[QStringLiteral("answers")].toArray()) {
        decoded += QByteArray::fromBase64(answer.toString().toLatin1());
    }
    ASSERT_FALSE(decoded.isEmpty());
    EXPECT_FALSE((bytes + decoded).contains("horse"));
    EXPECT_FALSE((bytes + decoded).contains("PRIVATE KEY"));
}

INSTANTIATE_TEST_SUITE_P(Protections, CmpWaiting, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& tried) {
                             return tried.param ? "bySecret" : "bySignature";
                         });

}  // namespace trial
