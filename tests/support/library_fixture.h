// What every test of the renewal library stands on: a home folder of its own, a known clock, empty
// standard input, all exported variables at their start values, an empty script.

#ifndef TARVELOQT_TESTS_SUPPORT_LIBRARY_FIXTURE_H
#define TARVELOQT_TESTS_SUPPORT_LIBRARY_FIXTURE_H

#include "card_script.h"
#include "card_v_func.h"
#include "clock.h"
#include "printing.h"
#include "standard_streams.h"
#include "test_run.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace support {

class LibraryTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Starts a session and leaves the banner out of what log() gives.
    void startSession();

    // A session with this reader and PIN in its settings.
    void startSession(const QString& readerName, const QString& pin);

    // Writes "key" = value into the settings row; a null value removes the key.
    void setting(const QString& key, const QString& value);

    // What was logged since startSession, stamps masked; what the library still holds is flushed
    // first.
    std::string log();

    // The same, without flushing: what another process would see now.
    std::string logOnDisk() const;

    // Makes an empty file beside the executable, for as long as the test runs.
    void placeMarker(const std::string& name);

    // Standard input from here on.
    void answer(const std::string& bytes);

    std::string logPath() const { return home + "/.brisko/TarveloQT.log"; }
    std::string configurationPath() const { return home + "/.brisko/brisko-r.conf"; }

    RenewContext context;
    std::string home;
    std::unique_ptr<StandardInput> input;

private:
    std::vector<std::string> m_markers;
    std::size_t m_logStart = 0;
};

// The whole file, or nothing when there is none.
std::string fileContents(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);

// All exported variables at their start values.
void resetVariables();

}  // namespace support

#endif
