#include "cardlibs/readers/reader_directory.h"

#include "cardlibs/readers/slot_choice.h"

#include <algorithm>
#include <optional>

namespace cardlibs::readers {
namespace {

using state::CardError;
namespace fault = state::fault;

// What the module may do to see tokens that changed since it last looked.
enum class Look { asItIs, afresh };

std::vector<std::string> softwareModules(const AtrTable& table)
{
    std::vector<std::string> modules;
    for (const TableEntry& entry : table.entries)
        if (entry.kind == EntryKind::softwareToken &&
            std::find(modules.begin(), modules.end(), entry.module) == modules.end())
            modules.push_back(entry.module);
    return modules;
}

void prepare(token::Module& module, Look look)
{
    if (look == Look::asItIs || !module.reinitialise())
        module.ensureInitialised();
}

void collectTokens(token::Module& module, Look look, std::vector<SoftwareToken>& tokens)
{
    prepare(module, look);
    for (const CK_SLOT_ID slot : module.slotsWithToken(look == Look::afresh)) {
        token::TokenInfo info;
        try {
            info = module.tokenInfo(slot);
        } catch (const CardError&) {
            // A token that just went away is no reader, and must not hide the others.
            continue;
        }
        if (info.has(CKF_TOKEN_INITIALIZED))
            tokens.push_back({softwareReaderName(info), &module, slot, std::move(info)});
    }
}

// A module that fails does not hide the tokens of the others.
std::vector<SoftwareToken> softwareTokens(const AtrTable& table, Look look,
                                          std::vector<ModuleFailure>& failures)
{
    std::vector<SoftwareToken> tokens;
    for (const std::string& name : softwareModules(table)) {
        try {
            collectTokens(token::Module::load(name), look, tokens);
        } catch (const CardError& error) {
            failures.push_back({name, error});
        }
    }
    return tokens;
}

std::optional<CardPlace> softwareCard(const AtrTable& table, const std::string& readerName,
                                      Look look, std::vector<ModuleFailure>& failures)
{
    const std::vector<SoftwareToken> tokens = softwareTokens(table, look, failures);
    const auto named = std::find_if(tokens.begin(), tokens.end(), [&](const SoftwareToken& token) {
        return token.readerName == readerName;
    });
    if (named == tokens.end())
        return std::nullopt;
    CardPath path;
    return followToCard(table, tokens, *named, path);
}

std::vector<CK_SLOT_ID> slotsOf(token::Module& module, const std::string& readerName, Look look)
{
    prepare(module, look);
    std::vector<CK_SLOT_ID> slots;
    for (const CK_SLOT_ID slot : module.slotsWithToken(look == Look::afresh))
        if (slotDescription(module.slotInfo(slot).description) == slotDescription(readerName))
            slots.push_back(slot);
    return slots;
}

// The slots of two cards whose readers look alike to PKCS#11 cannot be told apart, and one of them
// may be missing.
bool hasTwin(const std::vector<PcscReader>& readers, const PcscReader& reader)
{
    return std::any_of(readers.begin(), readers.end(), [&](const PcscReader& other) {
        return other.hasCard && other.name != reader.name &&
               slotDescription(other.name) == slotDescription(reader.name);
    });
}

// A card with several PINs shows as many tokens, one for each.
CK_SLOT_ID chosenSlot(const CardPath& path)
{
    if (path.slots->size() == 1)
        return path.slots->front();
    std::vector<LabelledSlot> labelled;
    for (const CK_SLOT_ID slot : *path.slots)
        labelled.push_back({slot, path.module->tokenInfo(slot).label});
    return labelled[chooseSlot(labelled, path.match->entry->tokenLabel)].slot;
}

const PcscReader* findReader(const std::vector<PcscReader>& readers, const std::string& readerName)
{
    const PcscReader* found = nullptr;
    for (const PcscReader& reader : readers) {
        if (reader.name == readerName)
            return &reader;
        if (listableName(reader.name) != readerName)
            continue;
        if (found != nullptr)
            throw CardError(fault::readerAmbiguous, readerName);
        found = &reader;
    }
    return found;
}

// A detail for an error that an entry with a mistake may be the cause of.
std::string withComplaint(const std::string& detail, const AtrTable& table)
{
    const std::string complaint = table.firstComplaint();
    return detail + (detail.empty() || complaint.empty() ? "" : "; ") + complaint;
}

CardPlace placeAt(const CardPath& path)
{
    return {path.module, *path.slot, *path.match->entry, *path.token};
}

}  // namespace

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

std::string listableName(std::string name)
{
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c < 0x20 || c > 0x7E || c == '|'; }, '_');
    return name.substr(0, longestReaderName);
}

