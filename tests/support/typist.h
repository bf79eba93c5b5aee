// A person at standard input and standard output who answers only after having read the question.

#ifndef TARVELOQT_TESTS_SUPPORT_TYPIST_H
#define TARVELOQT_TESTS_SUPPORT_TYPIST_H

#include "standard_streams.h"

#include <functional>
#include <string>
#include <thread>

namespace support {

// Replaces standard input and standard output for as long as it lives.
class Typist {
public:
    // Standard input holds the bytes of `waiting`. When the question is shown on standard output,
    // and the reader has had time to find nothing more, `act` runs, on a thread of its own; then
    // the answer is typed and the input ends.
    Typist(const std::string& waiting, const std::string& question, const std::string& answer,
           const std::function<void()>& act = {});
    ~Typist();
    Typist(const Typist&) = delete;
    Typist& operator=(const Typist&) = delete;

    // Waits for the answer to be typed, and gives everything that was shown. Fails the test when
    // the question was not shown.
    std::string shown();

private:
    void type(const std::string& question, const std::string& answer,
              const std::function<void()>& act);

    int m_keys = -1;
    StandardInput m_input;
    StandardOutput m_output;
    std::string m_shown;
    bool m_asked = false;
    std::thread m_thread;
};

}  // namespace support

#endif
