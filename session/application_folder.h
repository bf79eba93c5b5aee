#ifndef TARVELOQT_SESSION_APPLICATION_FOLDER_H
#define TARVELOQT_SESSION_APPLICATION_FOLDER_H

#include <QString>

namespace session {

// The folder that holds the running executable, links resolved, without a trailing "/". Works with
// and without a Qt application object.
QString applicationFolder();

}  // namespace session

#endif
