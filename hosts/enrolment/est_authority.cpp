#include "hosts/enrolment/est_authority.h"

#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/enrolment/est_demands.h"
#include "hosts/enrolment/http_exchange.h"
#include "hosts/enrolment/issued_check.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <algorithm>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

constexpr int ok = 200;
constexpr int accepted = 202;
constexpr int noContent = 204;
constexpr int badRequest = 400;
constexpr int unauthorised = 401;
constexpr int forbidden = 403;
constexpr int notFound = 404;
constexpr int tooManyRequests = 429;
constexpr int serverError = 500;

constexpr int longestReason = 300;

const char* const pkcs7Type = "application/pkcs7-mime";
const char* const attributesType = "application/csrattrs";

const char* const operations[] = {"cacerts", "simpleenroll", "simplereenroll",
                                  "fullcmc", "serverkeygen", "csrattrs"};

// What the server says in plain words; empty when it says nothing of the kind.
QString wordsOf(const HttpAnswer& answer)
{
    return answer.contentType == "text/plain"
               ? printable(QString::fromUtf8(answer.body).simplified().left(longestReason))
               : QString();
}

[[noreturn]] void failStatus(const QUrl& url, const HttpAnswer& answer)
{
    const QString words = wordsOf(answer);
    const QString said =
        Text("%1 risponde con lo stato HTTP %2.", "%1 answers with the HTTP status %2.")
            .arg(url.toString(), QString::number(answer.status)) +
        (words.isEmpty() ? QString()
                         : QLatin1Char(' ') + Text("Dice: %1", "It says: %1").arg(words));
    if (answer.status == unauthorised || answer.status == forbidden) {
        throw EnrolmentError(
            Cause::refused, said,
            Text("Controllare con l'autorità l'accesso: utente e password, o il certificato con "
                 "cui ci si presenta.",
                 "Check the login with the authority: user and password, or the certificate that "
                 "is shown."));
    }
    if (answer.status == notFound) {
        throw EnrolmentError(Cause::misconfigured, said,
                             Text("Controllare con l'autorità l'indirizzo e il profilo.",
                                  "Check address and profile with the authority."));
    }
    if (answer.status == tooManyRequests || answer.status >= serverError) {
        throw EnrolmentError(Cause::unreachable, said);
    }
    throw EnrolmentError(answer.status >= badRequest ? Cause::refused : Cause::badAnswer, said);
}

// The DER in an answer: base64, as RFC 8951 has it for every content of EST.
QByteArray derIn(const QUrl& url, const HttpAnswer& answer, const char* type)
{
    if (answer.contentType != type) {
        throw EnrolmentError(Cause::badAnswer,
                             Text(R"(%1 risponde con il tipo "%2" invece di "%3".)",
                                  R"(%1 answers with the type "%2" instead of "%3".)")
                                 .arg(url.toString(),
                                      printable(QString::fromLatin1(answer.contentType.left(100))),
                                      QString::fromLatin1(type)));
    }
    QByteArray base64 = answer.body;
    base64.replace('\n', "").replace('\r', "").replace(' ', "").replace('\t', "");
    const auto decoded =
        QByteArray::fromBase64Encoding(base64, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || base64.size() % 4 != 0) {
        throw EnrolmentError(Cause::badAnswer, Text("La risposta di %1 non è in base64.",
                                                    "The answer of %1 is not base64.")
                                                   .arg(url.toString()));
    }
    return *decoded;
}

std::vector<QByteArray> certificatesOf(const QUrl& url, const HttpAnswer& answer)
{
    std::vector<QByteArray> certificates = certificatesInPkcs7(derIn(url, answer, pkcs7Type));
    if (certificates.empty()) {
        throw EnrolmentError(Cause::badAnswer,
                             Text("La risposta di %1 non contiene certificati leggibili.",
                                  "The answer of %1 holds no certificate that can be read.")
                                 .arg(url.toString()));
    }
    return certificates;
}

