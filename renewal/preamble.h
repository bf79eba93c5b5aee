#ifndef TARVELOQT_RENEWAL_PREAMBLE_H
#define TARVELOQT_RENEWAL_PREAMBLE_H

#include "inventory/card_reading.h"
#include "renew_context.h"
#include "renewal/card_writing.h"
#include "session/log.h"

#include <QString>

#include <optional>

// What request and installation have in common.
namespace renewal {

// The process-wide variables that both operations write.
struct RenewalVariables {
    inventory::KeyLabels labels;
    QString& errorMessage;
};

// Reader and PIN of the settings row.
struct CardSettings {
    QString reader;
    QString pin;
};

// Reads the settings; when one is missing, logs which and returns nothing.
std::optional<CardSettings> readSettings(const RenewContext& context, session::Log& log);

enum class RecordKind { signature, authentication, cns };

// The kind that a record's row key tells.
RecordKind kindOfRecord(const RenewRecord& record);

// Logs reader and progress, asks the card library for the labels to use, and logs its result, which
// is returned.
int requestLabels(const RenewalVariables& variables, const CardSettings& settings,
                  const QString& readerLine, session::Log& log);

// Logs that no label is there for a key of the text's kind.
void logMissingLabel(const QString& text, session::Log& log);

// Logs both labels.
void logLabels(const RenewalVariables& variables, session::Log& log);

// The card library's functions and the label for the kind; a CNS key always has the fixed label,
// which takes the place of the authentication label.
struct KeyTarget {
    KeyUse use;
    char* label;
};
KeyTarget targetOf(RecordKind kind, const RenewalVariables& variables);

// Logs how the operation ended and, after a failure of the card library, sets the error message.
// Returns the operation's result, 1 or 0.
int conclude(const QString& operation, int libraryResult, const RenewalVariables& variables,
             session::Log& log);

}  // namespace renewal

#endif
