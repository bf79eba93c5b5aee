// The exported functions alone have default visibility; their declarations carry no attribute.
#pragma GCC visibility push(default)
#include "card_diagnosis.h"
#pragma GCC visibility pop

#include "cardlibs/readers/reader_diagnosis.h"
#include "cardlibs/state/shared_state.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace readers = cardlibs::readers;
namespace state = cardlibs::state;

using state::CardError;
using state::guarded;

// What is known of one thing; a field that is not known is not there.
struct Item {
    std::map<int, std::string> texts;
    std::map<int, long> numbers;
};

using Groups = std::map<int, std::vector<Item>>;

// The header promises this of the fields' numbers.
constexpr int fieldsPerGroup = 100;

}  // namespace

struct mvDiagnosis {
    Groups groups;
};

namespace {

mvServiceState number(readers::PcscService service)
{
    switch (service) {
    case readers::PcscService::running:
        return MV_SERVICE_RUNNING;
    case readers::PcscService::stopped:
        return MV_SERVICE_STOPPED;
    case readers::PcscService::refusing:
        return MV_SERVICE_REFUSING;
    case readers::PcscService::failing:
        break;
    }
    return MV_SERVICE_FAILING;
}

mvReaderKind number(readers::ReaderKind kind)
{
    return kind == readers::ReaderKind::pcsc ? MV_KIND_PCSC : MV_KIND_SOFTWARE;
}

mvCardState number(readers::CardState card)
{
    switch (card) {
    case readers::CardState::absent:
        return MV_CARD_ABSENT;
    case readers::CardState::mute:
        return MV_CARD_MUTE;
    case readers::CardState::exclusive:
        return MV_CARD_EXCLUSIVE;
    case readers::CardState::present:
        break;
    }
    return MV_CARD_PRESENT;
}

mvMatch number(readers::MatchReason why)
{
    switch (why) {
    case readers::MatchReason::exactAtr:
        return MV_MATCH_ATR;
    case readers::MatchReason::maskedAtr:
        return MV_MATCH_MASKED_ATR;
    case readers::MatchReason::manufacturerAndModel:
        return MV_MATCH_TOKEN;
    case readers::MatchReason::otherCards:
        return MV_MATCH_DEFAULT;
    case readers::MatchReason::none:
        break;
    }
    return MV_MATCH_NONE;
}

mvPinTries number(cardlibs::token::PinTries tries)
{
    switch (tries) {
    case cardlibs::token::PinTries::low:
        return MV_TRIES_LOW;
    case cardlibs::token::PinTries::last:
        return MV_TRIES_LAST;
    case cardlibs::token::PinTries::locked:
        return MV_TRIES_LOCKED;
    case cardlibs::token::PinTries::notLow:
        break;
    }
    return MV_TRIES_NOT_LOW;
}

void tell(const readers::Serving& serving, Item& item)
{
    item.numbers[MV_READER_MATCH] = number(serving.why);
    if (!serving.entry)
        return;
    const readers::TableEntry& entry = *serving.entry;
    item.texts[MV_READER_ENTRY] = entry.title;
    item.numbers[MV_READER_ENTRY_LINE] = entry.line;
    item.texts[MV_READER_MODEL_NAME] = entry.name;
    item.texts[MV_READER_MODULE] = entry.module;
    item.texts[MV_READER_MODULE_FILE] = serving.moduleFile;
    item.numbers[MV_READER_CNS] = entry.isCns ? 1 : 0;
    item.numbers[MV_READER_FERROLUX] = entry.isFerrolux ? 1 : 0;
}

void tell(const cardlibs::token::TokenInfo& token, Item& item)
{
    item.texts[MV_TOKEN_LABEL] = token.label;
    item.texts[MV_TOKEN_MANUFACTURER] = token.manufacturer;
    item.texts[MV_TOKEN_MODEL] = token.model;
    item.texts[MV_TOKEN_SERIAL] = token.serialNumber;
    item.numbers[MV_TOKEN_FLAGS] = static_cast<long>(token.flags);
    item.numbers[MV_TOKEN_ACTIVATED] = token.isActivated() ? 1 : 0;
    const mvPinTries tries = number(token.pinTries());
    item.numbers[MV_TOKEN_PIN_TRIES] = tries;
    if (tries == MV_TRIES_LAST || tries == MV_TRIES_LOCKED)
        item.numbers[MV_TOKEN_PIN_TRIES_LEFT] = tries == MV_TRIES_LAST ? 1 : 0;
}

Item itemFor(const readers::ReaderDiagnosis& reader)
{
    Item item;
    if (!reader.name.empty())
        item.texts[MV_READER_NAME] = reader.name;
    if (reader.kind)
        item.numbers[MV_READER_KIND] = number(*reader.kind);
    if (reader.card)
        item.numbers[MV_READER_CARD] = number(*reader.card);
    if (!reader.atr.empty())
        item.texts[MV_READER_ATR] = cardlibs::hexadecimal(reader.atr);
    if (reader.serving)
        tell(*reader.serving, item);
    if (reader.isModuleLoaded)
        item.numbers[MV_READER_MODULE_LOADED] = *reader.isModuleLoaded ? 1 : 0;
    if (reader.slotCount)
        item.numbers[MV_READER_SLOTS] = static_cast<long>(*reader.slotCount);
    if (reader.slot)
        item.numbers[MV_READER_SLOT] = static_cast<long>(*reader.slot);
    if (reader.token)
        tell(*reader.token, item);
    item.numbers[MV_READER_ERROR] = reader.error ? static_cast<long>(reader.error->number()) : 0;
    if (reader.error)
        item.texts[MV_READER_ERROR_TEXT] = reader.error->text();
    return item;
}

Item itemFor(const readers::Obstacle& obstacle)
{
    Item item;
    item.numbers[MV_OBSTACLE_ERROR] = static_cast<long>(obstacle.error.number());
    item.texts[MV_OBSTACLE_TEXT] = obstacle.error.text();
    if (!obstacle.module.empty())
        item.texts[MV_OBSTACLE_MODULE] = obstacle.module;
    return item;
}

Groups groupsFor(const readers::Diagnosis& diagnosis)
{
    Groups groups;
    Item whole;
    if (diagnosis.service)
        whole.numbers[MV_SERVICE] = number(*diagnosis.service);
    whole.texts[MV_TABLE_PATH] = diagnosis.tablePath;
    groups[MV_WHOLE].push_back(std::move(whole));
    for (const std::string& complaint : diagnosis.complaints)
        groups[MV_COMPLAINTS].push_back({{{MV_COMPLAINT, complaint}}, {}});
    for (const readers::Obstacle& obstacle : diagnosis.obstacles)
        groups[MV_OBSTACLES].push_back(itemFor(obstacle));
    for (const readers::ReaderDiagnosis& reader : diagnosis.readers)
        groups[MV_READERS].push_back(itemFor(reader));
    return groups;
}

void require(bool isGiven, const char* argument)
{
    if (!isGiven)
        throw CardError(state::fault::invalidArgument, argument);
}

// As every function that takes a path: the one handed over holds from then on.
std::string tableInForce(const char* atrTable)
{
    if (atrTable != nullptr && *atrTable != '\0')
        state::sharedState().tablePath = atrTable;
    return state::currentTablePath();
}

mvDiagnosis* handleFor(const readers::Diagnosis& diagnosis)
{
    return std::make_unique<mvDiagnosis>(mvDiagnosis{groupsFor(diagnosis)}).release();
}

// Null when there is no such item.
const Item* itemAt(const mvDiagnosis* diagnosis, int group, int index)
{
    require(diagnosis != nullptr, "diagnosis");
    const auto found = diagnosis->groups.find(group);
    if (found == diagnosis->groups.end() || index < 0 ||
        static_cast<std::size_t>(index) >= found->second.size())
        return nullptr;
    return &found->second[static_cast<std::size_t>(index)];
}

}  // namespace

