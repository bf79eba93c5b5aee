#include "hosts/enrolment/cmp_authority.h"

#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/enrolment/cmp_refusal.h"
#include "hosts/enrolment/cmp_settings.h"
#include "hosts/enrolment/cmp_transaction.h"
#include "hosts/enrolment/issued_check.h"
#include "hosts/texts/language.h"

#include <QCryptographicHash>

#include <openssl/err.h>

#include <algorithm>
#include <new>
#include <optional>
#include <thread>
#include <utility>

namespace enrolment {

using texts::Text;

namespace {

using Clock = CmpTransaction::Clock;
using std::chrono::seconds;

// Whether the certificate that came is the right one is found out before it is confirmed, while the
// authority can still be told that it is not.
class IssuedCheck {
public:
    IssuedCheck(const Request& request, const std::vector<QByteArray>& anchors)
        : m_request(request)
        , m_anchors(anchors)
    {
    }

    void attachTo(OSSL_CMP_CTX* context)
    {
        if (OSSL_CMP_CTX_set_certConf_cb(context, &IssuedCheck::onCertificate) != 1 ||
            OSSL_CMP_CTX_set_certConf_cb_arg(context, this) != 1) {
            throw std::bad_alloc();
        }
    }

    // Nothing unless a certificate came and was right.
    const std::optional<Issued>& issued() const { return m_issued; }
    // Nothing unless a certificate came and was wrong.
    std::exception_ptr failure() const { return m_failure; }

private:
    static int onCertificate(OSSL_CMP_CTX* context, X509* certificate, int failInfo,
                             const char** text)
    {
        auto& self = *static_cast<IssuedCheck*>(OSSL_CMP_CTX_get_certConf_cb_arg(context));
        try {
            self.m_issued =
                checkedIssue(self.m_request, candidates(context, certificate), self.m_anchors);
            return failInfo;
        } catch (...) {
            self.m_failure = std::current_exception();
            *text = "not the certificate that was asked for";
            return failInfo | (1 << OSSL_CMP_PKIFAILUREINFO_incorrectData);
        }
    }

    // The certificate and, as far as the answers had it, its chain. Not all that they had: the
    // signers of messages are no part of it.
    static std::vector<QByteArray> candidates(OSSL_CMP_CTX* context, X509* certificate)
    {
        const CmpHandle<STACK_OF(X509)> anchors(OSSL_CMP_CTX_get1_caPubs(context));
        const Owned<STACK_OF(X509)> pool(sk_X509_dup(OSSL_CMP_CTX_get0_untrusted(context)));
        if (!pool) {
            throw std::bad_alloc();
        }
        for (int index = 0; index < sk_X509_num(anchors.get()); ++index) {
            sk_X509_push(pool.get(), sk_X509_value(anchors.get(), index));
        }
        const CmpHandle<STACK_OF(X509)> chain(
            X509_build_chain(certificate, pool.get(), nullptr, 1, nullptr, nullptr));
        ERR_clear_error();
        std::vector<QByteArray> all{derOf(certificate)};
        for (int index = 1; index < sk_X509_num(chain.get()); ++index) {
            all.push_back(derOf(sk_X509_value(chain.get(), index)));
        }
        return all;
    }

    const Request& m_request;
    const std::vector<QByteArray>& m_anchors;
    std::optional<Issued> m_issued;
    std::exception_ptr m_failure;
};

Deferred waitingFor(const OSSL_CMP_CTX* context, QJsonObject state, int checkAfter)
{
    const QString words = statusTextOf(context);
    const Text plain("L'autorità ha ricevuto la richiesta e non ha ancora deciso.",
                     "The authority has received the request and not decided yet.");
    const Text withWords("L'autorità ha ricevuto la richiesta e non ha ancora deciso: %1.",
                         "The authority has received the request and not decided yet: %1.");
    return {std::move(state), seconds(checkAfter),
            words.isEmpty() ? plain.string() : withWords.arg(words)};
}

Deferred interruptedBy(const EnrolmentError& error, QJsonObject state, bool hasCertificate)
{
    const Text waiting(
        "L'autorità ha ricevuto la richiesta, ma la risposta non si può ancora avere. "
        "%1 %2",
        "The authority has received the request, but its answer cannot be had yet. "
        "%1 %2");
    const Text confirming(
        "L'autorità ha emesso il certificato, ma non ne ha ancora riconosciuto la "
        "conferma. %1 %2",
        "The authority has issued the certificate, but not acknowledged its "
        "confirmation yet. %1 %2");
    return {std::move(state), std::nullopt,
            (hasCertificate ? confirming : waiting).arg(error.text(), error.cure())};
}

class CmpAuthority : public Authority {
public:
    explicit CmpAuthority(const Configuration& configuration)
        : m_configuration(configuration)
        , m_settings(cmpSettingsOf(configuration))
    {
    }

