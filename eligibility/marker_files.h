#ifndef TARVELOQT_ELIGIBILITY_MARKER_FILES_H
#define TARVELOQT_ELIGIBILITY_MARKER_FILES_H

#include <QString>

namespace eligibility {

// Whether a file of that name lies in the folder of the running executable.
bool isMarkerPresent(const QString& name);

}  // namespace eligibility

#endif
