// The dictionary that a host and the renewal library share, and the exact text of every key and
// fixed value in it. Hosts should use these constants instead of spelling the texts themselves:
// some of them are unusual, and all are compared exactly.
//
// The constants are plain QString values without ownership or state of their own. They need no Qt
// application object and may be read from any thread.

#ifndef TARVELOQT_RENEW_CONTEXT_H
#define TARVELOQT_RENEW_CONTEXT_H

#include <QHash>
#include <QString>

// One row: record key to value. A missing key reads as an empty string.
using RenewRecord = QHash<QString, QString>;

// Row key to row. Created and owned by the host, handed by pointer to every exported operation.
// The library adds and replaces rows; only free_renew_system removes any.
using RenewContext = QHash<QString, QHash<QString, QString>>;

namespace renew_context {

// Row keys ---------------------------------------------------------------------------------------

// The session settings: keys `reader`, `pin`, `hostFolder`.
inline const QString settingsRow = QStringLiteral("SettingsApplicazione");

// A certificate's row key is its kind's prefix followed by its number on the card, from 1, in
// decimal. Number 0 is the recovery record of the kind: a key without any certificate.
inline const QString autRowPrefix = QStringLiteral("AUT: ");
inline const QString praRowPrefix = QStringLiteral("PRA: ");
inline const QString cnsRowPrefix = QStringLiteral("CNS: ");
inline const QString autRecoveryRow = QStringLiteral("AUT: 0");
inline const QString praRecoveryRow = QStringLiteral("PRA: 0");
inline const QString cnsRecoveryRow = QStringLiteral("CNS: 0");

inline QString rowKey(const QString& prefix, int number)
{
    return prefix + QString::number(number);
}

// Keys of the settings row -----------------------------------------------------------------------

inline const QString reader = QStringLiteral("Reader");
// The PIN as typed. fill_sc_objects wants exactly eight characters.
inline const QString pin = QStringLiteral("Pin");
// The folder that holds the host's executable.
inline const QString hostFolder = QStringLiteral("p11_library_path");

// Keys of certificate and recovery records -------------------------------------------------------

// Distinguished names with attribute types as dotted object identifiers ("2.5.4.5=...").
inline const QString subjectDN = QStringLiteral("subjectDN");
inline const QString issuerDN = QStringLiteral("issuerDN");
inline const QString iut = QStringLiteral("iut");
// Certificate policy, a dotted object identifier. On a renewable record it is the policy to ask the
// certification authority for, which may differ from that of the certificate on the card.
inline const QString policy = QStringLiteral("policy");
inline const QString serialNumber = QStringLiteral("serialCert");
// Validity: texts whose first eight characters are the date as yyyyMMdd.
inline const QString notBefore = QStringLiteral("notBefore");
inline const QString notAfter = QStringLiteral("notAfter");
// CKA_ID of the certificate object on the card.
inline const QString certificateCkaId = QStringLiteral("Ckaidcert");
inline const QString pendingKey = QStringLiteral("pendingKey");
inline const QString fiscalCode = QStringLiteral("fiscalCode");
// What Tarvelo_gen_p10_by_certid and Tarvelo_install_cert take as the certificate's identifier:
// fiscal code, IUT, pending key without colons and serial number, joined by colons.
inline const QString renewalId = QStringLiteral("RENEW_CERTID");
// The label to show for what is renewed or recovered.
inline const QString renewalLabel = QStringLiteral("CERTIFICATO DA RINNOVARE");
inline const QString certificateLabel = QStringLiteral("Certificato");
// Absent on a certificate record that is to be renewed, else the reason why it is not.
inline const QString renewalMode = QStringLiteral("MODALITA' RINNOVO");
// Present on recovery records only; its value is `recoverCertificate`.
inline const QString action = QStringLiteral("AZIONE");
inline const QString toPay = QStringLiteral("ToPay");
// Added by the lookups to the copy they return, never present in the context: the row key.
inline const QString recordRow = QStringLiteral("Cert_type");

// Values under `renewalMode` ---------------------------------------------------------------------

inline const QString notRenewable = QStringLiteral("Non rinnovabile");
inline const QString notYetDue = QStringLiteral("Certificati non ancora in scadenza");
inline const QString autExpired = QStringLiteral("AUT scaduto. Certificato saltato.");
inline const QString praExpired = QStringLiteral("PRA scaduto. Certificato saltato.");
inline const QString cnsExpired = QStringLiteral("CNS scaduto. Certificato saltato.");
// On the recovery records of AUT and CNS.
inline const QString freeOfCharge = QStringLiteral("GRATUITO");

// Values under `issuerDN` of a record that is `notRenewable`: the accepted authorities -----------

inline const QString autAuthorities = QStringLiteral("castelvane-norbelta");
inline const QString praAuthorities = QStringLiteral("castelvane-norbelta-pellaroux");
inline const QString cnsAuthorities = QStringLiteral("castelvane-norbelta-pellaroux");

// Values under `renewalLabel` --------------------------------------------------------------------

inline const QString authenticationCertificate = QStringLiteral("Certificato di AUTENTICAZIONE");
inline const QString signatureCertificate =
    QStringLiteral("certificato di SOTTOSCRIZIONE (FIRMA DIGITALE)");
inline const QString roleCertificate = QStringLiteral("certificato di RUOLO (FIRMA DIGITALE)");
inline const QString cnsCertificate = QStringLiteral("certificato CNS");
inline const QString cndcecCertificate = QStringLiteral("certificato CNDCEC CNS");
inline const QString cnsLikeCertificate = QStringLiteral("certificato di AUTENTICAZIONE");
inline const QString pendingAut = QStringLiteral("Pending AUTENTICAZIONE");
inline const QString pendingPra = QStringLiteral("Pending SOTTOSCRIZIONE");
// Also the value under `toPay` of the CNS recovery record.
inline const QString pendingCns = QStringLiteral("Pending CNS");

// Values under `certificateLabel` ----------------------------------------------------------------

inline const QString signatureLabel = QStringLiteral("Certificato di SOTTOSCRIZIONE");
inline const QString cnsLabel = QStringLiteral("Certificato CNS");
inline const QString cndcecLabel = QStringLiteral("Certificato CNDCEC CNS");
inline const QString cnsLikeLabel = QStringLiteral("Certificato CNS Like");
// On the recovery records of AUT and of PRA alike.
inline const QString pendingKeyLabel = QStringLiteral("Pending Key SOTTOSCRIZIONE");
// On the CNS recovery record; also the fixed label of a CNS key on the card.
inline const QString cnsKeyLabel = QStringLiteral("CNS0");

// Value under `action` ---------------------------------------------------------------------------

inline const QString recoverCertificate = QStringLiteral("Recupero_Cert");

// Policies that the library tells apart ----------------------------------------------------------

inline const QString signaturePolicy = QStringLiteral("1.3.76.36.1.1.1");
inline const QString limitedSignaturePolicy = QStringLiteral("1.3.76.36.1.1.23");
inline const QString cnsPolicy = QStringLiteral("1.3.76.16.2.1");
inline const QString cndcecPolicy = QStringLiteral("1.3.76.39.1.1.2");

}  // namespace renew_context

// Sizes ------------------------------------------------------------------------------------------

// Bytes of the buffer that Tarvelo_gen_p10_by_certid needs, with the NUL.
constexpr int requestBufferSize = 16384;

// Result codes -----------------------------------------------------------------------------------

// What verify_sc_and_reader returns.
namespace card_verification {
enum Result : int {
    accepted = 0,
    serialNumberUnknown = -90,
    noLongerSupported = -91,
    noLongerRenewable = -92,  // also: the token's identity cannot be read
    notActivated = -93,
    activationUnknown = -94,
    noSession = -95,
    noModule = -96,
    unknownAtr = -97,
    noReader = -99,
};
}

// What fill_sc_objects returns.
namespace inventory_result {
enum Result : int {
    completed = 0,
    nothingRenewable = -80,
    nothingOnCard = -84,
    noFreeKeyLabel = -85,
    cardError = -86,
    cardNotSupported = -88,
    pinLength = -89,
};
}

// What ErrorCode holds after an inventory.
namespace inventory_error {
enum Code : int {
    none = 0,
    cardNotSupported = -100,
    cardError = -1000,
    nothingOnCard = -1001,
    nothingRenewable = -1002,
};
}

#endif
