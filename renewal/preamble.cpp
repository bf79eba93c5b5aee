#include "renewal/preamble.h"

#include "session/last_error.h"

#include <cstring>

namespace renewal {

namespace {

using session::LineEnd;

}  // namespace

std::optional<CardSettings> readSettings(const RenewContext& context, session::Log& log)
{
    const RenewRecord row = context.value(renew_context::settingsRow);
    CardSettings settings{row.value(renew_context::reader), row.value(renew_context::pin)};
    if (settings.reader.isEmpty()) {
        log.line(QStringLiteral("Nessun lettore settato...\n"), LineEnd::none);
        return std::nullopt;
    }
    if (settings.pin.isEmpty()) {
        log.line(QStringLiteral("Nessun PIN settato...\n"), LineEnd::none);
        return std::nullopt;
    }
    return settings;
}

RecordKind kindOfRecord(const RenewRecord& record)
{
    const QString row = record.value(renew_context::recordRow);
    if (row.contains(QStringLiteral("PRA"))) {
        return RecordKind::signature;
    }
    return row.contains(QStringLiteral("CNS")) ? RecordKind::cns : RecordKind::authentication;
}

int requestLabels(const RenewalVariables& variables, const CardSettings& settings,
                  const QString& readerLine, session::Log& log)
{
    log.line(readerLine + settings.reader, LineEnd::newline);
    log.line(QStringLiteral("Funzione rinnovo_Card_findFreeCKAID: INIZIO"), LineEnd::newline);
    const int result = inventory::findFreeLabels(variables.labels, settings.reader, settings.pin);
    log.line(QStringLiteral("Funzione rinnovo_Card_findFreeCKAID: FINE - ReturnCode= ") +
                 QString::number(result),
             LineEnd::newline);
    return result;
}

void logMissingLabel(const QString& text, session::Log& log)
{
    log.line(QStringLiteral("FATAL!!!") + text, LineEnd::flush);
}

void logLabels(const RenewalVariables& variables, session::Log& log)
{
    log.line(QStringLiteral("FREE-CKAID PRA: ") + variables.labels.praText(), LineEnd::newline);
    log.line(QStringLiteral("FREE-CKAID AUT: ") + variables.labels.autText(), LineEnd::newline);
}

KeyTarget targetOf(RecordKind kind, const RenewalVariables& variables)
{
    if (kind == RecordKind::signature) {
        return {KeyUse::signature, variables.labels.pra};
    }
    if (kind == RecordKind::cns) {
        const QByteArray fixedLabel = renew_context::cnsKeyLabel.toUtf8();
        std::memset(variables.labels.aut, 0, inventory::keyLabelSize);
        std::memcpy(variables.labels.aut, fixedLabel.constData(),
                    static_cast<std::size_t>(fixedLabel.size()));
    }
    return {KeyUse::authentication, variables.labels.aut};
}

int conclude(const QString& operation, int libraryResult, const RenewalVariables& variables,
             session::Log& log)
{
    const QString line =
        QStringLiteral("Funzione ") + operation + QStringLiteral(": terminata con ");
    if (libraryResult == 0) {
        log.line(line + QStringLiteral("Successo!"), LineEnd::newline);
        return 1;
    }
    log.line(line + QStringLiteral("Errore.."), LineEnd::newline);
    variables.errorMessage = session::lastCardError().utf8();
    return 0;
}

}  // namespace renewal
