#include "eligibility/marker_files.h"

#include "session/application_folder.h"

#include <QFile>

#include <unistd.h>

namespace eligibility {

bool isMarkerPresent(const QString& name)
{
    const QByteArray path =
        QFile::encodeName(session::applicationFolder() + QLatin1Char('/') + name);
    return access(path.constData(), F_OK) == 0;
}

}  // namespace eligibility
