#include "hosts/enrolment/cmp_refusal.h"

#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <QStringList>

#include <openssl/cmperr.h>
#include <openssl/err.h>

#include <set>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

constexpr int longestText = 400;

struct FailureRow {
    int bit;
    Text words;
};

// RFC 4210 5.2.3.
const FailureRow failureRows[] = {
    {OSSL_CMP_PKIFAILUREINFO_badAlg,
     Text("algoritmo sconosciuto o non ammesso", "unknown or unsupported algorithm")},
    {OSSL_CMP_PKIFAILUREINFO_badMessageCheck,
     Text("la protezione della richiesta non è valida", "the request's protection is not valid")},
    {OSSL_CMP_PKIFAILUREINFO_badRequest,
     Text("operazione non permessa o non prevista", "operation not permitted or not supported")},
    {OSSL_CMP_PKIFAILUREINFO_badTime,
     Text("l'ora di questo computer è troppo diversa da quella dell'autorità",
          "this computer's time is too far from the authority's")},
    {OSSL_CMP_PKIFAILUREINFO_badCertId,
     Text("nessun certificato corrisponde alla richiesta", "no certificate matches the request")},
    {OSSL_CMP_PKIFAILUREINFO_badDataFormat,
     Text("dati in un formato sbagliato", "data in a wrong format")},
    {OSSL_CMP_PKIFAILUREINFO_wrongAuthority,
     Text("la richiesta era per un'altra autorità", "the request was for another authority")},
    {OSSL_CMP_PKIFAILUREINFO_incorrectData,
     Text("dati del richiedente non corretti", "incorrect data of the requester")},
    {OSSL_CMP_PKIFAILUREINFO_missingTimeStamp,
     Text("manca la marca temporale", "the time stamp is missing")},
    {OSSL_CMP_PKIFAILUREINFO_badPOP, Text("la prova di possesso della chiave non è valida",
                                          "the proof of possession is not valid")},
    {OSSL_CMP_PKIFAILUREINFO_certRevoked,
     Text("il certificato è già revocato", "the certificate is revoked already")},
    {OSSL_CMP_PKIFAILUREINFO_certConfirmed,
     Text("il certificato è già confermato", "the certificate is confirmed already")},
    {OSSL_CMP_PKIFAILUREINFO_wrongIntegrity,
     Text("serve l'altro tipo di protezione: firma invece di segreto condiviso, o viceversa",
          "the other protection is needed: signature instead of shared secret, or vice versa")},
    {OSSL_CMP_PKIFAILUREINFO_badRecipientNonce,
     Text("numero del destinatario mancante o sbagliato", "recipient nonce missing or wrong")},
    {OSSL_CMP_PKIFAILUREINFO_timeNotAvailable,
     Text("la fonte dell'ora non è disponibile", "the time source is not available")},
    {OSSL_CMP_PKIFAILUREINFO_unacceptedPolicy,
     Text("politica del certificato non ammessa", "certificate policy not accepted")},
    {OSSL_CMP_PKIFAILUREINFO_unacceptedExtension,
     Text("estensione richiesta non ammessa", "requested extension not accepted")},
    {OSSL_CMP_PKIFAILUREINFO_addInfoNotAvailable,
     Text("l'informazione richiesta non è disponibile",
          "the requested information is not available")},
    {OSSL_CMP_PKIFAILUREINFO_badSenderNonce,
     Text("numero del mittente mancante o sbagliato", "sender nonce missing or wrong")},
    {OSSL_CMP_PKIFAILUREINFO_badCertTemplate,
     Text("alla richiesta mancano dati necessari, o non sono validi",
          "necessary data of the request are missing or not valid")},
    {OSSL_CMP_PKIFAILUREINFO_signerNotTrusted,
     Text("chi firma la richiesta non è conosciuto o non è fidato",
          "the request's signer is unknown or not trusted")},
    {OSSL_CMP_PKIFAILUREINFO_transactionIdInUse,
     Text("identificatore della transazione già in uso", "transaction identifier already in use")},
    {OSSL_CMP_PKIFAILUREINFO_unsupportedVersion,
     Text("versione del messaggio non prevista", "message version not supported")},
    {OSSL_CMP_PKIFAILUREINFO_notAuthorized,
     Text("il mittente non è autorizzato", "the sender is not authorized")},
    {OSSL_CMP_PKIFAILUREINFO_systemUnavail,
     Text("l'autorità non è disponibile in questo momento", "the authority is unavailable now")},
    {OSSL_CMP_PKIFAILUREINFO_systemFailure,
     Text("guasto presso l'autorità", "a failure at the authority")},
    {OSSL_CMP_PKIFAILUREINFO_duplicateCertReq,
     Text("esiste già un certificato per questa richiesta",
          "there is a certificate for this request already")},
};

