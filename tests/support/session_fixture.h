// A session's banner and the log as a whole.

#ifndef TARVELOQT_TESTS_SUPPORT_SESSION_FIXTURE_H
#define TARVELOQT_TESTS_SUPPORT_SESSION_FIXTURE_H

#include "library_fixture.h"

#include <string>

namespace support {

class SessionTest : public LibraryTest {
protected:
    static void startAt(int year, int month, int day, int hour, int minute, int second);

    // Makes another folder the home folder, which need not exist.
    void moveHome(const std::string& folder);

    // The log file, with the banner, stamps masked.
    std::string wholeLog();

    // The banner of a session that began at this date, in this test's home folder.
    std::string banner(const std::string& startDate) const;
};

}  // namespace support

#endif
