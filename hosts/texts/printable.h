// Texts of others on a screen of ours.

#ifndef TARVELOQT_HOSTS_TEXTS_PRINTABLE_H
#define TARVELOQT_HOSTS_TEXTS_PRINTABLE_H

#include <QString>

namespace texts {

// The text without control characters, each replaced by "?". Names from cards and answers from
// authorities pass through here, so that they cannot steer the terminal.
QString printable(const QString& text);

}  // namespace texts

#endif
