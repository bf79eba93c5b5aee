// What is kept about a renewal between the request and the installation, so that it can be finished
// after an interruption: what was asked for, for which certificate, and where.
//
// A record holds no secret. Its texts come from cards, authorities and a file: show them through
// printable(). The JSON form is described in docs/json/record.schema.json; version 1 may gain
// fields, which older programs keep, and a change that older programs would misread gets another
// version number.

#ifndef TARVELOQT_HOSTS_CONSOLE_RENEWAL_RECORD_H
#define TARVELOQT_HOSTS_CONSOLE_RENEWAL_RECORD_H

#include "hosts/console/certificate_entry.h"

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include <optional>
#include <vector>

namespace console {

enum class RecordState {
    requested,  // the card made the request; no authority has it for certain
    submitted,  // handed to the authority, no answer yet
    deferred,   // the authority asks to come back later
    issued,     // the certificate is here and not yet seen on the card
};

struct ReplacedCertificate {
    // As the inventory gives them.
    QString issuer;
    QString serialNumber;
    QString holder;
};

struct RecordToken {
    QString model;
    QString serialNumber;
};

struct AuthorityWay {
    // Name of the way by which the authority is reached; empty while none was tried.
    QString name;
    // What this way needs to ask again, for example a transaction's identifier; no secret.
    QJsonObject state;
};

struct RenewalRecord {
    RecordState state = RecordState::requested;
    Kind kind = Kind::authentication;
    // PEM (RFC 7468, RFC 2986).
    QByteArray request;
    // keyDigest of the request's public key: the record's identity.
    QString publicKeyDigest;
    ReplacedCertificate replaces;
    QString reader;
    RecordToken token;
    // Certificate policy to ask the authority for.
    QString policy;
    // End of validity to ask for; invalid when it is not known.
    QDate expectedEnd;
    AuthorityWay authority;
    // PEM; not empty exactly when the state is `issued`.
    QByteArray certificate;
    // In UTC, whole seconds.
    QDateTime requestedAt;
    QDateTime changedAt;
    // The fields as they were read, so that those of a later program survive.
    QJsonObject asRead;
};

// A record in state `requested` for a PEM request, with its digest and both times set; the rest is
// the caller's to fill in. now: any time specification. Throws Stop with ExitCode::requestFailed
// when the text is no request signed by its own key.
RenewalRecord recordOfRequest(const QByteArray& requestPem, const QDateTime& now);

// Puts the issued certificate into the record. Throws Stop with ExitCode::certificateRefused, the
// record unchanged, when its public key is not the request's.
void keepCertificate(RenewalRecord& record, const QByteArray& certificatePem, const QDateTime& now);

// UTF-8 JSON with a line end after the last line.
QByteArray toJson(const RenewalRecord& record);

// The record in the bytes of a file. Throws Stop with ExitCode::fileFailed that names the path,
// what is wrong and what to do: every known field must be there with its type, the request must be
// signed by its key, digest and certificate must be of this key.
RenewalRecord recordFromJson(const QByteArray& json, const QString& path);

// SHA-256 of a SubjectPublicKeyInfo's DER in lower-case hexadecimal, as requestPublicKey() and
// IssuedCertificate::publicKey give that DER.
QString keyDigest(const QByteArray& subjectPublicKeyInfo);

// The record whose request has this public key.
std::optional<RenewalRecord> recordForKey(const std::vector<RenewalRecord>& records,
                                          const QByteArray& subjectPublicKeyInfo);

// Those that renew the certificate with this issuer and serial number, in the order given.
std::vector<RenewalRecord> recordsReplacing(const std::vector<RenewalRecord>& records,
                                            const QString& issuer, const QString& serialNumber);

// The oldest request first; equal ones by digest.
void sortByAge(std::vector<RenewalRecord>& records);

}  // namespace console

#endif
