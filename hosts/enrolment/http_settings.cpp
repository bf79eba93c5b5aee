#include "hosts/enrolment/enrolment_error.h"
#include "hosts/enrolment/http_exchange.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

HttpLogin loginOf(const Configuration& configuration)
{
    const QString login = valueOf(configuration, QStringLiteral("login"));
    if (login.isEmpty() || login == QLatin1String("basic")) {
        return HttpLogin::basic;
    }
    if (login == QLatin1String("digest")) {
        return HttpLogin::digest;
    }
    failMisconfigured(configuration, Text("\"login\" è \"%1\" e può essere basic o digest.",
                                          R"("login" is "%1" and can be basic or digest.)")
                                         .arg(printable(login)));
}

// Two keys that mean something only together.
void requireBothOrNeither(const Configuration& configuration, const QString& one,
                          const QString& other)
{
    const bool hasOne = !valueOf(configuration, one).isEmpty();
    const bool hasOther = !valueOf(configuration, other).isEmpty();
    if (hasOne != hasOther) {
        failMisconfigured(configuration,
                          Text("C'è \"%1\" senza \"%2\".", R"(There is "%1" without "%2".)")
                              .arg(hasOne ? one : other, hasOne ? other : one));
    }
}

HostProxy proxyOf(const Configuration& configuration)
{
    const QString address = valueOf(configuration, QStringLiteral("proxy"));
    if (address.isEmpty()) {
        return configuration.hostProxy;
    }
    HostProxy proxy;
    proxy.address = QString::fromLatin1(httpAddress(configuration, address).toEncoded());
    proxy.user = valueOf(configuration, QStringLiteral("proxy-user"));
    if (!proxy.user.isEmpty()) {
        proxy.password = std::make_shared<const Secret>(
            passwordIn(pathOf(configuration, QStringLiteral("proxy-password-file"))));
    }
    return proxy;
}

}  // namespace

QStringList httpKeys()
{
    return {QStringLiteral("anchors"),
            QStringLiteral("user"),
            QStringLiteral("password-file"),
            QStringLiteral("login"),
            QStringLiteral("client-certificate"),
            QStringLiteral("client-key-file"),
            QStringLiteral("client-key-password-file"),
            QStringLiteral("proxy"),
            QStringLiteral("proxy-user"),
            QStringLiteral("proxy-password-file"),
            QStringLiteral("connect-time-limit"),
            QStringLiteral("time-limit")};
}

HttpSettings httpSettingsOf(const Configuration& configuration)
{
    requireBothOrNeither(configuration, QStringLiteral("user"), QStringLiteral("password-file"));
    requireBothOrNeither(configuration, QStringLiteral("client-certificate"),
                         QStringLiteral("client-key-file"));
    requireBothOrNeither(configuration, QStringLiteral("proxy-user"),
                         QStringLiteral("proxy-password-file"));
    if (!valueOf(configuration, QStringLiteral("proxy-user")).isEmpty()) {
        static_cast<void>(requiredValueOf(configuration, QStringLiteral("proxy")));
    }
    HttpSettings settings;
    settings.anchorsFile = pathOf(configuration, QStringLiteral("anchors"));
    settings.user = valueOf(configuration, QStringLiteral("user"));
    settings.passwordFile = pathOf(configuration, QStringLiteral("password-file"));
    settings.login = loginOf(configuration);
    settings.clientCertificateFile = pathOf(configuration, QStringLiteral("client-certificate"));
    settings.clientKeyFile = pathOf(configuration, QStringLiteral("client-key-file"));
    settings.clientKeyPasswordFile =
        pathOf(configuration, QStringLiteral("client-key-password-file"));
    settings.proxy = proxyOf(configuration);
    settings.connectTime =
        secondsOf(configuration, QStringLiteral("connect-time-limit"),
                  std::chrono::duration_cast<std::chrono::seconds>(settings.connectTime));
    settings.totalTime =
        secondsOf(configuration, QStringLiteral("time-limit"),
                  std::chrono::duration_cast<std::chrono::seconds>(settings.totalTime));
    return settings;
}

QUrl httpAddress(const Configuration& configuration, const QString& text)
{
    QUrl url(text, QUrl::StrictMode);
    const bool isHttp =
        url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    // A login in the address would end up in logs and messages.
    if (!url.isValid() || !isHttp || url.host().isEmpty() || !url.userInfo().isEmpty() ||
        url.hasQuery() || url.hasFragment()) {
        failMisconfigured(
            configuration,
            Text("L'indirizzo deve essere http:// o https:// con il nome del server, e senza "
                 "utente, password, ? e #.",
                 "The address must be http:// or https:// with the server's name, and without "
                 "user, password, ? and #."));
    }
    return url;
}

}  // namespace enrolment
