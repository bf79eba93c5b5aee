// What can be told of every reader and its card without a session: found by the very steps that
// lead to a card, reported even when they end early.

#ifndef TARVELOQT_CARDLIBS_READERS_READER_DIAGNOSIS_H
#define TARVELOQT_CARDLIBS_READERS_READER_DIAGNOSIS_H

#include "cardlibs/readers/reader_directory.h"

#include <optional>
#include <string>
#include <vector>

namespace cardlibs::readers {

enum class ReaderKind { pcsc, softwareToken };
enum class CardState { absent, present, mute, exclusive };

// The entry that serves a card, and why.
struct Serving {
    MatchReason why = MatchReason::none;
    // Absent for MatchReason::none.
    std::optional<TableEntry> entry;
    // The file that the entry's module name leads to; empty without an entry.
    std::string moduleFile;
};

struct ReaderDiagnosis {
    // Empty, like the ATR, and absent, like all that follows, where it could not be had.
    std::string name;
    std::optional<ReaderKind> kind;
    std::optional<CardState> card;
    Bytes atr;
    std::optional<Serving> serving;
    std::optional<bool> isModuleLoaded;
    std::optional<std::size_t> slotCount;
    std::optional<CK_SLOT_ID> slot;
    std::optional<token::TokenInfo> token;
    // What ended the way to the card; absent when a session can be opened.
    std::optional<state::CardError> error;
};

// Something that keeps readers from being seen or served.
struct Obstacle {
    // The software module, as the table names it; empty when it is not about one.
    std::string module;
    state::CardError error;
};

struct Diagnosis {
    // Absent when nobody asked.
    std::optional<PcscService> service;
    std::string tablePath;
    // "file:line: reason" of each entry that was left out.
    std::vector<std::string> complaints;
    std::vector<Obstacle> obstacles;
    // In the order of readerNames, whether they fit a list of names or not.
    std::vector<ReaderDiagnosis> readers;
};

// Looks at all readers afresh. Opens no session, so it never logs in; a module with an open session
// is not started anew. Without a table that can be used the PC/SC readers are told all the same,
// each with that error.
Diagnosis diagnoseReaders(const std::string& tablePath);

// What the table says of a card with this ATR, as the one reader of the diagnosis. Asks neither the
// service nor a module.
Diagnosis diagnoseAtr(const Bytes& atr, const std::string& tablePath);

}  // namespace cardlibs::readers

#endif
