// One request and its answer over HTTP or HTTPS, by libcurl.
//
// The server of an https address is always verified, by the trust anchors of the settings alone
// when they name any, else by the system's. No redirect is followed: the certificate request and
// the login are for the server that was configured. Proxies are those of the environment
// (http_proxy, https_proxy, all_proxy, no_proxy) unless the settings name one. An answer with its
// headers is at most 1 MiB + 64 KiB.
//
// What did not come about is repeated once, after a pause, when repeating cannot do harm: a GET
// that got no whole answer, and a POST of which nothing had left this machine.

#ifndef TARVELOQT_HOSTS_ENROLMENT_HTTP_EXCHANGE_H
#define TARVELOQT_HOSTS_ENROLMENT_HTTP_EXCHANGE_H

#include "hosts/enrolment/configuration.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <chrono>
#include <optional>

namespace enrolment {

enum class HttpLogin { basic, digest };

// Whom to trust, who one is, and for how long to wait. Paths are absolute or empty.
struct HttpSettings {
    // PEM certificates; empty: the system's trust anchors.
    QString anchorsFile;
    // Empty: no login by name. The password's file must be its owner's alone.
    QString user;
    QString passwordFile;
    HttpLogin login = HttpLogin::basic;
    // PEM, for a TLS client; the chain may follow the certificate. The key's file must be its
    // owner's alone, as must that of the password that it is encrypted with.
    QString clientCertificateFile;
    QString clientKeyFile;
    QString clientKeyPasswordFile;
    // Its address empty: the environment's.
    HostProxy proxy;
    std::chrono::milliseconds connectTime = std::chrono::seconds(10);
    // For everything together: connections, repetition, the whole answer.
    std::chrono::milliseconds totalTime = std::chrono::seconds(60);
    std::chrono::milliseconds pauseBeforeRepeat = std::chrono::seconds(1);
};

// The keys of a configuration that httpSettingsOf() takes.
QStringList httpKeys();
// Throws EnrolmentError (misconfigured): a value that cannot be, or one without its counterpart.
HttpSettings httpSettingsOf(const Configuration& configuration);

// An address of the configuration. Throws EnrolmentError (misconfigured) unless it is an http or
// https URL with a host and without user, password, query and fragment.
QUrl httpAddress(const Configuration& configuration, const QString& text);

struct HttpRequest {
    enum class Method { get, post };

    Method method = Method::get;
    QUrl url;
    // Of a POST.
    QByteArray body;
    QByteArray contentType;
    // Empty: no such header.
    QByteArray contentTransferEncoding = {};
};

struct HttpAnswer {
    // 200 or more, and never that of a redirect.
    int status = 0;
    // Lower case, without parameters; empty when the server named none.
    QByteArray contentType;
    QByteArray body;
    // At most 30 days, whatever the server says.
    std::optional<std::chrono::seconds> retryAfter;
};

// Throws EnrolmentError: misconfigured (a file, a login over plain http), unreachable (no
// connection, no whole answer, too late), untrusted (the server's certificate), badAnswer (no HTTP,
// a redirect, too large). What a status means is the caller's business.
HttpAnswer exchange(const HttpRequest& request, const HttpSettings& settings);

}  // namespace enrolment

#endif
