// How many wrong PINs the card still takes, and what that means before it sees one.

#ifndef TARVELOQT_HOSTS_CONSOLE_PIN_TRIES_H
#define TARVELOQT_HOSTS_CONSOLE_PIN_TRIES_H

#include "hosts/console/reader_diagnosis.h"

#include <QString>

#include <optional>

namespace console {

// A sentence for a person; absent: the card does not tell.
QString pinTriesSentence(std::optional<PinTries> tries);

// To be called before the PIN of the card in this reader is asked for or used. Warns on standard
// error when few tries are left; says nothing when the card does not tell. The last try needs a
// clear yes: mayUseLastTry, else the answer to a question where questions may be asked.
// Throws Stop: pinBlocked, lastTry.
void checkPinTries(const QString& reader, bool mayUseLastTry);

}  // namespace console

#endif
