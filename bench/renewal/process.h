// Other programs, run without a shell, and what they cost.

#ifndef TARVELOQT_BENCH_RENEWAL_PROCESS_H
#define TARVELOQT_BENCH_RENEWAL_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace bench {

struct ProcessEnd {
    // -1 when a signal ended it, 127 when it could not be started.
    int exitCode = -1;
    // From before it was made until its end was known.
    std::chrono::nanoseconds wall{0};
    // User and system time, its own and that of processes it waited for.
    std::chrono::nanoseconds cpu{0};
};

class Process {
public:
    enum class ErrorOutput { ours, withOutput };

    // Starts the program, found through PATH. Throws std::runtime_error.
    Process(const std::vector<std::string>& arguments, ErrorOutput errorOutput);
    // Ends the program when it still runs.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Without the end of the line; empty at the end of the output.
    std::string readLine();
    std::string readAll();
    void writeLine(const std::string& line);
    // Closes its input and waits for its end.
    ProcessEnd end();

private:
    std::string m_program;
    std::chrono::steady_clock::time_point m_start;
    pid_t m_process = -1;
    int m_input = -1;
    int m_output = -1;
};

}  // namespace bench

#endif
