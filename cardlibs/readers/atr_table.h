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
    // Where the section begins.
    int line = 0;

    std::string module;
    std::string name;
    bool isCns = false;
    bool isFerrolux = false;
    Limits limits;
    // Not software tokens: which token is meant where a card shows several, a pattern of fnmatch(3)
    // over token labels; empty when the table does not say.
    std::string tokenLabel;

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

// Why an entry serves a card or token.
enum class MatchReason { none, exactAtr, maskedAtr, manufacturerAndModel, otherCards };

struct Match {
    // Of the table that was asked; null without one.
    const TableEntry* entry = nullptr;
    MatchReason why = MatchReason::none;
};

struct AtrTable {
    std::string path;
    std::vector<TableEntry> entries;
    std::vector<TableComplaint> complaints;

    // The first entry for software tokens of this manufacturer and model.
    Match matchToken(const std::string& manufacturer, const std::string& model) const;
    // An exact ATR goes before a masked one, and that before the entry for other cards.
    Match matchCard(const Bytes& atr) const;
    // "file:line: reason" of a complaint; of the first one, else empty.
    std::string complaintText(const TableComplaint& complaint) const;
    std::string firstComplaint() const;
    // Throws CardError (tableUnreadable) when there is no entry.
    void requireEntries() const;
};

// 2 to 33 bytes in hexadecimal, blanks and colons between them allowed; nothing for anything else.
std::optional<Bytes> parseAtr(const std::string& text);

AtrTable parseAtrTable(std::istream& stream, const std::string& path);

// Throws CardError (tableUnreadable) when there is no such file.
AtrTable openAtrTable(const std::string& path);

// As openAtrTable, but a table of which nothing can be used is an error too.
AtrTable readAtrTable(const std::string& path);

}  // namespace cardlibs::readers

#endif
