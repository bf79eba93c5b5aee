// Why a PKCS#11 module does not load or start.

#ifndef TARVELOQT_HOSTS_CONSOLE_MODULE_FINDINGS_H
#define TARVELOQT_HOSTS_CONSOLE_MODULE_FINDINGS_H

#include "hosts/console/finding.h"

#include <QString>

namespace console {

// name: as the ATR table has it; file: what that leads to, empty when it is not known. Loads the
// file, as the card libraries did.
Finding unloadableModule(const QString& name, const QString& file);

// A module that loads and then fails with this text. Of SoftHSM2 the configuration is looked at.
Finding failingModule(const QString& name, const QString& text);

}  // namespace console

#endif
