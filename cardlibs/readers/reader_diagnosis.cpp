#include "cardlibs/readers/reader_diagnosis.h"

#include "cardlibs/token/module_file.h"

namespace cardlibs::readers {
namespace {

using state::CardError;

// The table, and why it cannot be used.
struct TableLook {
    AtrTable table;
    std::optional<CardError> error;
};

TableLook lookAtTable(const std::string& path, Diagnosis& diagnosis)
{
    diagnosis.tablePath = path;
    TableLook look;
    try {
        look.table = openAtrTable(path);
        for (const TableComplaint& complaint : look.table.complaints)
            diagnosis.complaints.push_back(look.table.complaintText(complaint));
        look.table.requireEntries();
    } catch (const CardError& error) {
        look.error = error;
        diagnosis.obstacles.push_back({"", error});
    }
    return look;
}

Serving servingBy(const Match& match)
{
    if (match.entry == nullptr)
        return {};
    return {match.why, *match.entry, token::moduleFile(match.entry->module)};
}

std::optional<CardState> cardState(const PcscReader& reader)
{
    if (!reader.isStateKnown)
        return std::nullopt;
    if (!reader.hasCard)
        return CardState::absent;
    if (reader.isMute)
        return CardState::mute;
    return reader.isExclusive ? CardState::exclusive : CardState::present;
}

// follow: goes the way to the card, filling the path that it is given.
template <typename Follow>
void tellWay(Follow&& follow, ReaderDiagnosis& reader)
{
    CardPath path;
    try {
        follow(path);
    } catch (const CardError& error) {
        reader.error = error;
    }
    if (path.match)
        reader.serving = servingBy(*path.match);
    if (path.module != nullptr)
        reader.isModuleLoaded = true;
    else if (reader.error && reader.error->number() == state::fault::moduleNotLoaded)
        reader.isModuleLoaded = false;
    if (path.slots)
        reader.slotCount = path.slots->size();
    reader.slot = path.slot;
    reader.token = path.token;
}

ReaderDiagnosis diagnose(const TableLook& look, const std::vector<PcscReader>& readers,
                         const PcscReader& pcsc)
{
    ReaderDiagnosis reader;
    reader.name = listableName(pcsc.name);
    reader.kind = ReaderKind::pcsc;
    reader.card = cardState(pcsc);
    reader.atr = pcsc.atr;
    if (look.error)
        reader.error = look.error;
    else
        tellWay([&](CardPath& path) { followToCard(look.table, readers, pcsc, path); }, reader);
    return reader;
}

ReaderDiagnosis diagnose(const AtrTable& table, const std::vector<SoftwareToken>& tokens,
                         const SoftwareToken& token)
{
    ReaderDiagnosis reader;
    reader.name = token.readerName;
    reader.kind = ReaderKind::softwareToken;
    reader.card = CardState::present;
    tellWay([&](CardPath& path) { followToCard(table, tokens, token, path); }, reader);
    return reader;
}

}  // namespace

Diagnosis diagnoseReaders(const std::string& tablePath)
{
    Diagnosis diagnosis;
    const TableLook look = lookAtTable(tablePath, diagnosis);
    const ReaderListing listing = listReaders(look.table);
    diagnosis.service = listing.service;
    if (listing.service != PcscService::running)
        diagnosis.obstacles.push_back({"", CardError(faultOf(listing.service))});
    for (const ModuleFailure& failure : listing.failures)
        diagnosis.obstacles.push_back({failure.module, failure.error});
    for (const PcscReader& reader : listing.pcsc)
        diagnosis.readers.push_back(diagnose(look, listing.pcsc, reader));
    for (const SoftwareToken& token : listing.tokens)
        if (isReader(look.table, token))
            diagnosis.readers.push_back(diagnose(look.table, listing.tokens, token));
    return diagnosis;
}

Diagnosis diagnoseAtr(const Bytes& atr, const std::string& tablePath)
{
    Diagnosis diagnosis;
    const TableLook look = lookAtTable(tablePath, diagnosis);
    ReaderDiagnosis card;
    card.atr = atr;
    if (look.error)
        card.error = look.error;
    else
        tellWay([&](CardPath& path) { followToEntry(look.table, atr, path); }, card);
    diagnosis.readers.push_back(std::move(card));
    return diagnosis;
}

}  // namespace cardlibs::readers
