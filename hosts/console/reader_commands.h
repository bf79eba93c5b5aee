// The commands that look at readers and cards without a PIN. Each fills the JSON answer as it goes,
// shows the same as text, and throws Stop to end otherwise than well. None changes the card.

#ifndef TARVELOQT_HOSTS_CONSOLE_READER_COMMANDS_H
#define TARVELOQT_HOSTS_CONSOLE_READER_COMMANDS_H

#include "hosts/console/arguments.h"

#include <QJsonObject>

namespace console {

// All readers. None is no failure.
void showReaders(const Arguments& arguments, QJsonObject& answer);

// The named reader, else that of the configuration file, else the only one; and the renewals that
// were begun. No reader is no failure unless one was named: throws Stop (noReader).
void showStatus(const Arguments& arguments, QJsonObject& answer);

// Which entry of the table serves the card with this ATR. Throws Stop: usage when it is no ATR,
// fileFailed when the table cannot be used, unknownAtr when no entry serves it.
void explainAtr(const Arguments& arguments, QJsonObject& answer);

}  // namespace console

#endif
