#include "tests/cardlibs/service_socket.h"

#include "tests/cardlibs/card_fixture.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace cardlibs_test {
namespace {

// pcsc-lite's protocol, as far as a client comes that gets no context: each question is a header
// and a body, each answer the body alone with the result in it.
struct Header {
    std::uint32_t bodySize;
    std::uint32_t command;
};
constexpr std::uint32_t commandVersion = 0x11;
constexpr std::size_t resultAt = 8;
using Body = std::array<unsigned char, 12>;

bool receiveAll(int socket, void* data, std::size_t size)
{
    return recv(socket, data, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

bool receiveQuestion(int client, Header& header, Body& body)
{
    return receiveAll(client, &header, sizeof header) && header.bodySize == body.size() &&
           receiveAll(client, body.data(), body.size());
}

}  // namespace

const std::filesystem::path& serviceSocketFile()
{
    static const TemporaryFolder folder;
    static const std::filesystem::path file = folder.path() / "service" / "socket";
    // libpcsclite reads the variable at its first call and keeps it.
    static const bool isChosen = std::filesystem::create_directory(file.parent_path()) &&
                                 setenv("PCSCLITE_CSOCK_NAME", file.c_str(), 1) == 0;
    if (!isChosen)
        throw std::runtime_error("no folder for the service's socket");
    std::filesystem::permissions(folder.path(), std::filesystem::perms::others_exec |
                                                    std::filesystem::perms::owner_all);
    return file;
}

ServiceSocket::ServiceSocket(Manner manner, std::uint32_t result)
    : m_manner(manner)
    , m_result(result)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string file = serviceSocketFile().string();
    if (file.size() >= sizeof address.sun_path)
        throw std::runtime_error("path too long: " + file);
    file.copy(address.sun_path, file.size());
    unlink(file.c_str());
    m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* raw = reinterpret_cast<const sockaddr*>(&address);
    if (m_listener < 0 || bind(m_listener, raw, sizeof address) != 0 ||
        listen(m_listener, 5) != 0 || pipe(m_end) != 0)
        throw std::runtime_error("cannot listen on " + file);
    m_thread = std::thread([this] { serve(); });
}

ServiceSocket::~ServiceSocket()
{
    // Closed rather than written to: the silent one watches for it with a client at hand.
    close(m_end[1]);
    m_thread.join();
    close(m_end[0]);
    close(m_listener);
    unlink(serviceSocketFile().c_str());
}

void ServiceSocket::serve()
{
    for (;;) {
        pollfd watched[] = {{m_end[0], POLLIN, 0}, {m_listener, POLLIN, 0}};
        if (poll(watched, 2, -1) < 0 || watched[0].revents != 0)
            return;
        const int client = accept(m_listener, nullptr, nullptr);
        if (client < 0)
            return;
        if (m_manner == Manner::silent)
            poll(watched, 1, -1);
        else if (m_manner != Manner::closing)
            answer(client);
        close(client);
    }
}

void ServiceSocket::answer(int client) const
{
    Header header = {};
    Body body = {};
    while (receiveQuestion(client, header, body) && m_manner == Manner::answering) {
        const std::uint32_t result = header.command == commandVersion ? 0 : m_result;
        std::memcpy(body.data() + resultAt, &result, sizeof result);
        if (send(client, body.data(), body.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(body.size()))
            return;
    }
}

}  // namespace cardlibs_test
