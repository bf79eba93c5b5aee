#include "expected_error.h"
#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/enrolment/issued_check.h"
#include "tests/support/printing.h"
#include "trial_authority.h"

#include <gmock/gmock.h>

#include <functional>

using namespace enrolment;
using testing::HasSubstr;
using trial::failureOf;
using trial::Wish;

namespace {

constexpr long hour = 3600;

class IssuedCheck : public testing::Test {
protected:
    Request request() const { return {trial::requestPem(m_key.get()), {}, {}, true, {}}; }

    trial::Authority m_root{"Castelvane Root"};
    trial::Authority m_authority{"Castelvane Issuing", &m_root};
    trial::Authority m_stranger{"Another Root"};
    trial::Key m_key = trial::newKey();
    trial::Key m_otherKey = trial::newKey();
};

}  // namespace

TEST_F(IssuedCheck, chainInAnyOrder_isToldApart)
{
    const QByteArray own = m_authority.issueFor(request().pkcs10);
    const std::vector<QByteArray> orders[] = {{own, m_authority.der(), m_root.der()},
                                              {m_root.der(), own, m_authority.der()}};
    for (const std::vector<QByteArray>& certificates : orders) {
        const Issued issued = checkedIssue(request(), certificates, {m_root.der()});
        EXPECT_EQ(issued.certificate, own);
        EXPECT_THAT(issued.chain, testing::UnorderedElementsAre(m_authority.der(), m_root.der()));
    }
}

TEST_F(IssuedCheck, severalForTheKey_theOneValidLongestCounts)
{
    Wish wish;
    wish.endsInSeconds = 48 * hour;
    const QByteArray shorter = m_authority.issue(m_key.get(), wish);
    wish.endsInSeconds = 96 * hour;
    const QByteArray longer = m_authority.issue(m_key.get(), wish);
    EXPECT_EQ(checkedIssue(request(), {shorter, longer}, {}).certificate, longer);
    EXPECT_EQ(checkedIssue(request(), {longer, shorter}, {}).certificate, longer);
}

TEST_F(IssuedCheck, anchors_mayBeRootOrIssuer)
{
    const QByteArray own = m_authority.issueFor(request().pkcs10);
    EXPECT_EQ(checkedIssue(request(), {own}, {m_authority.der()}).certificate, own);
    EXPECT_EQ(checkedIssue(request(), {own, m_authority.der()}, {m_stranger.der(), m_root.der()})
                  .certificate,
              own);
}

TEST_F(IssuedCheck, dates_leaveADayForClocksThatDiffer)
{
    Wish wish;
    wish.beginsInSeconds = 23 * hour;
    const QByteArray early = m_authority.issue(m_key.get(), wish);
    EXPECT_EQ(checkedIssue(request(), {early}, {m_authority.der()}).certificate, early);
}

TEST_F(IssuedCheck, wrongCertificates_areRefusedWithTheReason)
{
    const auto wished = [&](const std::function<void(Wish&)>& change) {
        Wish wish;
        change(wish);
        return m_authority.issue(m_key.get(), wish);
    };
    const QByteArray good = m_authority.issueFor(request().pkcs10);
    QByteArray forged = good;
    forged[forged.size() - 1] = static_cast<char>(forged.at(forged.size() - 1) ^ 1);
    struct Row {
        std::vector<QByteArray> certificates;
        std::vector<QByteArray> anchors;
        const char* cause;
        const char* text;
    };
    const Row rows[] = {
        {{}, {}, "badAnswer", "no certificate that can be read"},
        {{good, "garbage"}, {}, "badAnswer", "a certificate that cannot be read"},
        {{m_authority.issue(m_otherKey.get())}, {}, "wrongCertificate", "another key"},
        {{m_authority.der()}, {}, "wrongCertificate", "made out to CN=Castelvane Issuing"},
        {{wished([](Wish& w) { w.subject[1].second = "TINIT-VRDBRN70A01H501Y"; })},
         {},
         "wrongCertificate",
         "another holder"},
        {{wished([](Wish& w) { w.subject.pop_back(); })}, {}, "wrongCertificate", "another holder"},
        {{wished([](Wish& w) {
             w.beginsInSeconds = -48 * hour;
             w.endsInSeconds = -hour;
         })},
         {},
         "wrongCertificate",
         "expired on"},
        {{wished([](Wish& w) { w.beginsInSeconds = 25 * hour; })},
         {},
         "wrongCertificate",
         "valid from"},
        {{wished([](Wish& w) { w.endsInSeconds = -48 * hour; })},
         {},
         "wrongCertificate",
         "impossible dates"},
        {{good}, {m_stranger.der()}, "wrongCertificate", "not from a trusted authority"},
        {{good}, {m_root.der()}, "wrongCertificate", "CN=Castelvane Issuing"},
        {{forged}, {m_authority.der()}, "wrongCertificate", "signature failure"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const auto failure =
            failureOf([&] { return checkedIssue(request(), row.certificates, row.anchors); });
        EXPECT_EQ(failure.cause, row.cause);
        EXPECT_THAT(failure.text, HasSubstr(row.text));
    }
}

TEST_F(IssuedCheck, requestWithoutHolderNumber_leavesTheHolderToTheCard)
{
    const Request anonymous{trial::requestPem(m_key.get(), {{"CN", "Ada"}}), {}, {}, true, {}};
    EXPECT_NO_THROW(checkedIssue(anonymous, {m_authority.issue(m_key.get())}, {}));
}

TEST_F(IssuedCheck, requestNotSignedByItsKey_isRefused)
{
    const QByteArray requests[] = {
        "no request", trial::requestPem(m_key.get(), trial::ada(), {}, m_otherKey.get())};
    for (const QByteArray& pem : requests) {
        const auto failure = failureOf([&] {
            return checkedIssue({pem, {}, {}, true, {}}, {m_authority.issue(m_key.get())}, {});
        });
        EXPECT_EQ(failure.cause, "misconfigured");
        EXPECT_THAT(failure.text, HasSubstr("not signed by its key"));
    }
}

TEST_F(IssuedCheck, bytesOfEveryForm_giveTheirCertificates)
{
    const QByteArray own = m_authority.issueFor(request().pkcs10);
    const std::vector<QByteArray> both{own, m_authority.der()};
    const QByteArray pems = trial::pemOf(own) + "text\n" + trial::pemOf(m_authority.der());
    struct Row {
        const char* form;
        QByteArray bytes;
        std::vector<QByteArray> certificates;
    };
    const Row rows[] = {
        {"PEM", trial::pemOf(own), {own}},
        {"PEM among other text", "Issuing...\n" + pems + "done\n", both},
        {"DER", own, {own}},
        {"PKCS#7 as DER", trial::pkcs7Of(both), both},
        {"PKCS#7 as PEM", trial::pkcs7PemOf(both), both},
        {"PKCS#7 without certificates", trial::pkcs7Of({}), {}},
        {"DER and more", own + "x", {}},
        {"PKCS#7 and more", trial::pkcs7Of(both) + "x", {}},
        {"half a DER", own.left(own.size() / 2), {}},
        {"request", request().pkcs10, {}},
        {"text", "no", {}},
        {"nothing", {}, {}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(certificatesIn(row.bytes), row.certificates) << row.form;
    }
}
