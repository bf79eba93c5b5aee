#ifndef TARVELOQT_CARD_READER_CHOICE_H
#define TARVELOQT_CARD_READER_CHOICE_H

#include "renew_context.h"
#include "session/log.h"

#include <QString>

namespace card {

// Stores the reader in the settings row: the one named, else the only one connected, else the one
// that the user picks on the console. False when no list of readers can be had.
bool chooseReader(RenewContext& context, const QString& reader, session::Log& log);

}  // namespace card

#endif
