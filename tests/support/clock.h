// The clock of the test process: real time, or real time moved by a fixed amount.
//
// The test executable's own time(), gettimeofday() and clock_gettime() come before the C library's,
// so that Qt and the library under test see the moved time. It runs on as usual.

#ifndef TARVELOQT_TESTS_SUPPORT_CLOCK_H
#define TARVELOQT_TESTS_SUPPORT_CLOCK_H

#include <QDateTime>

namespace support {

// Moves the clock so that it now shows this local time.
void setLocalTime(const QDateTime& localTime);

// Back to real time, moved by ten minutes when midnight is near, so that a test lies in one day.
void resetClock();

// The bounds of what the clock has shown since resetClock.
QDateTime earliestShown();
QDateTime latestShown();

}  // namespace support

#endif
