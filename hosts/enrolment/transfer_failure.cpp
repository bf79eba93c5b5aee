#include "hosts/enrolment/transfer_failure.h"

#include "hosts/enrolment/enrolment_error.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <openssl/x509_vfy.h>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

QString serverOf(const QUrl& url)
{
    const QString port = url.port() < 0 ? QString() : QStringLiteral(":%1").arg(url.port());
    return url.host() + port;
}

QString reasonOf(const TransferFailure& failure)
{
    const QString words = failure.complaint.isEmpty()
                              ? QString::fromLatin1(curl_easy_strerror(failure.code))
                              : failure.complaint;
    return printable(words.simplified().left(200));
}

[[noreturn]] void fail(Cause cause, const Text& sentence, const TransferFailure& failure)
{
    throw EnrolmentError(cause, sentence.arg(serverOf(failure.url), reasonOf(failure)));
}

[[noreturn]] void failUntrusted(const TransferFailure& failure)
{
    // "Unspecified" is where libcurl starts from; a name that does not match leaves it so.
    const bool hasReason =
        failure.verification != X509_V_OK && failure.verification != X509_V_ERR_UNSPECIFIED;
    const QString reason =
        hasReason ? QString::fromLatin1(X509_verify_cert_error_string(failure.verification))
                  : reasonOf(failure);
    throw EnrolmentError(Cause::untrusted,
                         Text("Il server %1 non è quello atteso: il suo certificato non è "
                              "valido (%2).",
                              "The server %1 is not the one expected: its certificate is not "
                              "valid (%2).")
                             .arg(serverOf(failure.url), reason));
}

[[noreturn]] void failCut(const TransferFailure& failure)
{
    // TLS 1.3 tells so only after the handshake; OpenSSL's words are all that is left of it here.
    if (failure.complaint.contains(QStringLiteral("alert certificate required"))) {
        throw EnrolmentError(
            Cause::refused,
            Text("Il server %1 vuole che ci si presenti con un certificato.",
                 "The server %1 demands that a certificate is shown.")
                .arg(serverOf(failure.url)),
            Text("Chiedere all'autorità un certificato di accesso e indicarlo con "
                 "client-certificate e client-key-file.",
                 "Ask the authority for a certificate to log in with and name it by "
                 "client-certificate and client-key-file."));
    }
    if (failure.sentNothing) {
        fail(Cause::unreachable,
             Text("La connessione con %1 è caduta prima della richiesta (%2).",
                  "The connection to %1 broke before the request (%2)."),
             failure);
    }
    fail(Cause::unreachable,
         Text("La connessione con %1 è caduta prima che la risposta fosse completa (%2).",
              "The connection to %1 broke before the answer was complete (%2)."),
         failure);
}

}  // namespace

void failTransfer(const TransferFailure& failure)
{
    if (failure.isTooLarge || failure.code == CURLE_FILESIZE_EXCEEDED) {
        throw EnrolmentError(Cause::badAnswer, Text("La risposta di %1 supera 1 MiB.",
                                                    "The answer of %1 is larger than 1 MiB.")
                                                   .arg(serverOf(failure.url)));
    }
    switch (failure.code) {
    case CURLE_OUT_OF_MEMORY:
        throw std::bad_alloc();
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
        failUntrusted(failure);
    case CURLE_SSL_CACERT_BADFILE:
        fail(Cause::misconfigured,
             Text("I certificati di fiducia per %1 non sono leggibili (%2).",
                  "The trust anchors for %1 cannot be read (%2)."),
             failure);
    case CURLE_SSL_CERTPROBLEM:
        fail(Cause::misconfigured,
             Text("Certificato o chiave con cui presentarsi a %1 non sono utilizzabili (%2).",
                  "Certificate or key to show to %1 cannot be used (%2)."),
             failure);
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_PROXY:
        fail(Cause::unreachable,
             Text("Il proxy verso %1 non risponde (%2).", "The proxy to %1 does not answer (%2)."),
             failure);
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
        fail(
            Cause::unreachable,
            Text("Il server %1 non è raggiungibile (%2).", "The server %1 cannot be reached (%2)."),
            failure);
    case CURLE_OPERATION_TIMEDOUT:
        fail(Cause::unreachable,
             Text("Il server %1 non ha risposto in tempo (%2).",
                  "The server %1 did not answer in time (%2)."),
             failure);
    case CURLE_SSL_CONNECT_ERROR:
        fail(Cause::unreachable,
             Text("Con %1 non nasce una connessione protetta (%2).",
                  "No protected connection to %1 comes about (%2)."),
             failure);
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
        failCut(failure);
    default:
        // The address was looked at before; what is left is about the answer.
        fail(Cause::badAnswer,
             Text("%1 non risponde come un server di questo tipo (%2).",
                  "%1 does not answer like a server of this kind (%2)."),
             failure);
    }
}

}  // namespace enrolment
