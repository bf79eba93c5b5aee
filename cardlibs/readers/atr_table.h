// The ATR table: which PKCS#11 module serves which card. docs/atr-table.md describes the file.

#ifndef TARVELOQT_CARDLIBS_READERS_ATR_TABLE_H
#define TARVELOQT_CARDLIBS_READERS_ATR_TABLE_H

#include "cardlibs/bytes.h"

#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace cardlibs::readers {

enum class EntryKind { card, softwareToken, otherCards };

// What the card holds at most; absent where the table does not say.
struct Limits {
    std::optional<unsigned long> rsaBits;
    std::optional<unsigned long> ecBits;
    std::optional<unsigned long> certificateBytes;
};

struct TableEntry {
    EntryKind kind = EntryKind::card;
    // The section's title without its first word.
    std::string title;
    int line = 0;

    std::string module;
    std::string name;
    bool isCns = false;
    bool isFerrolux = false;
    Limits limits;

    // Cards: the ATR, and which of its bits count (as many bytes).
    Bytes atr;
    Bytes atrMask;
    // Software tokens.
    std::string manufacturer;
    std::string model;

    bool matchesToken(const std::string& tokenManufacturer, const std::string& tokenModel) const;
    bool matchesAtr(const Bytes& cardAtr) const;
};

// An entry that was left out, and why.
struct TableComplaint {
    int line = 0;
    std::string reason;
};

struct AtrTable {
    std::string path;
    std::vector<TableEntry> entries;
    std::vector<TableComplaint> complaints;

    // The first entry for software tokens of this manufacturer and model; null without one.
    const TableEntry* findToken(const std::string& manufacturer, const std::string& model) const;
    // An exact ATR goes before a masked one, and that before the entry for other cards.
    const TableEntry* findCard(const Bytes& atr) const;
    // "file:line: reason" of the first complaint, else empty.
    std::string firstComplaint() const;
};

AtrTable parseAtrTable(std::istream& stream, const std::string& path);

// Throws CardError (tableUnreadable) when there is no such file or none of it can be used.
AtrTable readAtrTable(const std::string& path);

}  // namespace cardlibs::readers

#endif
