#include "hosts/enrolment/issued_check.h"

#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/enrolment/configured_file.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <ctime>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

// The card libraries allow the same.
constexpr qint64 longestHeadStartSeconds = 86400;

[[noreturn]] void failWrong(const QString& sentence, const QString& cure = {})
{
    throw EnrolmentError(Cause::wrongCertificate, sentence, cure);
}

QDateTime timeOf(const ASN1_TIME* time)
{
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) {
        ERR_clear_error();
        return {};
    }
    return {QDate(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday),
            QTime(parts.tm_hour, parts.tm_min, parts.tm_sec), Qt::UTC};
}

QDateTime endOf(const Owned<X509>& certificate)
{
    return timeOf(X509_get0_notAfter(certificate.get()));
}

// The first serialNumber attribute; empty without one.
QByteArray holderNumber(const X509_NAME* name)
{
    const int index = X509_NAME_get_index_by_NID(name, NID_serialNumber, -1);
    if (index < 0) {
        return {};
    }
    unsigned char* utf8 = nullptr;
    const int size =
        ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
    ERR_clear_error();
    if (size < 0) {
        return {};
    }
    QByteArray number(reinterpret_cast<const char*>(utf8), size);
    OPENSSL_free(utf8);
    return number;
}

void checkHolder(X509_REQ* request, X509* certificate)
{
    const QByteArray asked = holderNumber(X509_REQ_get_subject_name(request));
    if (!asked.isEmpty() && asked != holderNumber(X509_get_subject_name(certificate))) {
        failWrong(Text("Il certificato ricevuto è intestato a un altro titolare: %1.",
                       "The certificate that came is made out to another holder: %1.")
                      .arg(nameText(X509_get_subject_name(certificate))));
    }
}

void checkDates(const Owned<X509>& certificate, const QDateTime& now)
{
    const QDateTime begin = timeOf(X509_get0_notBefore(certificate.get()));
    const QDateTime end = endOf(certificate);
    const Text clock(
        "Controllare data e ora del computer; se sono giuste, segnalarlo all'autorità.",
        "Check the computer's date and time; if they are right, report it to the "
        "authority.");
    if (!begin.isValid() || !end.isValid() || end < begin) {
        failWrong(Text("Il certificato ricevuto ha date di validità impossibili.",
                       "The certificate that came has impossible dates of validity."));
    }
    if (end < now) {
        failWrong(Text("Il certificato ricevuto è scaduto il %1.",
                       "The certificate that came expired on %1.")
                      .arg(end.date().toString(Qt::ISODate)),
                  clock);
    }
    if (begin > now.addSecs(longestHeadStartSeconds)) {
        failWrong(Text("Il certificato ricevuto vale solo dal %1.",
                       "The certificate that came is valid from %1 only.")
                      .arg(begin.date().toString(Qt::ISODate)),
                  clock);
    }
}

std::vector<Owned<X509>> readAll(const std::vector<QByteArray>& certificates)
{
    std::vector<Owned<X509>> result;
    for (const QByteArray& der : certificates) {
        Owned<X509> certificate = certificateFrom(der);
        if (certificate == nullptr) {
            throw EnrolmentError(Cause::badAnswer,
                                 Text("La risposta contiene un certificato illeggibile.",
                                      "The answer holds a certificate that cannot be read."));
        }
        result.push_back(std::move(certificate));
    }
    return result;
}

