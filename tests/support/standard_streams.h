// Standard input and standard output of the test process, replaced by pipes for as long as an
// object lives.

#ifndef TARVELOQT_TESTS_SUPPORT_STANDARD_STREAMS_H
#define TARVELOQT_TESTS_SUPPORT_STANDARD_STREAMS_H

#include <functional>
#include <string>

namespace support {

// Standard input that holds these bytes and then ends. What an earlier one left in stdio's buffer
// is thrown away.
class StandardInput {
public:
    explicit StandardInput(const std::string& bytes = {});

    // The writer gets the pipe's descriptor and writes the bytes itself.
    explicit StandardInput(const std::function<void(int)>& writer);
    ~StandardInput();
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

    // What nobody has read yet, from stdio's buffer and from the pipe.
    std::string rest();

private:
    int m_saved;
};

// Collects what is written to standard output.
class StandardOutput {
public:
    StandardOutput();
    ~StandardOutput();
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    // What was written and flushed since the last call.
    std::string text();

private:
    int m_saved = -1;
    int m_pipe = -1;
};

}  // namespace support

#endif
