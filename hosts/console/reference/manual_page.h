// The manual page of tarvelo-renew.

#ifndef TARVELOQT_HOSTS_CONSOLE_REFERENCE_MANUAL_PAGE_H
#define TARVELOQT_HOSTS_CONSOLE_REFERENCE_MANUAL_PAGE_H

#include "hosts/console/language.h"

#include <string>

namespace console::reference {

// tarvelo-renew(1) for man(7), UTF-8.
std::string manualPage(Language language);

}  // namespace console::reference

#endif
