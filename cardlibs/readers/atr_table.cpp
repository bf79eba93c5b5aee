#include "cardlibs/readers/atr_table.h"

#include "cardlibs/state/card_error.h"

#include <ini.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <fstream>
#include <set>

namespace cardlibs::readers {
namespace {

// One section while it is read.
struct Draft {
    TableEntry entry;
    std::set<std::string> keysSeen;
    std::optional<TableComplaint> complaint;
};

struct Reading {
    std::istream& stream;
    AtrTable& table;
    int line = 0;
    std::optional<Draft> draft;
};

std::string lineWithoutEnd(std::string line)
{
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n'))
        line.pop_back();
    return line;
}

std::optional<bool> parseYesNo(const std::string& value)
{
    if (value == "yes")
        return true;
    if (value == "no")
        return false;
    return std::nullopt;
}

std::optional<unsigned long> parseCount(const std::string& value)
{
    unsigned long count = 0;
    const char* end = value.data() + value.size();
    const auto [stopped, error] = std::from_chars(value.data(), end, count);
    if (error != std::errc() || stopped != end || count == 0)
        return std::nullopt;
    return count;
}

template <typename Value>
std::string assign(Value& target, const std::optional<Value>& value, const char* expected)
{
    if (!value)
        return expected;
    target = *value;
    return {};
}

std::string assignLimit(std::optional<unsigned long>& target, const std::string& value)
{
    target = parseCount(value);
    return target ? "" : "a number above 0 is expected";
}

// Empty when the value was taken, else what is wrong with it.
std::string takeValue(TableEntry& entry, const std::string& key, const std::string& value)
{
    static const char yesOrNo[] = R"("yes" or "no" is expected)";
    static const char atrBytes[] = "2 to 33 bytes in hexadecimal are expected";
    if (value.empty())
        return "the value is missing";
    if (key == "module")
        return assign(entry.module, std::optional(value), "");
    if (key == "name")
        return assign(entry.name, std::optional(value), "");
    if (key == "cns")
        return assign(entry.isCns, parseYesNo(value), yesOrNo);
    if (key == "ferrolux")
        return assign(entry.isFerrolux, parseYesNo(value), yesOrNo);
    if (key == "rsa_bits")
        return assignLimit(entry.limits.rsaBits, value);
    if (key == "ec_bits")
        return assignLimit(entry.limits.ecBits, value);
    if (key == "certificate_bytes")
        return assignLimit(entry.limits.certificateBytes, value);
    if (entry.kind != EntryKind::softwareToken && key == "token_label")
        return assign(entry.tokenLabel, std::optional(value), "");
    if (entry.kind == EntryKind::card && key == "atr")
        return assign(entry.atr, parseAtr(value), atrBytes);
    if (entry.kind == EntryKind::card && key == "atr_mask")
        return assign(entry.atrMask, parseAtr(value), atrBytes);
    if (entry.kind == EntryKind::softwareToken && key == "manufacturer")
        return assign(entry.manufacturer, std::optional(value), "");
    if (entry.kind == EntryKind::softwareToken && key == "model")
        return assign(entry.model, std::optional(value), "");
    return "the key is not known in this section";
}

std::string completeEntry(TableEntry& entry)
{
    if (entry.module.empty())
        return "\"module\" is missing";
    if (entry.name.empty())
        entry.name = entry.title;
    if (entry.kind == EntryKind::softwareToken && entry.manufacturer.empty())
        return "\"manufacturer\" is missing";
    if (entry.kind == EntryKind::softwareToken && entry.model.empty())
        return "\"model\" is missing";
    if (entry.kind != EntryKind::card)
        return {};
    if (entry.atr.empty())
        return "\"atr\" is missing";
    if (entry.atrMask.empty())
        entry.atrMask.assign(entry.atr.size(), 0xFF);
    if (entry.atrMask.size() != entry.atr.size())
        return R"("atr_mask" and "atr" differ in length)";
    return {};
}

void finishDraft(Reading& reading)
{
    if (!reading.draft)
        return;
    Draft draft = std::move(*reading.draft);
    reading.draft.reset();
    if (!draft.complaint) {
        const std::string missing = completeEntry(draft.entry);
        if (!missing.empty())
            draft.complaint = TableComplaint{draft.entry.line, missing};
    }
    if (draft.complaint)
        reading.table.complaints.push_back(*draft.complaint);
    else
        reading.table.entries.push_back(std::move(draft.entry));
}

// section: what stands between the brackets; nothing where they are not whole.
void startDraft(Reading& reading, const std::optional<std::string>& section)
{
    Draft draft;
    draft.entry.line = reading.line;
    const std::string name = section.value_or("");
    const std::size_t blank = name.find(' ');
    const std::string word = name.substr(0, blank);
    draft.entry.title = blank == std::string::npos ? "" : name.substr(blank + 1);
    if (word == "card" && !draft.entry.title.empty())
        draft.entry.kind = EntryKind::card;
    else if (word == "software" && !draft.entry.title.empty())
        draft.entry.kind = EntryKind::softwareToken;
    else if (name == "default")
        draft.entry.kind = EntryKind::otherCards;
    else
        draft.complaint =
            TableComplaint{reading.line, "a section is [card NAME], [software NAME] or [default]"};
    reading.draft = std::move(draft);
}

// Of a line that begins with a bracket; nothing but a comment may follow the closing one.
std::optional<std::string> sectionName(const std::string& line)
{
    const std::size_t end = line.find(']');
    if (end == std::string::npos)
        return std::nullopt;
    const std::size_t rest = line.find_first_not_of(" \t", end + 1);
    if (rest != std::string::npos && line[rest] != ';' && line[rest] != '#')
        return std::nullopt;
    return line.substr(1, end - 1);
}

void complainOfLine(Reading& reading, const std::string& reason)
{
    const TableComplaint complaint = {reading.line, reason};
    if (!reading.draft)
        reading.table.complaints.push_back(complaint);
    else if (!reading.draft->complaint)
        reading.draft->complaint = complaint;
}

constexpr char noKey[] = "neither a section nor \"key = value\"";

// What inih is to see of a line, at most `longest` bytes. It cuts the names of sections, tells of
// them only with their first key, and takes an indented line for more of the value before: so
// sections are dealt with here, and lines come to it without blanks at the front.
std::string lineOfKey(Reading& reading, const std::string& whole, std::size_t longest)
{
    const std::size_t first = whole.find_first_not_of(" \t");
    if (first == std::string::npos || whole[first] == ';' || whole[first] == '#')
        return {};
    std::string line = whole.substr(first);
    if (line[0] == '[') {
        finishDraft(reading);
        startDraft(reading, sectionName(line));
        return {};
    }
    // inih would tell of the first such line alone, and use the rest of the entry.
    if (line.find_first_of("=:") == std::string::npos) {
        complainOfLine(reading, noKey);
        return {};
    }
    if (line.size() > longest) {
        complainOfLine(reading, "the line is too long");
        return {};
    }
    return line;
}

// inih asks for each line here, which is where the line numbers come from.
char* nextLine(char* buffer, int size, void* stream)
{
    static const std::string byteOrderMark = "\xEF\xBB\xBF";
    Reading& reading = *static_cast<Reading*>(stream);
    std::string line;
    if (!std::getline(reading.stream, line))
        return nullptr;
    ++reading.line;
    if (reading.line == 1 && line.compare(0, byteOrderMark.size(), byteOrderMark) == 0)
        line.erase(0, byteOrderMark.size());
    // Room for the line's end and the NUL.
    const std::size_t longest = static_cast<std::size_t>(size) - 2;
    line = lineOfKey(reading, lineWithoutEnd(std::move(line)), longest) + '\n';
    std::memcpy(buffer, line.c_str(), line.size() + 1);
    return buffer;
}

int takeLine(void* user, const char*, const char* key, const char* value)
{
    Reading& reading = *static_cast<Reading*>(user);
    // A key before the first section.
    if (!reading.draft)
        startDraft(reading, std::nullopt);
    Draft& draft = *reading.draft;
    if (draft.complaint)
        return 1;
    std::string wrong;
    if (!draft.keysSeen.insert(key).second)
        wrong = "the key stands twice in this section";
    else
        wrong = takeValue(draft.entry, key, value);
    if (!wrong.empty())
        draft.complaint = TableComplaint{reading.line, std::string(key) + ": " + wrong};
    return 1;
}

}  // namespace

// ISO/IEC 7816-3: an ATR has 2 to 33 bytes.
std::optional<Bytes> parseAtr(const std::string& text)
{
    std::optional<Bytes> atr = parseHexadecimal(text);
    if (atr && (atr->size() < 2 || atr->size() > 33))
        return std::nullopt;
    return atr;
}

bool TableEntry::matchesToken(const std::string& tokenManufacturer,
                              const std::string& tokenModel) const
{
    return kind == EntryKind::softwareToken && manufacturer == tokenManufacturer &&
           model == tokenModel;
}

bool TableEntry::matchesAtr(const Bytes& cardAtr) const
{
    if (kind != EntryKind::card || cardAtr.size() != atr.size())
        return false;
    for (std::size_t i = 0; i < atr.size(); ++i)
        if ((cardAtr[i] & atrMask[i]) != (atr[i] & atrMask[i]))
            return false;
    return true;
}

Match AtrTable::matchToken(const std::string& manufacturer, const std::string& model) const
{
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const TableEntry& entry) {
        return entry.matchesToken(manufacturer, model);
    });
    if (found == entries.end())
        return {};
    return {&*found, MatchReason::manufacturerAndModel};
}

