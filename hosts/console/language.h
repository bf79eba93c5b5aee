// The hosts' texts, under the names that the console uses.

#ifndef TARVELOQT_HOSTS_CONSOLE_LANGUAGE_H
#define TARVELOQT_HOSTS_CONSOLE_LANGUAGE_H

#include "hosts/texts/language.h"

namespace console {

using texts::Language;
using texts::language;
using texts::languageNamed;
using texts::languageOfEnvironment;
using texts::setLanguage;
using texts::Text;

}  // namespace console

#endif
