#include "renewal/installation.h"

#include "inventory/lookups.h"

namespace renewal {

namespace {

using session::LineEnd;

const QString& operation()
{
    static const QString name = QStringLiteral("Tarvelo_install_cert");
    return name;
}

std::optional<RenewRecord> recordOrRecovery(const RenewContext& context, const QString& renewalId,
                                            session::Log& log)
{
    log.line(operation() + QStringLiteral(" Ricerca del CERT_ID: ") + renewalId, LineEnd::newline);
    auto record = inventory::findRecord(context, renew_context::renewalId, renewalId);
    if (record) {
        return record;
    }
    log.line(operation() + QStringLiteral(" Cert_ID non trovato"), LineEnd::newline);
    record =
        inventory::findRecord(context, renew_context::action, renew_context::recoverCertificate);
    log.line(operation() + (record ? QStringLiteral(" Rescue cert TROVATO!")
                                   : QStringLiteral(" Rescue cert non trovato")),
             LineEnd::newline);
    return record;
}

// An installation wants only the label of its own kind.
bool hasLabel(const RenewalVariables& variables, RecordKind kind, int result, session::Log& log)
{
    const bool signature = kind == RecordKind::signature;
    const QString label = signature ? variables.labels.praText() : variables.labels.autText();
    if (result == 0 && !label.isEmpty()) {
        return true;
    }
    logMissingLabel(signature ? QStringLiteral("rinnovo_Card_findFreeCKAID:pendingLabel_PRA")
                              : QStringLiteral("rinnovo_Card_findFreeCKAID:pendingLabel_AUT"),
                    log);
    return false;
}

}  // namespace

int installCertificate(const RenewContext& context, const QString& renewalId, char* certificate,
                       const RenewalVariables& variables, session::Log& log)
{
    const auto record = recordOrRecovery(context, renewalId, log);
    if (!record) {
        return 0;
    }
    const auto settings = readSettings(context, log);
    if (!settings) {
        return 0;
    }
    const RecordKind kind = kindOfRecord(*record);
    log.line(QStringLiteral("Rinnovo assumo chiave pending assente! "), LineEnd::newline);
    log.line(QStringLiteral("Calcolo il Free-CKAID per PRA e AUT:"), LineEnd::newline);
    const int labelsResult = requestLabels(variables, *settings, QStringLiteral("Reader = "), log);
    if (!hasLabel(variables, kind, labelsResult, log)) {
        return 0;
    }
    logLabels(variables, log);

    const KeyTarget target = targetOf(kind, variables);
    const int result =
        saveCertificate(target.use, settings->pin, record->value(renew_context::certificateCkaId),
                        target.label, certificate);
    return conclude(operation(), result, variables, log);
}

}  // namespace renewal
