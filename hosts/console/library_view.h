// Readers and cards as far as the renewal library's own operations tell of them: for card libraries
// that describe nothing themselves, and for the reader of the user's configuration.

#ifndef TARVELOQT_HOSTS_CONSOLE_LIBRARY_VIEW_H
#define TARVELOQT_HOSTS_CONSOLE_LIBRARY_VIEW_H

#include "hosts/console/reader_diagnosis.h"

#include <QString>

namespace console {

// The reader that the configuration file names; empty when it names none.
QString configuredReader();

// As diagnoseReaders(). Where the card libraries describe nothing, the diagnosis (isTold false)
// holds the wanted reader, with an empty name the only one, with the identity that the library's
// check of the card tells; of several readers none. Asks nothing, needs no PIN.
Diagnosis lookAtReaders(const QString& wantedReader);

}  // namespace console

#endif
