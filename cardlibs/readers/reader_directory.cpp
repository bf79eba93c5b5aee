#include "cardlibs/readers/reader_directory.h"

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
    std::vector<std::string> names;
    for (const FoundToken& token : softwareTokens(table, Look::afresh, failure))
        if (table.findToken(token.info.manufacturer, token.info.model) != nullptr)
            names.push_back(softwareReaderName(token.info));
    if (names.empty() && failure)
        throw CardError(*failure);
    std::sort(names.begin(), names.end());
    return names;
}

CardPlace findCard(const AtrTable& table, const std::string& readerName)
{
    if (readerName.empty())
        throw CardError(fault::invalidArgument, "reader");
    std::optional<CardError> failure;
    for (const Look look : {Look::asItIs, Look::afresh}) {
        std::vector<FoundToken> named;
        for (FoundToken& token : softwareTokens(table, look, failure))
            if (softwareReaderName(token.info) == readerName)
                named.push_back(std::move(token));
        if (named.size() > 1)
            throw CardError(fault::readerAmbiguous, readerName);
        if (named.empty())
            continue;
        FoundToken& token = named.front();
        const TableEntry* entry = table.findToken(token.info.manufacturer, token.info.model);
        if (entry == nullptr)
            throw CardError(fault::unknownCard, table.firstComplaint());
        return {token.module, token.slot, *entry, std::move(token.info)};
    }
    if (failure)
        throw CardError(*failure);
    throw CardError(fault::readerNotFound, readerName);
}

}  // namespace cardlibs::readers
