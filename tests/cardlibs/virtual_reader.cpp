#include "tests/cardlibs/virtual_reader.h"

#include "cardlibs/readers/pcsc_readers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>

namespace cardlibs_test {
namespace {

using cardlibs::Bytes;
using cardlibs::readers::listPcscReaders;
using cardlibs::readers::PcscService;

constexpr char daemonFile[] = "/usr/sbin/pcscd";
constexpr char socketFile[] = "/run/pcscd/pcscd.comm";
constexpr char driverFile[] = "/usr/lib/pcsc/drivers/serial/libifdvpcd.so";
// Where vsmartcard-vpcd waits for the card of its first reader; the second is one above.
constexpr std::uint16_t firstPort = 35963;

template <typename Condition>
bool waitFor(Condition&& condition)
{
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + seconds(10);
    while (!condition()) {
        if (steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(milliseconds(50));
    }
    return true;
}

}  // namespace

PcscDaemon::PcscDaemon()
{
    const auto file = std::filesystem::temp_directory_path() / "tarveloqt-pcscd.lock";
    m_lock = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (m_lock < 0 || flock(m_lock, LOCK_EX) != 0)
        throw std::runtime_error("cannot lock " + file.string());
}

PcscDaemon::~PcscDaemon()
{
    stop();
    close(m_lock);
}

std::string PcscDaemon::obstacle()
{
    if (geteuid() != 0)
        return "pcscd needs root";
    if (!std::filesystem::exists(daemonFile))
        return std::string(daemonFile) + " is not installed";
    if (!std::filesystem::exists(driverFile))
        return "vsmartcard-vpcd is not installed";
    if (listPcscReaders().service != PcscService::stopped)
        return "another pcscd is running";
    return {};
}

bool PcscDaemon::start()
{
    m_daemon = fork();
    if (m_daemon == 0) {
        const int null = open("/dev/null", O_RDWR);
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execl(daemonFile, daemonFile, "--foreground", static_cast<char*>(nullptr));
        _exit(127);
    }
    return m_daemon > 0 && waitFor([] { return listPcscReaders().readers.size() >= 2; });
}

void PcscDaemon::stop()
{
    if (m_daemon <= 0)
        return;
    thaw();
    kill(m_daemon, SIGTERM);
    waitpid(m_daemon, nullptr, 0);
    m_daemon = -1;
    waitFor([] { return listPcscReaders().service == PcscService::stopped; });
}

void PcscDaemon::freeze()
{
    if (m_daemon > 0 && kill(m_daemon, SIGSTOP) == 0)
        waitpid(m_daemon, nullptr, WUNTRACED);
}

void PcscDaemon::thaw()
{
    if (m_daemon > 0)
        kill(m_daemon, SIGCONT);
}

void PcscDaemon::permitSocket(bool isPermitted)
{
    std::filesystem::permissions(socketFile,
                                 static_cast<std::filesystem::perms>(isPermitted ? 0666 : 0600));
}

VirtualCard::VirtualCard(int reader, Bytes atr)
    : m_atr(std::move(atr))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(firstPort + reader));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_socket < 0)
        return;
    const auto* raw = reinterpret_cast<const sockaddr*>(&address);
    if (connect(m_socket, raw, sizeof address) != 0) {
        close(m_socket);
        m_socket = -1;
        return;
    }
    m_thread = std::thread([this] { serve(); });
    const std::string name = reader == 0 ? firstReader : secondReader;
    waitFor([&] {
        for (const auto& state : listPcscReaders().readers)
            if (state.name == name && state.hasCard && (state.isMute || state.atr == m_atr))
                return true;
        return false;
    });
}

VirtualCard::~VirtualCard()
{
    if (m_socket < 0)
        return;
    shutdown(m_socket, SHUT_RDWR);
    m_thread.join();
    close(m_socket);
}

// Two bytes of length, then the message; one byte alone is a command of the reader, of which only
// the question for the ATR (4) is answered.
void VirtualCard::serve()
{
    Bytes message;
    while (receive(message)) {
        const bool isCommand = message.size() == 1;
        if (isCommand && message[0] != 4)
            continue;
        if (!send(isCommand ? m_atr : Bytes{0x6D, 0x00}))
            return;
    }
}

bool VirtualCard::receive(Bytes& message)
{
    unsigned char header[2] = {};
    // The reader sends the length on its own and holds the rest back until that is acknowledged,
    // which takes 40 ms unless asked for each time.
    const int atOnce = 1;
    if (setsockopt(m_socket, IPPROTO_TCP, TCP_QUICKACK, &atOnce, sizeof atOnce) != 0)
        return false;
    if (recv(m_socket, header, sizeof header, MSG_WAITALL) != sizeof header)
        return false;
    message.resize(static_cast<std::size_t>(header[0] << 8 | header[1]));
    return recv(m_socket, message.data(), message.size(), MSG_WAITALL) ==
           static_cast<ssize_t>(message.size());
}

bool VirtualCard::send(const Bytes& message)
{
    Bytes frame = {static_cast<unsigned char>(message.size() >> 8),
                   static_cast<unsigned char>(message.size() & 0xFF)};
    frame.insert(frame.end(), message.begin(), message.end());
    return ::send(m_socket, frame.data(), frame.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(frame.size());
}

}  // namespace cardlibs_test
