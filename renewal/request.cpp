#include "renewal/request.h"

#include "inventory/lookups.h"

#include <cstring>

namespace renewal {

namespace {

using session::LineEnd;

const QString& operation()
{
    static const QString name = QStringLiteral("Tarvelo_gen_p10_by_certid");
    return name;
}

// A request wants both labels, whatever the kind of its certificate.
bool haveLabels(const RenewalVariables& variables, int result, session::Log& log)
{
    const QString text = operation() + QStringLiteral(" rinnovo_Card_findFreeCKAID:");
    if (result != 0 || variables.labels.praText().isEmpty()) {
        logMissingLabel(text + QStringLiteral("pendingLabel_PRA"), log);
        return false;
    }
    if (variables.labels.autText().isEmpty()) {
        logMissingLabel(text + QStringLiteral("pendingLabel_AUT"), log);
        return false;
    }
    return true;
}

}  // namespace

int requestCertificate(const RenewContext& context, const QString& renewalId, char* requestBuffer,
                       const RenewalVariables& variables, session::Log& log)
{
    log.line(operation() + QStringLiteral(" Ricerca del CERT_ID: ") + renewalId, LineEnd::newline);
    const auto record = inventory::findRecord(context, renew_context::renewalId, renewalId);
    if (!record) {
        log.line(operation() + QStringLiteral(" Cert_ID non trovato"), LineEnd::newline);
        return 0;
    }
    const auto settings = readSettings(context, log);
    if (!settings) {
        return 0;
    }
    log.line(operation() + QStringLiteral(" Rinnovo assumo chiave pending assente! "),
             LineEnd::newline);
    log.line(operation() + QStringLiteral(" Calcolo il Free-CKAID PRA:"), LineEnd::newline);
    const int labelsResult =
        requestLabels(variables, *settings, operation() + QStringLiteral(" Reader = "), log);
    if (!haveLabels(variables, labelsResult, log)) {
        return 0;
    }
    logLabels(variables, log);

    std::memset(requestBuffer, 0, requestBufferSize);
    const KeyTarget target = targetOf(kindOfRecord(*record), variables);
    const int result = createRequest(target.use, requestBuffer, target.label, settings->pin,
                                     record->value(renew_context::certificateCkaId),
                                     record->value(renew_context::subjectDN));
    return conclude(operation(), result, variables, log);
}

}  // namespace renewal
