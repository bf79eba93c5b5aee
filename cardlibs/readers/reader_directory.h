// The readers there are, by name, and the PKCS#11 slot behind each.

#ifndef TARVELOQT_CARDLIBS_READERS_READER_DIRECTORY_H
#define TARVELOQT_CARDLIBS_READERS_READER_DIRECTORY_H

#include "cardlibs/readers/atr_table.h"
#include "cardlibs/token/module.h"

#include <string>
#include <vector>

namespace cardlibs::readers {

// The longest reader name, without its NUL.
constexpr std::size_t longestReaderName = 255;

// A card that can be talked to.
struct CardPlace {
    token::Module* module = nullptr;
    CK_SLOT_ID slot = 0;
    TableEntry entry;
    token::TokenInfo info;
};

// The name of a software token's reader: label and serial number, with "_" for every character
// that a reader list cannot hold.
std::string softwareReaderName(const token::TokenInfo& info);

// Names of all readers, sorted, read afresh. Empty when there are none; throws CardError when there
// are none because something failed.
std::vector<std::string> readerNames(const AtrTable& table);

// The card in the reader of this name. Throws CardError: readerNotFound, readerAmbiguous,
// unknownCard (no entry of the table fits), or what the module said.
CardPlace findCard(const AtrTable& table, const std::string& readerName);

}  // namespace cardlibs::readers

#endif