template <typename Made>
Made notNull(Made made)
{
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

void checkIssuer(const Owned<X509>& certificate, const std::vector<Owned<X509>>& others,
                 const std::vector<Owned<X509>>& anchors, const QDateTime& now)
{
    const auto store = notNull(Owned<X509_STORE>(X509_STORE_new()));
    for (const Owned<X509>& anchor : anchors) {
        if (X509_STORE_add_cert(store.get(), anchor.get()) != 1) {
            throw std::bad_alloc();
        }
    }
    const auto untrusted = notNull(Owned<STACK_OF(X509)>(sk_X509_new_null()));
    for (const Owned<X509>& other : others) {
        if (sk_X509_push(untrusted.get(), other.get()) == 0) {
            throw std::bad_alloc();
        }
    }
    const auto context = notNull(Owned<X509_STORE_CTX>(X509_STORE_CTX_new()));
    if (X509_STORE_CTX_init(context.get(), store.get(), certificate.get(), untrusted.get()) != 1) {
        throw std::bad_alloc();
    }
    // Clocks differ: checkDates allows a certificate that begins a little later.
    const QDateTime time = std::max(now, timeOf(X509_get0_notBefore(certificate.get())));
    X509_STORE_CTX_set_time(context.get(), 0, static_cast<time_t>(time.toSecsSinceEpoch()));
    X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_PARTIAL_CHAIN);
    const bool isIssued = X509_verify_cert(context.get()) == 1;
    ERR_clear_error();
    if (!isIssued) {
        const int error = X509_STORE_CTX_get_error(context.get());
        failWrong(Text("Il certificato ricevuto non viene da un'autorità di fiducia: %1 (%2).",
                       "The certificate that came is not from a trusted authority: %1 (%2).")
                      .arg(nameText(X509_get_issuer_name(certificate.get())),
                           QString::fromLatin1(X509_verify_cert_error_string(error))));
    }
}

// The index of the certificate with the key that is valid longest.
std::size_t indexForKey(const std::vector<Owned<X509>>& certificates, const QByteArray& key)
{
    std::size_t best = certificates.size();
    for (std::size_t i = 0; i < certificates.size(); ++i) {
        const bool fits = derOf(X509_get_X509_PUBKEY(certificates[i].get())) == key;
        if (fits &&
            (best == certificates.size() || endOf(certificates[best]) < endOf(certificates[i]))) {
            best = i;
        }
    }
    return best;
}

}  // namespace

Owned<X509_REQ> checkedRequest(const Request& request)
{
    Owned<X509_REQ> pkcs10 = requestFrom(request.pkcs10);
    if (pkcs10 == nullptr) {
        throw EnrolmentError(
            Cause::misconfigured,
            Text("La richiesta non è leggibile o non è firmata dalla sua chiave.",
                 "The request cannot be read or is not signed by its key."),
            Text("Fare una nuova richiesta con la carta.", "Make a new request with the card."));
    }
    return pkcs10;
}

Issued checkedIssue(const Request& request, const std::vector<QByteArray>& certificates,
                    const std::vector<QByteArray>& anchors, const QDateTime& now)
{
    const Owned<X509_REQ> pkcs10 = checkedRequest(request);
    if (certificates.empty()) {
        throw EnrolmentError(Cause::badAnswer,
                             Text("La risposta non contiene un certificato leggibile.",
                                  "The answer holds no certificate that can be read."));
    }
    std::vector<Owned<X509>> all = readAll(certificates);
    const std::size_t own = indexForKey(all, derOf(X509_REQ_get_X509_PUBKEY(pkcs10.get())));
    if (own == all.size()) {
        failWrong(Text("Il certificato ricevuto è per un'altra chiave, non per quella della "
                       "richiesta. È intestato a %1.",
                       "The certificate that came is for another key, not for that of the "
                       "request. It is made out to %1.")
                      .arg(nameText(X509_get_subject_name(all.front().get()))));
    }
    const Owned<X509> certificate = std::move(all[own]);
    all.erase(all.begin() + static_cast<std::ptrdiff_t>(own));
    checkHolder(pkcs10.get(), certificate.get());
    checkDates(certificate, now);
    if (!anchors.empty()) {
        checkIssuer(certificate, all, readAll(anchors), now);
    }
    Issued issued{certificates[own], certificates};
    issued.chain.erase(issued.chain.begin() + static_cast<std::ptrdiff_t>(own));
    return issued;
}

std::vector<QByteArray> issuerAnchorsOf(const Configuration& configuration)
{
    const QString path = pathOf(configuration, QStringLiteral("issuer-anchors"));
    if (path.isEmpty()) {
        return {};
    }
    std::vector<QByteArray> anchors = certificatesIn(contentOf(path));
    if (anchors.empty()) {
        failMisconfigured(configuration, Text("%1 non contiene certificati leggibili.",
                                              "%1 holds no certificate that can be read.")
                                             .arg(printable(path)));
    }
    return anchors;
}

}  // namespace enrolment