struct CureRow {
    int bits;
    Text cure;
};

constexpr int bit(int number)
{
    return 1 << number;
}

const CureRow cureRows[] = {
    {bit(OSSL_CMP_PKIFAILUREINFO_badMessageCheck) | bit(OSSL_CMP_PKIFAILUREINFO_wrongIntegrity) |
         bit(OSSL_CMP_PKIFAILUREINFO_signerNotTrusted) | bit(OSSL_CMP_PKIFAILUREINFO_notAuthorized),
     Text(
         "Controllare con l'autorità il segreto condiviso o il certificato con cui ci si presenta.",
         "Check the shared secret or the certificate that one presents with the authority.")},
    {bit(OSSL_CMP_PKIFAILUREINFO_badTime),
     Text("Regolare l'orologio di questo computer, poi riprovare.",
          "Set this computer's clock, then try again.")},
    {bit(OSSL_CMP_PKIFAILUREINFO_systemUnavail) | bit(OSSL_CMP_PKIFAILUREINFO_systemFailure),
     Text("Riprendere più tardi: la richiesta resta valida.",
          "Resume later: the request stays good.")},
    {bit(OSSL_CMP_PKIFAILUREINFO_duplicateCertReq),
     Text("Farsi consegnare dall'autorità il certificato già emesso per questa richiesta.",
          "Have the authority hand over the certificate that it issued for this request already.")},
};

// What is in the library's queue of errors.
struct Queue {
    std::set<int> reasons;
    QString last;
    // What follows "errorDetails: " in an error message; the library has no other way to it.
    QString details;
};

Queue takeQueue()
{
    Queue queue;
    const char* data = nullptr;
    int flags = 0;
    while (const auto code = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags)) {
        if (const char* words = ERR_reason_error_string(code)) {
            queue.last = QString::fromUtf8(words);
        }
        if (ERR_GET_LIB(code) != ERR_LIB_CMP) {
            continue;
        }
        queue.reasons.insert(ERR_GET_REASON(code));
        if (ERR_GET_REASON(code) == CMP_R_RECEIVED_ERROR && (flags & ERR_TXT_STRING) != 0) {
            const QString marker = QStringLiteral("errorDetails: ");
            const QString text = QString::fromUtf8(data);
            const auto begin = text.indexOf(marker);
            queue.details = begin < 0 ? QString() : text.mid(begin + marker.size());
        }
    }
    return queue;
}

QString joined(const QStringList& parts)
{
    QStringList present;
    for (const auto& part : parts) {
        if (!part.isEmpty() && !present.contains(part)) {
            present.append(part);
        }
    }
    return present.join(QStringLiteral("; "));
}

QString reasonGiven(const OSSL_CMP_CTX* context, const Queue& queue)
{
    const auto reason =
        joined({failureInfoInWords(OSSL_CMP_CTX_get_failInfoCode(context)), statusTextOf(context),
                printable(queue.details.simplified().left(longestText))});
    return reason.isEmpty() ? Text("nessun motivo indicato", "no reason given").string() : reason;
}

QString cureFor(int bits)
{
    for (const auto& row : cureRows) {
        if (bits > 0 && (bits & row.bits) != 0) {
            return row.cure;
        }
    }
    return {};
}

struct ReasonRow {
    std::set<int> reasons;
    Cause cause;
    Text text;
    Text cure;
};

const Text
    checkSecret("Controllare segreto condiviso e riferimento con l'autorità; se sono giusti, "
                "il server non è il suo.",
                "Check shared secret and reference with the authority; if they are right, "
                "the server is not its own.");
const Text checkSigner("Non insistere: controllare con l'autorità l'indirizzo e con quale "
                       "certificato firma le risposte.",
                       "Do not insist: check with the authority the address and the certificate "
                       "that it signs its answers with.");
const Text laterOrReport("Riprendere più tardi; se si ripete, segnalarlo all'autorità.",
                         "Resume later; if it happens again, report it to the authority.");

