#include "hosts/enrolment/cmp_transaction.h"

#include "hosts/enrolment/enrolment_error.h"
#include "hosts/texts/language.h"

#include <QJsonArray>

#include <openssl/err.h>

#include <algorithm>
#include <new>
#include <utility>

namespace enrolment {

using texts::Text;

namespace {

// Body types, RFC 4210 5.1.2; the library's header names only those that begin a transaction.
constexpr int certificateAnswer = 3;
constexpr int errorMessage = 23;
constexpr int pollAnswer = 26;

const QByteArray mediaType = "application/pkixcmp";

const QString subjectKey = QStringLiteral("subject");
const QString transactionKey = QStringLiteral("transaction");
const QString answersKey = QStringLiteral("answers");

// The last answer to the request, and the last one to a poll after it.
constexpr int mostAnswers = 2;

CmpHandle<OSSL_CMP_MSG> messageFrom(const QByteArray& der)
{
    const auto* begin = reinterpret_cast<const unsigned char*>(der.constData());
    const auto* next = begin;
    CmpHandle<OSSL_CMP_MSG> message(d2i_OSSL_CMP_MSG(nullptr, &next, der.size()));
    if (next != begin + der.size()) {
        message.reset();
    }
    return message;
}

QByteArray derOf(const OSSL_CMP_MSG* message)
{
    unsigned char* der = nullptr;
    const int size = i2d_OSSL_CMP_MSG(message, &der);
    if (size <= 0) {
        throw std::bad_alloc();
    }
    QByteArray bytes(reinterpret_cast<const char*>(der), size);
    OPENSSL_free(der);
    return bytes;
}

QByteArray bytesOf(const ASN1_OCTET_STRING* octets)
{
    return octets == nullptr
               ? QByteArray()
               : QByteArray(reinterpret_cast<const char*>(ASN1_STRING_get0_data(octets)),
                            ASN1_STRING_length(octets));
}

int bodyTypeOf(const QByteArray& der)
{
    const auto message = messageFrom(der);
    return message ? OSSL_CMP_MSG_get_bodytype(message.get()) : -1;
}

QJsonValue base64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

QByteArray fromBase64(const QJsonValue& value)
{
    const auto decoded = QByteArray::fromBase64Encoding(value.toString().toLatin1(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    return decoded ? *decoded : QByteArray();
}

[[noreturn]] void failStatus(const HttpAnswer& answer)
{
    const QString status = QString::number(answer.status);
    if (answer.status == 404 || answer.status == 405) {
        throw EnrolmentError(
            Cause::misconfigured,
            Text("A questo indirizzo del server non c'è un servizio CMP (HTTP %1).",
                 "There is no CMP service at this address of the server (HTTP %1).")
                .arg(status));
    }
    if (answer.status == 401 || answer.status == 403 || answer.status == 407) {
        throw EnrolmentError(Cause::refused,
                             Text("Il server web dell'autorità rifiuta l'accesso (HTTP %1).",
                                  "The authority's web server refuses the access (HTTP %1).")
                                 .arg(status));
    }
    throw EnrolmentError(answer.status >= 500 ? Cause::unreachable : Cause::badAnswer,
                         Text("Il server web dell'autorità dà un errore (HTTP %1).",
                              "The authority's web server gives an error (HTTP %1).")
                             .arg(status));
}

}  // namespace

QJsonObject stateOf(const CmpProgress& progress, const QByteArray& subject)
{
    if (progress.isEmpty()) {
        return {};
    }
    QJsonArray answers;
    for (const auto& answer : progress.answers) {
        answers.append(base64(answer));
    }
    return {{subjectKey, base64(subject)},
            {transactionKey, base64(progress.transactionId)},
            {answersKey, answers}};
}

CmpProgress progressFrom(const QJsonObject& state, const QByteArray& subject)
{
    CmpProgress progress;
    progress.transactionId = fromBase64(state.value(transactionKey));
    const auto answers = state.value(answersKey).toArray();
    if (fromBase64(state.value(subjectKey)) != subject || progress.transactionId.isEmpty() ||
        answers.size() > mostAnswers) {
        return {};
    }
    for (const auto& answer : answers) {
        progress.answers.push_back(fromBase64(answer));
    }
    return progress;
}

CmpTransaction::CmpTransaction(OSSL_CMP_CTX* context, QUrl url, HttpSettings http,
                               Clock::time_point end, const CmpProgress& past)
    : m_context(context)
    , m_url(std::move(url))
    , m_http(std::move(http))
    , m_end(end)
    , m_past(past.answers)
{
    if (OSSL_CMP_CTX_set_transfer_cb(context, &CmpTransaction::transfer) != 1 ||
        OSSL_CMP_CTX_set_transfer_cb_arg(context, this) != 1) {
        throw std::bad_alloc();
    }
    if (!past.transactionId.isEmpty()) {
        CmpHandle<ASN1_OCTET_STRING> id(ASN1_OCTET_STRING_new());
        if (!id ||
            ASN1_OCTET_STRING_set(
                id.get(), reinterpret_cast<const unsigned char*>(past.transactionId.constData()),
                past.transactionId.size()) != 1 ||
            OSSL_CMP_CTX_set1_transactionID(context, id.get()) != 1) {
            throw std::bad_alloc();
        }
    }
}

OSSL_CMP_MSG* CmpTransaction::transfer(OSSL_CMP_CTX* context, const OSSL_CMP_MSG* message)
{
    auto& self = *static_cast<CmpTransaction*>(OSSL_CMP_CTX_get_transfer_cb_arg(context));
    // The library is C: nothing may be thrown through it.
    try {
        return self.answerTo(message).release();
    } catch (...) {
        self.m_failure = std::current_exception();
        return nullptr;
    }
}

CmpHandle<OSSL_CMP_MSG> CmpTransaction::answerTo(const OSSL_CMP_MSG* message)
{
    // The library sends another message only when it took the answer to the one before.
    lastAnswerWasTaken();
    m_progress.transactionId =
        bytesOf(OSSL_CMP_HDR_get0_transactionID(OSSL_CMP_MSG_get0_header(message)));
    auto answer = m_replayed < m_past.size() ? keptAnswer() : sentFor(message);
    // The profile belongs to the request, not to the polls and the confirmation after it.
    OSSL_CMP_CTX_reset_geninfo_ITAVs(m_context);
    const int type = OSSL_CMP_MSG_get_bodytype(answer.get());
    if (type == certificateAnswer || type == pollAnswer) {
        m_pending = derOf(answer.get());
    }
    if (type == errorMessage) {
        judgeError(answer.get());
    }
    return answer;
}

CmpHandle<OSSL_CMP_MSG> CmpTransaction::keptAnswer()
{
    auto answer = messageFrom(m_past.at(m_replayed));
    ++m_replayed;
    if (!answer) {
        throw EnrolmentError(Cause::badAnswer, Text("Lo stato conservato non è leggibile.",
                                                    "The kept state cannot be read."));
    }
    // It answers the message of an earlier run; the nonce of that one is what the library has to
    // compare with.
    auto* nonce = OSSL_CMP_HDR_get0_recipNonce(OSSL_CMP_MSG_get0_header(answer.get()));
    if (nonce == nullptr || OSSL_CMP_CTX_set1_senderNonce(m_context, nonce) != 1) {
        throw EnrolmentError(Cause::badAnswer, Text("Lo stato conservato non è leggibile.",
                                                    "The kept state cannot be read."));
    }
    return answer;
}

CmpHandle<OSSL_CMP_MSG> CmpTransaction::sentFor(const OSSL_CMP_MSG* message)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_end - Clock::now());
    if (left.count() <= 0) {
        throw EnrolmentError(Cause::unreachable, Text("Il tempo concesso all'autorità è finito.",
                                                      "The time for the authority is over."));
    }
    HttpRequest request;
    request.method = HttpRequest::Method::post;
    request.url = m_url;
    request.contentType = mediaType;
    request.body = derOf(message);
    HttpSettings http = m_http;
    http.totalTime = left;
    ++m_sent;
    const HttpAnswer answer = exchange(request, http);
    // RFC 6712 3.3: the reason why not may come as a CMP message with any status.
    if (answer.contentType != mediaType) {
        if (answer.status >= 400) {
            failStatus(answer);
        }
        throw EnrolmentError(Cause::badAnswer, Text("La risposta del server non è di tipo CMP.",
                                                    "The server's answer is not of the CMP type."));
    }
    auto parsed = messageFrom(answer.body);
    ERR_clear_error();
    if (!parsed) {
        throw EnrolmentError(Cause::badAnswer,
                             Text("La risposta del server non è un messaggio CMP leggibile.",
                                  "The server's answer is not a readable CMP message."));
    }
    return parsed;
}

// Errors are let through without a valid protection, so that the person learns the reason that the
// server gives, but are never taken for the authority's word then. Other messages are not let
// through.
void CmpTransaction::judgeError(const OSSL_CMP_MSG* answer)
{
    ERR_set_mark();
    const bool isProven = OSSL_CMP_validate_msg(m_context, answer) == 1;
    ERR_pop_to_mark();
    m_errorProof = isProven ? ErrorProof::proven : ErrorProof::unproven;
    if (OSSL_CMP_CTX_set_option(m_context, OSSL_CMP_OPT_UNPROTECTED_ERRORS, 1) != 1) {
        throw std::bad_alloc();
    }
}

void CmpTransaction::lastAnswerWasTaken()
{
    if (m_pending.isEmpty()) {
        return;
    }
    auto& answers = m_progress.answers;
    // A certificate answer stands for all that led to it, and a poll's for the polls before.
    const bool isToPoll = bodyTypeOf(m_pending) == pollAnswer;
    answers.resize(std::min<std::size_t>(answers.size(), isToPoll ? 1 : 0));
    answers.push_back(std::exchange(m_pending, {}));
}

}  // namespace enrolment
