#include "cardlibs/molvane/card_access.h"

#include "cardlibs/readers/reader_directory.h"
#include "cardlibs/state/shared_state.h"
#include "cardlibs/token/session.h"

#include <memory>
#include <optional>

namespace cardlibs::molvane {
namespace {

using state::CardError;
namespace fault = state::fault;

constexpr std::size_t longestModuleName = 63;

struct CardAccess {
    std::unique_ptr<token::Session> session;
    std::optional<readers::TableEntry> entry;
};

CardAccess& access()
{
    // Never destroyed: by the time a process ends, the module of a session left open may have ended
    // before.
    static auto& current = *new CardAccess;
    return current;
}

token::Session& session()
{
    if (!access().session)
        throw CardError(fault::noOpenSession);
    return *access().session;
}

readers::CardPlace lookUp(const std::string& reader, const std::string& tablePath)
{
    access().entry.reset();
    if (!tablePath.empty())
        state::sharedState().tablePath = tablePath;
    const readers::AtrTable table = readers::readAtrTable(state::currentTablePath());
    readers::CardPlace place = readers::findCard(table, reader);
    access().entry = place.entry;
    return place;
}

}  // namespace

std::vector<std::string> readerNames()
{
    return readers::readerNames(readers::readAtrTable(state::currentTablePath()));
}

void openSession(const std::string& reader, const std::string& tablePath)
{
    closeSession();
    const readers::CardPlace place = lookUp(reader, tablePath);
    access().session =
        std::make_unique<token::Session>(*place.module, place.slot, token::Access::readOnly);
}

void closeSession()
{
    access().session.reset();
}

std::string moduleFileName(const std::string& reader, const std::string& tablePath)
{
    std::string name = lookUp(reader, tablePath).module->fileName();
    if (name.size() > longestModuleName)
        throw CardError(fault::moduleNameTooLong, name);
    return name;
}

bool isCns()
{
    return access().entry && access().entry->isCns;
}

bool isFerrolux()
{
    return access().entry && access().entry->isFerrolux;
}

void login(const char* pin)
{
    token::Session& open = session();
    // Asked afresh: a try in this session may have been the last one.
    open.module().tokenInfo(open.slot()).checkBeforeLogin(pin);
    open.login(pin);
}

bool isToBeActivated(long slot)
{
    token::Session& open = session();
    // Callers pass the number on that getSlotBriskoLite gave them, an int.
    if (static_cast<int>(slot) != static_cast<int>(open.slot()))
        throw CardError(CKR_SLOT_ID_INVALID);
    return !open.module().tokenInfo(open.slot()).isActivated();
}

TokenIdentity identity()
{
    token::Session& open = session();
    const token::SlotInfo slotInfo = open.module().slotInfo(open.slot());
    const token::TokenInfo info = open.module().tokenInfo(open.slot());
    return {slotInfo.description, info.manufacturer, info.model, info.serialNumber};
}

CK_SLOT_ID slot()
{
    return session().slot();
}

}  // namespace cardlibs::molvane
