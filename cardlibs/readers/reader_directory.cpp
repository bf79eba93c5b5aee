#include "cardlibs/readers/reader_directory.h"

#include "cardlibs/readers/pcsc_readers.h"
#include "cardlibs/state/card_error.h"

#include <algorithm>
#include <optional>

namespace cardlibs::readers {
namespace {

using state::CardError;
namespace fault = state::fault;

// What the module may do to see tokens that changed since it last looked.
enum class Look { asItIs, afresh };

struct FoundToken {
    token::Module* module = nullptr;
    CK_SLOT_ID slot = 0;
    token::TokenInfo info;
};

std::vector<std::string> softwareModules(const AtrTable& table)
{
    std::vector<std::string> modules;
    for (const TableEntry& entry : table.entries)
        if (entry.kind == EntryKind::softwareToken &&
            std::find(modules.begin(), modules.end(), entry.module) == modules.end())
            modules.push_back(entry.module);
    return modules;
}

void collectTokens(token::Module& module, Look look, std::vector<FoundToken>& tokens)
{
    module.ensureInitialised();
    if (look == Look::afresh)
        module.reinitialise();
    for (const CK_SLOT_ID slot : module.slotsWithToken(look == Look::afresh)) {
        token::TokenInfo info;
        try {
            info = module.tokenInfo(slot);
        } catch (const CardError&) {
            // A token that just went away is no reader, and must not hide the others.
            continue;
        }
        if (info.has(CKF_TOKEN_INITIALIZED))
            tokens.push_back({&module, slot, std::move(info)});
    }
}

// A module that fails does not hide the tokens of the others; the first failure is kept.
std::vector<FoundToken> softwareTokens(const AtrTable& table, Look look,
                                       std::optional<CardError>& failure)
{
    std::vector<FoundToken> tokens;
    for (const std::string& name : softwareModules(table)) {
        try {
            collectTokens(token::Module::load(name), look, tokens);
        } catch (const CardError& error) {
            if (!failure)
                failure = error;
        }
    }
    return tokens;
}

std::optional<CardPlace> softwareCard(const AtrTable& table, const std::string& readerName,
                                      Look look, std::optional<CardError>& failure)
{
    std::vector<FoundToken> named;
    for (FoundToken& token : softwareTokens(table, look, failure))
        if (softwareReaderName(token.info) == readerName)
            named.push_back(std::move(token));
    if (named.empty())
        return std::nullopt;
    if (named.size() > 1)
        throw CardError(fault::readerAmbiguous, readerName);
    FoundToken& token = named.front();
    const TableEntry* entry = table.findToken(token.info.manufacturer, token.info.model);
    if (entry == nullptr)
        throw CardError(fault::unknownCard, table.firstComplaint());
    return CardPlace{token.module, token.slot, *entry, std::move(token.info)};
}

// PKCS #11 v2.40, CK_SLOT_INFO.
constexpr std::size_t slotDescriptionSize = 64;

std::vector<CK_SLOT_ID> slotsOf(token::Module& module, const std::string& readerName, Look look)
{
    module.ensureInitialised();
    if (look == Look::afresh)
        module.reinitialise();
    std::vector<CK_SLOT_ID> slots;
    for (const CK_SLOT_ID slot : module.slotsWithToken(look == Look::afresh))
        if (module.slotInfo(slot).description == readerName.substr(0, slotDescriptionSize))
            slots.push_back(slot);
    return slots;
}

CardPlace cardInReader(const AtrTable& table, const PcscReader& reader)
{
    if (!reader.hasCard)
        throw CardError(CKR_TOKEN_NOT_PRESENT);
    if (reader.isMute)
        throw CardError(CKR_TOKEN_NOT_RECOGNIZED);
    const TableEntry* entry = table.findCard(reader.atr);
    if (entry == nullptr) {
        const std::string complaint = table.firstComplaint();
        throw CardError(fault::unknownCard, "ATR " + hexadecimal(reader.atr) +
                                                (complaint.empty() ? "" : "; " + complaint));
    }
    token::Module& module = token::Module::load(entry->module);
    for (const Look look : {Look::asItIs, Look::afresh}) {
        const std::vector<CK_SLOT_ID> slots = slotsOf(module, reader.name, look);
        if (slots.size() > 1)
            throw CardError(fault::readerAmbiguous, reader.name);
        if (!slots.empty())
            return {&module, slots.front(), *entry, module.tokenInfo(slots.front())};
    }
    throw CardError(fault::slotNotFound, reader.name);
}

// A name that the list could not hold would be cut or taken for two.
bool isListable(const std::string& name)
{
    return !name.empty() && name.size() <= longestReaderName && name.find('|') == std::string::npos;
}

unsigned long faultOf(PcscService service)
{
    switch (service) {
    case PcscService::stopped:
        return fault::serviceStopped;
    case PcscService::refusing:
        return fault::serviceRefused;
    case PcscService::failing:
        return fault::serviceFailed;
    case PcscService::running:
        break;
    }
    return fault::noReader;
}

}  // namespace

std::string softwareReaderName(const token::TokenInfo& info)
{
    std::string name = info.label + " " + info.serialNumber;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c < 0x20 || c > 0x7E || c == '|'; }, '_');
    return name.substr(0, longestReaderName);
}

std::vector<std::string> readerNames(const AtrTable& table)
{
    std::optional<CardError> failure;
    std::vector<std::string> software;
    for (const FoundToken& token : softwareTokens(table, Look::afresh, failure))
        if (table.findToken(token.info.manufacturer, token.info.model) != nullptr)
            software.push_back(softwareReaderName(token.info));
    std::sort(software.begin(), software.end());

    const PcscListing pcsc = listPcscReaders();
    std::vector<std::string> names;
    for (const PcscReader& reader : pcsc.readers)
        if (isListable(reader.name))
            names.push_back(reader.name);
    names.insert(names.end(), software.begin(), software.end());
    if (!names.empty())
        return names;
    throw CardError(faultOf(pcsc.service), failure ? failure->text() : std::string());
}

CardPlace findCard(const AtrTable& table, const std::string& readerName)
{
    if (readerName.empty())
        throw CardError(fault::invalidArgument, "reader");
    std::optional<CardError> failure;
    if (auto place = softwareCard(table, readerName, Look::asItIs, failure))
        return std::move(*place);
    const PcscListing pcsc = listPcscReaders();
    for (const PcscReader& reader : pcsc.readers)
        if (reader.name == readerName)
            return cardInReader(table, reader);
    if (auto place = softwareCard(table, readerName, Look::afresh, failure))
        return std::move(*place);
    if (failure)
        throw CardError(*failure);
    if (pcsc.service == PcscService::running || !softwareModules(table).empty())
        throw CardError(fault::readerNotFound, readerName);
    throw CardError(faultOf(pcsc.service));
}

}  // namespace cardlibs::readers
