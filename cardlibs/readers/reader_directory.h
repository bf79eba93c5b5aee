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

// Names of all readers, read afresh: those of PC/SC, then the tokens of software modules, each
// sorted. Throws CardError when there are none: noReader, what keeps the PC/SC service from
// answering, or what a software module said.
std::vector<std::string> readerNames(const AtrTable& table);

// The card in the reader of this name. A PC/SC reader is the slot whose description is equal in its
// first 64 bytes, all that PKCS#11 has room for. Throws CardError: readerNotFound, readerAmbiguous,
// slotNotFound, CKR_TOKEN_NOT_PRESENT, unknownCard (no entry of the table fits), or what the module
// said.
CardPlace findCard(const AtrTable& table, const std::string& readerName);

}  // namespace cardlibs::readers

#endif
