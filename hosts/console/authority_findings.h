// Whether the way to the certification authority that the command line names can be gone.

#ifndef TARVELOQT_HOSTS_CONSOLE_AUTHORITY_FINDINGS_H
#define TARVELOQT_HOSTS_CONSOLE_AUTHORITY_FINDINGS_H

#include "hosts/console/arguments.h"
#include "hosts/console/finding.h"

#include <vector>

namespace console {

// Of the way that is chosen; empty when certificates are fetched by hand. Sends no request.
std::vector<Finding> authorityFindings(const Arguments& arguments);

}  // namespace console

#endif
