#include "session/application_folder.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace session {

QString applicationFolder()
{
    if (QCoreApplication::instance() != nullptr) {
        return QCoreApplication::applicationDirPath();
    }
    // The kernel's link: proc(5), /proc/self/exe. It cannot change while the process lives.
    static const QString folder =
        QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget()).path();
    return folder;
}

}  // namespace session
