// The PIN from a file or from the environment, for runs that nobody watches.

#ifndef TARVELOQT_HOSTS_CONSOLE_PIN_SOURCE_H
#define TARVELOQT_HOSTS_CONSOLE_PIN_SOURCE_H

#include <QString>

namespace console {

// Characters that the library's inventory wants; anything else is kept from the card.
constexpr int pinLength = 8;

// The first line of the file, without its line end. Throws Stop when the file cannot be read. Every
// byte buffer used on the way is overwritten.
QString pinFromFile(const QString& path);

// The first line that is read from the open file descriptor, likewise. Throws Stop when it is not
// open for reading.
QString pinFromDescriptor(int descriptor);

// The variable's value; the variable is overwritten and removed, so that programs started later do
// not inherit it. Throws Stop when it is not set.
QString pinFromEnvironment(const QString& variable);

// Overwrites the text in place, in every QString that shares it.
void wipe(QString& text);

}  // namespace console

#endif