// From the most telling to the most general: the queue often holds several.
const ReasonRow reasonRows[] = {
    {{CMP_R_WRONG_PBM_VALUE},
     Cause::untrusted,
     Text("La risposta non è protetta con il segreto condiviso che è stato configurato.",
          "The answer is not protected with the shared secret that was configured."),
     checkSecret},
    {{CMP_R_MISSING_SECRET},
     Cause::untrusted,
     Text("La risposta è protetta con un segreto condiviso invece che firmata.",
          "The answer is protected by a shared secret instead of being signed."),
     checkSigner},
    {{CMP_R_MISSING_TRUST_ANCHOR},
     Cause::untrusted,
     Text(
         "La risposta è firmata invece che protetta con il segreto condiviso, e non è configurato "
         "chi può firmarla (\"server-anchors\" o \"server-certificate\").",
         "The answer is signed instead of protected by the shared secret, and nobody is configured "
         "who may sign it (\"server-anchors\" or \"server-certificate\")."),
     checkSigner},
    {{CMP_R_MISSING_PROTECTION},
     Cause::untrusted,
     Text("La risposta non è protetta: può essere di chiunque.",
          "The answer is not protected: it may be anybody's."),
     checkSigner},
    {{CMP_R_NO_SUITABLE_SENDER_CERT, CMP_R_SRVCERT_DOES_NOT_VALIDATE_MSG,
      CMP_R_POTENTIALLY_INVALID_CERTIFICATE, CMP_R_ERROR_VALIDATING_SIGNATURE,
      CMP_R_ERROR_VALIDATING_PROTECTION},
     Cause::untrusted,
     Text("La risposta non è firmata da chi deve firmarla, o il certificato di chi firma non è "
          "valido.",
          "The answer is not signed by whom it should be, or the signer's certificate is not "
          "valid."),
     checkSigner},
    {{CMP_R_TRANSACTIONID_UNMATCHED, CMP_R_RECIPNONCE_UNMATCHED},
     Cause::badAnswer,
     Text("La risposta appartiene a un altro scambio di messaggi.",
          "The answer belongs to another exchange of messages."),
     laterOrReport},
};

EnrolmentError refusal(const OSSL_CMP_CTX* context, const Queue& queue)
{
    return {Cause::refused,
            Text("L'autorità rifiuta: %1.", "The authority refuses: %1.")
                .arg(reasonGiven(context, queue)),
            cureFor(OSSL_CMP_CTX_get_failInfoCode(context))};
}

}  // namespace

QString failureInfoInWords(int bits)
{
    QStringList words;
    for (const auto& row : failureRows) {
        if (bits > 0 && (bits & bit(row.bit)) != 0) {
            words.append(row.words);
        }
    }
    return words.join(QStringLiteral("; "));
}

QString statusTextOf(const OSSL_CMP_CTX* context)
{
    const auto* texts = OSSL_CMP_CTX_get0_statusString(context);
    QStringList parts;
    for (int index = 0; index < sk_ASN1_UTF8STRING_num(texts); ++index) {
        const auto* text = sk_ASN1_UTF8STRING_value(texts, index);
        parts.append(QString::fromUtf8(reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
                                       ASN1_STRING_length(text))
                         .simplified());
    }
    return printable(joined(parts).left(longestText));
}

EnrolmentError cmpError(const OSSL_CMP_CTX* context, ErrorProof proof)
{
    const Queue queue = takeQueue();
    const bool isErrorMessage = queue.reasons.count(CMP_R_RECEIVED_ERROR) != 0;
    if (isErrorMessage && proof == ErrorProof::unproven) {
        return {
            Cause::untrusted,
            Text("Il server rifiuta, ma chiunque può avere inviato questa risposta, perché la "
                 "protezione manca o non è valida. Il motivo indicato: %1.",
                 "The server refuses, but anybody may have sent this answer, because its "
                 "protection is missing or not valid. The reason given: %1.")
                .arg(reasonGiven(context, queue)),
            Text("Controllare con l'autorità il segreto condiviso o il certificato con cui ci si "
                 "presenta, e l'indirizzo.",
                 "Check with the authority the shared secret or the certificate that one "
                 "presents, and the address.")};
    }
    if (isErrorMessage || queue.reasons.count(CMP_R_REQUEST_REJECTED_BY_SERVER) != 0) {
        return refusal(context, queue);
    }
    for (const auto& row : reasonRows) {
        for (const auto reason : row.reasons) {
            if (queue.reasons.count(reason) != 0) {
                return {row.cause, row.text, row.cure};
            }
        }
    }
    // The library says nothing when the sender's name is not that of the pinned certificate.
    if (queue.reasons.empty()) {
        return {Cause::untrusted,
                Text("La risposta viene da un mittente diverso da quello configurato.",
                     "The answer comes from another sender than the one configured."),
                checkSigner};
    }
    return {Cause::badAnswer, Text("La risposta del server non è utilizzabile (%1).",
                                   "The server's answer cannot be used (%1).")
                                  .arg(printable(queue.last.left(longestText)))};
}

}  // namespace enrolment
