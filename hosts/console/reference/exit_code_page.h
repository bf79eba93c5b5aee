// docs/exit-codes.md.

#ifndef TARVELOQT_HOSTS_CONSOLE_REFERENCE_EXIT_CODE_PAGE_H
#define TARVELOQT_HOSTS_CONSOLE_REFERENCE_EXIT_CODE_PAGE_H

#include <string>

namespace console::reference {

// Markdown, UTF-8: the table of exit codes in both languages.
std::string exitCodePage();

}  // namespace console::reference

#endif
