// The pieces of the JSON documents that the commands answer with. docs/json/ describes each.

#ifndef TARVELOQT_HOSTS_CONSOLE_JSON_ANSWER_H
#define TARVELOQT_HOSTS_CONSOLE_JSON_ANSWER_H

#include "hosts/console/card_work.h"
#include "hosts/console/certificate_entry.h"
#include "hosts/console/exit_code.h"
#include "hosts/console/renewal_record.h"

#include <QDate>
#include <QJsonArray>
#include <QJsonObject>

#include <vector>

namespace console {

// Every document's first part: schema, version, program, exit. stop: null after a good end.
QJsonObject documentHead(Command command, const Stop* stop);

// {"code", "name", "meaning", "detail", "nextStep"}.
QJsonObject exitObject(const Stop& stop);

QJsonObject cardObject(const QString& reader, const CardIdentity& identity);
QJsonObject certificateObject(const CertificateEntry& entry, QDate today);
QJsonArray certificateArray(const std::vector<CertificateEntry>& entries, QDate today);

// A kept renewal, without what its way to the authority keeps for itself.
QJsonObject renewalObject(const RenewalRecord& record);

// "authentication", "signature", "cns".
QString jsonName(Kind kind);
// "to-renew", "not-yet-due", ...
QString jsonName(Verdict verdict);
// "requested", "submitted", "deferred", "issued".
QString jsonName(RecordState state);

// Null instead of an empty text or an invalid date.
QJsonValue textOrNull(const QString& text);
QJsonValue dateOrNull(QDate date);

}  // namespace console

#endif
