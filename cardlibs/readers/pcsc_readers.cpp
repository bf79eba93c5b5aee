#include "cardlibs/readers/pcsc_readers.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <winscard.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace cardlibs::readers {
namespace {

class Context {
public:
    Context() { m_result = SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &m_handle); }
    ~Context()
    {
        if (m_result == SCARD_S_SUCCESS)
            SCardReleaseContext(m_handle);
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    LONG result() const { return m_result; }
    SCARDCONTEXT handle() const { return m_handle; }

private:
    SCARDCONTEXT m_handle = 0;
    LONG m_result = SCARD_S_SUCCESS;
};

// Where libpcsclite looks for the service: pcscd(8), and pcsc-lite's environment variable.
const char* serviceSocket()
{
    const char* chosen = std::getenv("PCSCLITE_CSOCK_NAME");
    return chosen != nullptr ? chosen : "/run/pcscd/pcscd.comm";
}

// False when nobody is there to answer; a service that this user may not connect to is there.
bool isServiceThere()
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = serviceSocket();
    if (path.size() >= sizeof address.sun_path)
        return false;
    path.copy(address.sun_path, path.size());
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (connection < 0)
        return false;
    const auto* raw = reinterpret_cast<const sockaddr*>(&address);
    const bool isThere =
        connect(connection, raw, sizeof address) == 0 || errno == EACCES || errno == EAGAIN;
    close(connection);
    return isThere;
}

PcscService serviceAfter(LONG result)
{
    switch (result) {
    case SCARD_S_SUCCESS:
    case SCARD_E_NO_READERS_AVAILABLE:
        return PcscService::running;
    case SCARD_E_NO_SERVICE:
    case SCARD_E_SERVICE_STOPPED:
        return PcscService::stopped;
    case SCARD_W_SECURITY_VIOLATION:
    case SCARD_E_NO_ACCESS:
        return PcscService::refusing;
    default:
        return PcscService::failing;
    }
}

// libpcsclite tells no difference between a service that is not there and one whose socket this
// user may not use; and pcscd turns away whom its policy keeps out by ending the connection, which
// comes as either of these two or as a violation.
PcscService serviceWithoutContext(LONG result)
{
    if (result == SCARD_E_NO_SERVICE || result == SCARD_F_COMM_ERROR)
        return isServiceThere() ? PcscService::refusing : PcscService::stopped;
    return serviceAfter(result);
}

// Names one after the other, each with its NUL, and an empty one last.
std::vector<std::string> splitNames(const std::vector<char>& multiple)
{
    std::vector<std::string> names;
    const char* at = multiple.data();
    const char* end = at + multiple.size();
    while (at < end && *at != '\0') {
        const char* stop = std::find(at, end, '\0');
        names.emplace_back(at, stop);
        at = stop == end ? end : stop + 1;
    }
    return names;
}

LONG readNames(const Context& context, std::vector<std::string>& names)
{
    LONG result = SCARD_E_INSUFFICIENT_BUFFER;
    // A reader may be plugged in between the question for the size and that for the names.
    for (int attempt = 0; attempt < 3 && result == SCARD_E_INSUFFICIENT_BUFFER; ++attempt) {
        DWORD size = 0;
        result = SCardListReaders(context.handle(), nullptr, nullptr, &size);
        if (result != SCARD_S_SUCCESS)
            return result;
        std::vector<char> buffer(size);
        result = SCardListReaders(context.handle(), nullptr, buffer.data(), &size);
        if (result == SCARD_S_SUCCESS)
            names = splitNames(buffer);
    }
    return result;
}

PcscReader readerState(const Context& context, const std::string& name)
{
    PcscReader reader;
    reader.name = name;
    SCARD_READERSTATE state = {};
    state.szReader = name.c_str();
    state.dwCurrentState = SCARD_STATE_UNAWARE;
    // A reader that vanished in this moment has no card; the next look no longer finds it.
    if (SCardGetStatusChange(context.handle(), 0, &state, 1) != SCARD_S_SUCCESS)
        return reader;
    reader.isStateKnown =
        (state.dwEventState & (SCARD_STATE_UNKNOWN | SCARD_STATE_UNAVAILABLE)) == 0;
    reader.hasCard = (state.dwEventState & SCARD_STATE_PRESENT) != 0;
    reader.isExclusive = (state.dwEventState & SCARD_STATE_EXCLUSIVE) != 0;
    reader.isMute = (state.dwEventState & SCARD_STATE_MUTE) != 0;
    if (reader.hasCard)
        reader.atr.assign(state.rgbAtr,
                          state.rgbAtr + std::min<DWORD>(state.cbAtr, sizeof state.rgbAtr));
    return reader;
}

PcscListing failedListing()
{
    PcscListing listing;
    listing.service = PcscService::failing;
    return listing;
}

PcscListing askService()
{
    PcscListing listing;
    const Context context;
    if (context.result() != SCARD_S_SUCCESS) {
        listing.service = serviceWithoutContext(context.result());
        return listing;
    }
    std::vector<std::string> names;
    listing.service = serviceAfter(readNames(context, names));
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        listing.readers.push_back(readerState(context, name));
    return listing;
}

// A question to the service. libpcsclite waits for an answer without end, so it waits in a thread
// that is left behind when the service hangs.
class Inquiry {
public:
    static std::shared_ptr<Inquiry> begin()
    {
        auto inquiry = std::make_shared<Inquiry>();
        // Signals are for the threads of the program.
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        if (pthread_sigmask(SIG_SETMASK, &all, &before) != 0)
            return nullptr;
        try {
            std::thread([inquiry] { inquiry->answer(); }).detach();
        } catch (const std::system_error&) {
            inquiry.reset();
        }
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return inquiry;
    }

    std::optional<PcscListing> wait(std::chrono::milliseconds patience)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_answered.wait_for(lock, patience, [this] { return m_answer.has_value(); });
        return m_answer;
    }

private:
    void answer() noexcept
    {
        PcscListing listing = failedListing();
        try {
            listing = askService();
        } catch (const std::exception&) {
            // Nothing but memory can be missing, and then the service did not answer.
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_answer = std::move(listing);
        m_answered.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_answered;
    std::optional<PcscListing> m_answer;
};

}  // namespace

PcscListing listPcscReaders(std::chrono::milliseconds patience)
{
    // libpcsclite would have a second question wait for the first, so there is one at a time.
    static std::shared_ptr<Inquiry> overdue;
    if (overdue && !overdue->wait(std::chrono::milliseconds::zero()))
        return failedListing();
    overdue = Inquiry::begin();
    std::optional<PcscListing> answer = overdue ? overdue->wait(patience) : std::nullopt;
    if (!answer)
        return failedListing();
    overdue.reset();
    return std::move(*answer);
}

}  // namespace cardlibs::readers
