#include "cardlibs/readers/pcsc_readers.h"

#include <winscard.h>

#include <algorithm>

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
    reader.hasCard = (state.dwEventState & SCARD_STATE_PRESENT) != 0;
    reader.isMute = (state.dwEventState & SCARD_STATE_MUTE) != 0;
    if (reader.hasCard)
        reader.atr.assign(state.rgbAtr,
                          state.rgbAtr + std::min<DWORD>(state.cbAtr, sizeof state.rgbAtr));
    return reader;
}

}  // namespace

PcscListing listPcscReaders()
{
    PcscListing listing;
    const Context context;
    if (context.result() != SCARD_S_SUCCESS) {
        listing.service = serviceAfter(context.result());
        return listing;
    }
    std::vector<std::string> names;
    listing.service = serviceAfter(readNames(context, names));
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        listing.readers.push_back(readerState(context, name));
    return listing;
}

}  // namespace cardlibs::readers