Match AtrTable::matchCard(const Bytes& atr) const
{
    Match masked;
    Match other;
    for (const TableEntry& entry : entries) {
        if (entry.kind == EntryKind::card && entry.atr == atr)
            return {&entry, MatchReason::exactAtr};
        if (masked.entry == nullptr && entry.matchesAtr(atr))
            masked = {&entry, MatchReason::maskedAtr};
        if (other.entry == nullptr && entry.kind == EntryKind::otherCards)
            other = {&entry, MatchReason::otherCards};
    }
    return masked.entry != nullptr ? masked : other;
}

std::string AtrTable::complaintText(const TableComplaint& complaint) const
{
    return path + ":" + std::to_string(complaint.line) + ": " + complaint.reason;
}

std::string AtrTable::firstComplaint() const
{
    return complaints.empty() ? std::string() : complaintText(complaints.front());
}

void AtrTable::requireEntries() const
{
    if (entries.empty())
        throw state::CardError(state::fault::tableUnreadable,
                               complaints.empty() ? path : firstComplaint());
}

AtrTable parseAtrTable(std::istream& stream, const std::string& path)
{
    AtrTable table;
    table.path = path;
    Reading reading{stream, table, 0, std::nullopt};
    const int brokenLine = ini_parse_stream(nextLine, &reading, takeLine, &reading);
    finishDraft(reading);
    if (brokenLine > 0)
        table.complaints.push_back({brokenLine, noKey});
    else if (brokenLine < 0)
        throw state::CardError(state::fault::tableUnreadable, path);
    return table;
}

AtrTable openAtrTable(const std::string& path)
{
    std::ifstream file(path);
    if (!file)
        throw state::CardError(state::fault::tableUnreadable, path);
    return parseAtrTable(file, path);
}

AtrTable readAtrTable(const std::string& path)
{
    AtrTable table = openAtrTable(path);
    table.requireEntries();
    return table;
}

}  // namespace cardlibs::readers
