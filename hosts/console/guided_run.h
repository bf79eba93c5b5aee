// The guided run: everything in one go, each step shown and confirmed.

#ifndef TARVELOQT_HOSTS_CONSOLE_GUIDED_RUN_H
#define TARVELOQT_HOSTS_CONSOLE_GUIDED_RUN_H

#include "hosts/console/arguments.h"

#include <QJsonObject>

namespace console {

// Session, reader, PIN, checks, table, choice, plan, confirmation, request, authority,
// installation, table again. Throws Stop.
void guidedRun(const Arguments& arguments, QJsonObject& answer);

}  // namespace console

#endif