std::string softwareReaderName(const token::TokenInfo& info)
{
    return listableName(info.label + " " + info.serialNumber);
}

ReaderListing listReaders(const AtrTable& table)
{
    ReaderListing listing;
    listing.tokens = softwareTokens(table, Look::afresh, listing.failures);
    std::stable_sort(listing.tokens.begin(), listing.tokens.end(),
                     [](const SoftwareToken& one, const SoftwareToken& other) {
                         return one.readerName < other.readerName;
                     });
    PcscListing pcsc = listPcscReaders();
    listing.service = pcsc.service;
    listing.pcsc = std::move(pcsc.readers);
    return listing;
}

bool isReader(const AtrTable& table, const SoftwareToken& token)
{
    return table.matchToken(token.info.manufacturer, token.info.model).entry != nullptr;
}

std::vector<std::string> readerNames(const AtrTable& table)
{
    const ReaderListing listing = listReaders(table);
    std::vector<std::string> names;
    for (const PcscReader& reader : listing.pcsc)
        names.push_back(listableName(reader.name));
    for (const SoftwareToken& token : listing.tokens)
        if (isReader(table, token))
            names.push_back(token.readerName);
    if (!names.empty())
        return names;
    throw CardError(faultOf(listing.service),
                    withComplaint(listing.failures.empty() ? std::string()
                                                           : listing.failures.front().error.text(),
                                  table));
}

void followToEntry(const AtrTable& table, const Bytes& atr, CardPath& path)
{
    path.match = table.matchCard(atr);
    if (path.match->entry != nullptr)
        return;
    throw CardError(fault::unknownCard, withComplaint("ATR " + hexadecimal(atr), table));
}

CardPlace followToCard(const AtrTable& table, const std::vector<PcscReader>& readers,
                       const PcscReader& reader, CardPath& path)
{
    if (!reader.hasCard)
        throw CardError(CKR_TOKEN_NOT_PRESENT);
    if (reader.isMute)
        throw CardError(CKR_TOKEN_NOT_RECOGNIZED);
    followToEntry(table, reader.atr, path);
    path.module = &token::Module::load(path.match->entry->module);
    if (hasTwin(readers, reader))
        throw CardError(fault::readerAmbiguous, reader.name);
    for (const Look look : {Look::asItIs, Look::afresh}) {
        path.slots = slotsOf(*path.module, reader.name, look);
        if (!path.slots->empty()) {
            path.slot = chosenSlot(path);
            path.token = path.module->tokenInfo(*path.slot);
            return placeAt(path);
        }
    }
    throw CardError(fault::slotNotFound, reader.name);
}

CardPlace followToCard(const AtrTable& table, const std::vector<SoftwareToken>& tokens,
                       const SoftwareToken& token, CardPath& path)
{
    path.module = token.module;
    path.token = token.info;
    path.match = table.matchToken(token.info.manufacturer, token.info.model);
    path.slots.emplace();
    for (const SoftwareToken& other : tokens)
        if (other.readerName == token.readerName)
            path.slots->push_back(other.slot);
    if (path.slots->size() > 1)
        throw CardError(fault::readerAmbiguous, token.readerName);
    path.slot = token.slot;
    if (path.match->entry == nullptr)
        throw CardError(fault::unknownCard, withComplaint("", table));
    return placeAt(path);
}

CardPlace findCard(const AtrTable& table, const std::string& readerName)
{
    if (readerName.empty())
        throw CardError(fault::invalidArgument, "reader");
    std::vector<ModuleFailure> failures;
    if (auto place = softwareCard(table, readerName, Look::asItIs, failures))
        return std::move(*place);
    const PcscListing pcsc = listPcscReaders();
    CardPath path;
    if (const PcscReader* reader = findReader(pcsc.readers, readerName))
        return followToCard(table, pcsc.readers, *reader, path);
    if (auto place = softwareCard(table, readerName, Look::afresh, failures))
        return std::move(*place);
    if (!failures.empty())
        throw CardError(failures.front().error);
    if (pcsc.service == PcscService::running)
        throw CardError(fault::readerNotFound, withComplaint(readerName, table));
    // A reader of that name may well be there.
    if (softwareModules(table).empty())
        throw CardError(faultOf(pcsc.service), withComplaint("", table));
    throw CardError(
        fault::readerNotFound,
        withComplaint(readerName + ". " + CardError(faultOf(pcsc.service)).text(), table));
}

}  // namespace cardlibs::readers