mvDiagnosis* mvDiagnoseReaders(const char* atrTable)
{
    return guarded<mvDiagnosis*>(
        nullptr, [&] { return handleFor(readers::diagnoseReaders(tableInForce(atrTable))); });
}

mvDiagnosis* mvDiagnoseAtr(const char* atr, const char* atrTable)
{
    return guarded<mvDiagnosis*>(nullptr, [&] {
        require(atr != nullptr, "atr");
        const auto bytes = readers::parseAtr(atr);
        require(bytes.has_value(), "atr");
        return handleFor(readers::diagnoseAtr(*bytes, tableInForce(atrTable)));
    });
}

void mvDiagnosisFree(mvDiagnosis* diagnosis)
{
    state::clearError();
    delete diagnosis;
}

int mvDiagnosisCount(const mvDiagnosis* diagnosis, int group)
{
    return guarded(-1, [&] {
        require(diagnosis != nullptr, "diagnosis");
        const auto found = diagnosis->groups.find(group);
        return found == diagnosis->groups.end() ? 0 : static_cast<int>(found->second.size());
    });
}

const char* mvDiagnosisText(const mvDiagnosis* diagnosis, int index, int field)
{
    return guarded<const char*>(nullptr, [&]() -> const char* {
        const Item* item = itemAt(diagnosis, field / fieldsPerGroup, index);
        if (item == nullptr)
            return nullptr;
        const auto found = item->texts.find(field);
        return found == item->texts.end() ? nullptr : found->second.c_str();
    });
}

long mvDiagnosisNumber(const mvDiagnosis* diagnosis, int index, int field)
{
    return guarded(MV_NOT_KNOWN, [&] {
        const Item* item = itemAt(diagnosis, field / fieldsPerGroup, index);
        if (item == nullptr)
            return MV_NOT_KNOWN;
        const auto found = item->numbers.find(field);
        return found == item->numbers.end() ? MV_NOT_KNOWN : found->second;
    });
}
