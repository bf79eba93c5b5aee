// docs/doctor.md.

#ifndef TARVELOQT_HOSTS_CONSOLE_REFERENCE_FINDING_PAGE_H
#define TARVELOQT_HOSTS_CONSOLE_REFERENCE_FINDING_PAGE_H

#include <string>

namespace console::reference {

// Markdown, UTF-8: what doctor finds, in both languages.
std::string findingPage();

}  // namespace console::reference

#endif
