#ifndef TARVELOQT_ELIGIBILITY_LIMITATION_QUESTION_H
#define TARVELOQT_ELIGIBILITY_LIMITATION_QUESTION_H

namespace eligibility {

// Asks the user whether the limitation of use is to be removed: in a modal message box when the
// process has a widget application, else on standard output and standard input. Anything but a
// plain yes keeps the limitation.
bool askToRemoveLimitation();

}  // namespace eligibility

#endif
