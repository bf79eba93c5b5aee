// Something that answers in the place of the PC/SC service, for what a real one cannot be made to
// do.

#ifndef TARVELOQT_TESTS_CARDLIBS_SERVICE_SOCKET_H
#define TARVELOQT_TESTS_CARDLIBS_SERVICE_SOCKET_H

#include <cstdint>
#include <filesystem>
#include <thread>

namespace cardlibs_test {

// The file that libpcsclite takes for the service's socket in this process and in those that it
// starts, from before its first call on. The folder vanishes with the process.
const std::filesystem::path& serviceSocketFile();

enum class Manner {
    // Takes connections and says nothing until it ends.
    silent,
    // Ends each connection: at once, or when it has heard the first question. pcscd does so with
    // clients that its policy keeps out.
    closing,
    hangingUp,
    // Answers the question for a context with a result of the test's choice.
    answering,
};

// Listens on that file as long as the object lives, and answers one client at a time.
class ServiceSocket {
public:
    // result: an error number of PC/SC, for Manner::answering.
    explicit ServiceSocket(Manner manner, std::uint32_t result = 0);
    ~ServiceSocket();
    ServiceSocket(const ServiceSocket&) = delete;
    ServiceSocket& operator=(const ServiceSocket&) = delete;

private:
    void serve();
    void answer(int client) const;

    Manner m_manner;
    std::uint32_t m_result;
    int m_listener = -1;
    // Written to when the object ends.
    int m_end[2] = {-1, -1};
    std::thread m_thread;
};

}  // namespace cardlibs_test

#endif
