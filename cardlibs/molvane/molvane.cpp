// The exported functions alone have default visibility; their declarations carry no attribute.
#pragma GCC visibility push(default)
#include "imports/molvane.h"
#pragma GCC visibility pop

#include "cardlibs/molvane/card_access.h"
#include "cardlibs/state/shared_state.h"

#include <cstring>

namespace {

namespace molvane = cardlibs::molvane;
namespace state = cardlibs::state;

using state::CardError;
using state::guarded;

// Callers that hand over nothing mean the same as with an empty text.
std::string textOrEmpty(const char* text)
{
    return text == nullptr ? std::string() : std::string(text);
}

void require(const void* argument, const char* name)
{
    if (argument == nullptr)
        throw CardError(state::fault::invalidArgument, name);
}

void copyText(const std::string& text, char* buffer)
{
    std::memcpy(buffer, text.c_str(), text.size() + 1);
}

}  // namespace

int mvGetReaderName(char* names, long* length)
{
    return guarded(-1, [&] {
        require(names, "names");
        require(length, "length");
        if (*length < 1)
            throw CardError(state::fault::invalidArgument, "length");
        const std::size_t capacity = static_cast<std::size_t>(*length) - 1;
        std::string list;
        int count = 0;
        for (const std::string& name : molvane::readerNames()) {
            // Half a name would be another reader's or nobody's.
            if (list.size() + name.size() + 1 > capacity)
                continue;
            list += name + "|";
            ++count;
        }
        copyText(list, names);
        *length = static_cast<long>(list.size());
        return count;
    });
}

int mvInitializeFromATRLite(char* reader, char* atrTable, char* /*applicationFolder*/)
{
    return guarded(-1, [&] {
        molvane::openSession(textOrEmpty(reader), textOrEmpty(atrTable));
        return 0;
    });
}

int mvIsCNSINCARD()
{
    return guarded(0, [] { return molvane::isCns() ? 1 : 0; });
}

int mvIsFERROLUX()
{
    return guarded(0, [] { return molvane::isFerrolux() ? 1 : 0; });
}

int mvLogin(const char* pin)
{
    return guarded(-1, [&] {
        require(pin, "pin");
        molvane::login(pin);
        return 0;
    });
}

int mvFinalize()
{
    return guarded(-1, [] {
        molvane::closeSession();
        return 0;
    });
}

int mvGetPKCS11FromATRLite(char* reader, char* module, char* atrTable)
{
    return guarded(-1, [&] {
        require(module, "module");
        copyText(molvane::moduleFileName(textOrEmpty(reader), textOrEmpty(atrTable)), module);
        return 0;
    });
}

int mvCNSToBeActivatedLite(long slot)
{
    return guarded(-1, [&] { return molvane::isToBeActivated(slot) ? 1 : 0; });
}

int mvCheckSmartCard(char* slotDescription, char* manufacturerID, char* model, char* serialNumber)
{
    return guarded(-1, [&] {
        require(slotDescription, "slotDescription");
        require(manufacturerID, "manufacturerID");
        require(model, "model");
        require(serialNumber, "serialNumber");
        const molvane::TokenIdentity identity = molvane::identity();
        copyText(identity.slotDescription, slotDescription);
        copyText(identity.manufacturer, manufacturerID);
        copyText(identity.model, model);
        copyText(identity.serialNumber, serialNumber);
        return 0;
    });
}

int getSlotBriskoLite()
{
    return guarded(-1, [] { return static_cast<int>(molvane::slot()); });
}

int mvLastError(char* buffer, int size)
{
    const auto& last = state::sharedState().lastError;
    if (buffer == nullptr || size < 1 || !last)
        return -1;
    const std::size_t length = std::min(last->text.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(buffer, last->text.data(), length);
    buffer[length] = '\0';
    return 0;
}

int mvLastErrno()
{
    const auto& last = state::sharedState().lastError;
    return last ? static_cast<int>(last->number) : 0;
}
