// The library's log, for a person who wants to read or send it.

#ifndef TARVELOQT_HOSTS_CONSOLE_LOG_COMMAND_H
#define TARVELOQT_HOSTS_CONSOLE_LOG_COMMAND_H

#include "hosts/console/arguments.h"

#include <QJsonObject>

namespace console {

// Shows the log's path and its last lines. Starts no session, which would write into it. Throws
// Stop (fileFailed).
void showLog(const Arguments& arguments, QJsonObject& answer);

}  // namespace console

#endif