QUrl baseAddress(const Configuration& configuration)
{
    QUrl url = httpAddress(configuration, requiredValueOf(configuration, QStringLiteral("url")));
    if (url.scheme() != QLatin1String("https")) {
        failMisconfigured(configuration, Text("EST vuole un indirizzo https://.",
                                              "EST needs an https:// address."));
    }
    QString path = url.path();
    while (path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    url.setPath(path.isEmpty() ? QStringLiteral("/.well-known/est") : path);
    return url;
}

// RFC 7030, section 3.2.2: one segment of a path, and not the name of an operation.
void requireLabel(const Configuration& configuration, const QString& label)
{
    const bool isOperation =
        std::any_of(std::begin(operations), std::end(operations),
                    [&](const char* name) { return label == QLatin1String(name); });
    if (isOperation || label.contains(QLatin1Char('/')) || label == QLatin1String(".") ||
        label == QLatin1String("..")) {
        failMisconfigured(configuration, Text("\"%1\" non può essere un profilo di EST.",
                                              "\"%1\" cannot be a profile of EST.")
                                             .arg(printable(label)));
    }
}

bool renewsByReenrolling(const Configuration& configuration)
{
    const QString value = valueOf(configuration, QStringLiteral("renew-by"));
    if (!value.isEmpty() && value != QLatin1String("reenroll") &&
        value != QLatin1String("enroll")) {
        failMisconfigured(configuration, Text("\"renew-by\" può essere reenroll o enroll.",
                                              "\"renew-by\" can be reenroll or enroll."));
    }
    return value != QLatin1String("enroll");
}

class EstAuthority : public Authority {
public:
    explicit EstAuthority(const Configuration& configuration)
        : m_configuration(configuration)
        , m_base(baseAddress(configuration))
        , m_settings(httpSettingsOf(configuration))
        , m_renewsByReenrolling(renewsByReenrolling(configuration))
        , m_anchors(issuerAnchorsOf(configuration))
    {
        for (auto entry = configuration.values.begin(); entry != configuration.values.end();
             ++entry) {
            if (entry.key().startsWith(QStringLiteral("profile"))) {
                requireLabel(configuration, entry.value());
            }
        }
    }

    QString name() const override { return QStringLiteral("est"); }

    Answer enrol(const Request& request) const override
    {
        const Owned<X509_REQ> pkcs10 = checkedRequest(request);
        const QString label = profileFor(m_configuration, request.policy);
        const std::vector<QByteArray> authorities = authorityCertificates(label);
        requireDemandsMet(label, pkcs10.get());
        return answerTo(request, pkcs10.get(), label, authorities);
    }

    void requirePolicy(const QString& policy) const override
    {
        static_cast<void>(profileFor(m_configuration, policy));
    }

    void probe() const override
    {
        static_cast<void>(authorityCertificates(profileFor(m_configuration, {})));
    }

private:
    QUrl address(const QString& label, const QString& operation) const
    {
        QUrl url = m_base;
        const QString middle = label.isEmpty() ? QString() : QLatin1Char('/') + label;
        url.setPath(m_base.path() + middle + QLatin1Char('/') + operation, QUrl::DecodedMode);
        return url;
    }

    HttpAnswer get(const QUrl& url) const
    {
        return exchange({HttpRequest::Method::get, url, {}, {}}, m_settings);
    }

    std::vector<QByteArray> authorityCertificates(const QString& label) const
    {
        const QUrl url = address(label, QStringLiteral("cacerts"));
        const HttpAnswer answer = get(url);
        if (answer.status != ok) {
            failStatus(url, answer);
        }
        return certificatesOf(url, answer);
    }

    void requireDemandsMet(const QString& label, X509_REQ* pkcs10) const
    {
        const QUrl url = address(label, QStringLiteral("csrattrs"));
        const HttpAnswer answer = get(url);
        // Servers without demands need not know the operation.
        if (answer.status == noContent || answer.status == notFound) {
            return;
        }
        if (answer.status != ok) {
            failStatus(url, answer);
        }
        const std::optional<QStringList> unmet =
            unmetDemands(derIn(url, answer, attributesType), pkcs10);
        if (!unmet) {
            throw EnrolmentError(Cause::badAnswer, Text("Le condizioni dell'autorità non sono "
                                                        "leggibili (%1).",
                                                        "The authority's demands cannot be "
                                                        "read (%1).")
                                                       .arg(url.toString()));
        }
        if (!unmet->isEmpty()) {
            throw EnrolmentError(
                Cause::unmetDemand,
                Text("L'autorità chiede quel che la richiesta non ha: %1. Non è stata inviata.",
                     "The authority demands what the request does not have: %1. It was not sent.")
                    .arg(unmet->join(QStringLiteral("; "))));
        }
    }

    Answer answerTo(const Request& request, X509_REQ* pkcs10, const QString& label,
                    const std::vector<QByteArray>& authorities) const
    {
        const bool isReenrolment = request.isRenewal && m_renewsByReenrolling;
        const QUrl url = address(label, isReenrolment ? QStringLiteral("simplereenroll")
                                                      : QStringLiteral("simpleenroll"));
        const HttpAnswer answer = exchange({HttpRequest::Method::post, url,
                                            derOf(pkcs10).toBase64(), "application/pkcs10",
                                            // RFC 8951 ignores it, older servers insist on it.
                                            "base64"},
                                           m_settings);
        if (answer.status == accepted) {
            return Deferred{{}, answer.retryAfter, reasonOf(answer)};
        }
        if (answer.status != ok) {
            failStatus(url, answer);
        }
        std::vector<QByteArray> certificates = certificatesOf(url, answer);
        // What lies between the new certificate and the anchors may be in either answer.
        for (const QByteArray& authority : authorities) {
            if (std::find(certificates.begin(), certificates.end(), authority) ==
                certificates.end()) {
                certificates.push_back(authority);
            }
        }
        return checkedIssue(request, certificates, m_anchors.empty() ? authorities : m_anchors);
    }

    static QString reasonOf(const HttpAnswer& answer)
    {
        const QString words = wordsOf(answer);
        return words.isEmpty() ? Text("L'autorità chiede di tornare più tardi.",
                                      "The authority asks to come back later.")
                                     .string()
                               : Text("L'autorità chiede di tornare più tardi: %1",
                                      "The authority asks to come back later: %1")
                                     .arg(words);
    }

    Configuration m_configuration;
    QUrl m_base;
    HttpSettings m_settings;
    bool m_renewsByReenrolling;
    std::vector<QByteArray> m_anchors;
};

}  // namespace

std::unique_ptr<Authority> estAuthority(const Configuration& configuration)
{
    requireKnownKeys(configuration,
                     httpKeys() << QStringLiteral("url") << QStringLiteral("renew-by")
                                << QStringLiteral("issuer-anchors"),
                     true);
    return std::make_unique<EstAuthority>(configuration);
}

}  // namespace enrolment
