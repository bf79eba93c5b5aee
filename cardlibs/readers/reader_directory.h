// The readers there are, by name, and the PKCS#11 slot behind each.

#ifndef TARVELOQT_CARDLIBS_READERS_READER_DIRECTORY_H
#define TARVELOQT_CARDLIBS_READERS_READER_DIRECTORY_H

#include "cardlibs/readers/atr_table.h"
#include "cardlibs/readers/pcsc_readers.h"
#include "cardlibs/state/card_error.h"
#include "cardlibs/token/module.h"

#include <optional>
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

// A token of a software module.
struct SoftwareToken {
    std::string readerName;
    token::Module* module = nullptr;
    CK_SLOT_ID slot = 0;
    token::TokenInfo info;
};

// A software module, as the table names it, that told no tokens.
struct ModuleFailure {
    std::string module;
    state::CardError error;
};

struct ReaderListing {
    PcscService service = PcscService::running;
    std::vector<PcscReader> pcsc;
    // Those without an entry in the table too: isReader tells.
    std::vector<SoftwareToken> tokens;
    std::vector<ModuleFailure> failures;
};

// The way from a reader to its card, as far as it led.
struct CardPath {
    // Points into the table.
    std::optional<Match> match;
    token::Module* module = nullptr;
    // The slots that are this reader's, and the one that leads on.
    std::optional<std::vector<CK_SLOT_ID>> slots;
    std::optional<CK_SLOT_ID> slot;
    std::optional<token::TokenInfo> token;
};

// A name as a reader list can hold it: at most 255 bytes, "_" for every byte that is not printable
// ASCII or separates names there.
std::string listableName(std::string name);

// The name of a software token's reader: label and serial number, listable.
std::string softwareReaderName(const token::TokenInfo& info);

// All readers, read afresh: those of PC/SC and the tokens of software modules, each sorted.
ReaderListing listReaders(const AtrTable& table);
bool isReader(const AtrTable& table, const SoftwareToken& token);

// Why a service in this state gives no reader.
unsigned long faultOf(PcscService service);

// Names of all readers, those of PC/SC first. Throws CardError when there are none: noReader, what
// keeps the PC/SC service from answering, or what a software module said.
std::vector<std::string> readerNames(const AtrTable& table);

// Goes the way to the card and fills the path up to where it ends. A PC/SC reader is the slot whose
// description is equal in its first 64 bytes, all that PKCS#11 has room for; of several the one
// that the entry's token label tells. readers, tokens: all that were found, for names that two of
// them bear. The first goes as far as the table. All throw CardError: readerAmbiguous,
// slotAmbiguous, slotNotFound, CKR_TOKEN_NOT_PRESENT, unknownCard (no entry of the table fits), or
// what the module said.
void followToEntry(const AtrTable& table, const Bytes& atr, CardPath& path);
CardPlace followToCard(const AtrTable& table, const std::vector<PcscReader>& readers,
                       const PcscReader& reader, CardPath& path);
CardPlace followToCard(const AtrTable& table, const std::vector<SoftwareToken>& tokens,
                       const SoftwareToken& token, CardPath& path);

// The card in the reader of this name, as listed or as PC/SC has it. Throws CardError:
// readerNotFound, or as followToCard.
CardPlace findCard(const AtrTable& table, const std::string& readerName);

}  // namespace cardlibs::readers

#endif
