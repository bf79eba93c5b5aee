// Text for a screen of fixed width. Pure functions; widths are in terminal columns.

#ifndef TARVELOQT_HOSTS_CONSOLE_TEXT_LAYOUT_H
#define TARVELOQT_HOSTS_CONSOLE_TEXT_LAYOUT_H

#include "hosts/texts/printable.h"

#include <QString>

namespace console {

constexpr int screenWidth = 80;

using texts::printable;

// Columns that the text takes: two for wide East Asian characters, none for combining ones.
// Depends on the locale set with setlocale; in the C locale every character counts one.
int displayWidth(const QString& text);

// Exactly `width` columns: filled up with blanks, or cut and ended with "..".
QString fitted(const QString& text, int width);

// The text broken at blanks into lines of at most screenWidth - 1 columns, every line begun with
// `indent` blanks. A word longer than a line stays whole on its own line. No newline at the end.
QString wrapped(const QString& text, int indent = 0);

}  // namespace console

#endif