    QString name() const override { return QStringLiteral("cmp"); }
    Answer enrol(const Request& request) const override;
    void requirePolicy(const QString& policy) const override
    {
        static_cast<void>(profileFor(m_configuration, policy));
    }
    void probe() const override;

private:
    // What one attempt needs beside the settings.
    struct Task {
        const Request& request;
        X509_REQ* pkcs10;
        std::vector<QByteArray> anchors;
        QUrl url;
        QString certProfile;
        // Of the request and the place that it goes to.
        QByteArray subject;
        Clock::time_point end;
    };

    // Nothing when the past could not be taken up: the authority knows nothing of it any more, or
    // what was kept does not hold.
    std::optional<Answer> attempt(const Task& task, const CmpProgress& past) const;

    Configuration m_configuration;
    CmpSettings m_settings;
};

Answer CmpAuthority::enrol(const Request& request) const
{
    const Clock::time_point end = Clock::now() + m_settings.http.totalTime;
    const QString profile = profileFor(m_configuration, request.policy);
    const Owned<X509_REQ> pkcs10 = checkedRequest(request);
    Task task{request, pkcs10.get(), issuerAnchorsOf(m_configuration), m_settings.url, {}, {}, end};
    if (profile.startsWith(QLatin1Char('/'))) {
        task.url.setPath(profile);
    } else {
        task.certProfile = profile;
    }
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(derOf(pkcs10.get()));
    hash.addData(task.url.toEncoded() + '\n' + profile.toUtf8());
    task.subject = hash.result();

    const CmpProgress past = progressFrom(request.state, task.subject);
    if (!past.isEmpty()) {
        if (auto answer = attempt(task, past)) {
            return std::move(*answer);
        }
    }
    return std::move(attempt(task, {}).value());
}

EnrolmentError errorOf(const OSSL_CMP_CTX* context, const CmpTransaction& transaction)
{
    if (transaction.failure()) {
        ERR_clear_error();
        try {
            std::rethrow_exception(transaction.failure());
        } catch (const EnrolmentError& error) {
            return error;
        }
    }
    return cmpError(context, transaction.errorProof());
}

std::optional<Answer> CmpAuthority::attempt(const Task& task, const CmpProgress& past) const
{
    ERR_clear_error();
    const auto context = cmpContext(m_settings);
    if (OSSL_CMP_CTX_set1_p10CSR(context.get(), task.pkcs10) != 1) {
        throw std::bad_alloc();
    }
    if (!task.certProfile.isEmpty()) {
        addCertProfile(context.get(), task.certProfile);
    }
    CmpTransaction transaction(context.get(), task.url, m_settings.http, task.end, past);
    IssuedCheck check(task.request, task.anchors);
    check.attachTo(context.get());

    int result = -1;
    while (result == -1) {
        int checkAfter = 0;
        // Each call makes one poll. After the first poll of a run the library numbers the request
        // -1, as RFC 9480 does for p10cr, whatever number an older authority gave it.
        result = OSSL_CMP_try_certreq(context.get(), OSSL_CMP_P10CR, nullptr, &checkAfter);
        if (result == -1) {
            transaction.lastAnswerWasTaken();
            // What a kept answer wished for was said in an earlier run.
            if (transaction.sent() == 0) {
                continue;
            }
            const auto pause = std::max(seconds(1), seconds(checkAfter));
            if (Clock::now() + pause >= task.end) {
                return waitingFor(context.get(), stateOf(transaction.progress(), task.subject),
                                  checkAfter);
            }
            std::this_thread::sleep_for(pause);
        }
    }
    if (check.failure()) {
        ERR_clear_error();
        std::rethrow_exception(check.failure());
    }
    if (result == 1 && check.issued()) {
        return check.issued().value();
    }

    const EnrolmentError error = errorOf(context.get(), transaction);
    const bool isResumed = !past.isEmpty();
    // Also when the error message proves nothing: an authority that has forgotten the transaction
    // may not know either how to protect what it says about it. A stranger who sends such a message
    // brings about no more than the same request once again.
    const bool isForgotten =
        transaction.errorProof() != ErrorProof::none && transaction.sent() == 1;
    if (isResumed && (transaction.sent() == 0 || isForgotten)) {
        return std::nullopt;
    }
    const bool isVerdict = error.cause() == Cause::refused && !transaction.failure();
    if (isVerdict || transaction.progress().isEmpty()) {
        throw EnrolmentError(error);
    }
    return interruptedBy(error, stateOf(transaction.progress(), task.subject),
                         check.issued().has_value());
}

void CmpAuthority::probe() const
{
    ERR_clear_error();
    const auto context = cmpContext(m_settings);
    CmpTransaction transaction(context.get(), m_settings.url, m_settings.http,
                               Clock::now() + m_settings.http.totalTime, {});
    const CmpHandle<STACK_OF(OSSL_CMP_ITAV)> items(OSSL_CMP_exec_GENM_ses(context.get()));
    // An authority without answers to general messages says so, and that proves who it is.
    if (!items && transaction.errorProof() != ErrorProof::proven) {
        throw errorOf(context.get(), transaction);
    }
    ERR_clear_error();
}

}  // namespace

std::unique_ptr<Authority> cmpAuthority(const Configuration& configuration)
{
    return std::make_unique<CmpAuthority>(configuration);
}

}  // namespace enrolment
