// Which slots of a PKCS#11 module are a PC/SC reader, and which of several is meant.

#ifndef TARVELOQT_CARDLIBS_READERS_SLOT_CHOICE_H
#define TARVELOQT_CARDLIBS_READERS_SLOT_CHOICE_H

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace cardlibs::readers {

// A slot with a token in it.
struct LabelledSlot {
    CK_SLOT_ID slot = 0;
    // The token's label, without padding.
    std::string label;
};

// What a slot description can hold of a reader's name: its first 64 bytes (PKCS #11 v2.40,
// CK_SLOT_INFO), without blanks at the end and without a UTF-8 character that lost its end. Applied
// to a slot's description it gives the same text, however the module cut and padded it.
std::string slotDescription(const std::string& readerName);

// The place in `slots`, of which there are several in one reader, of the one whose label fits the
// pattern (fnmatch(3); empty fits none). Throws CardError (slotAmbiguous), naming the labels,
// unless exactly one does.
std::size_t chooseSlot(const std::vector<LabelledSlot>& slots, const std::string& labelPattern);

}  // namespace cardlibs::readers

#endif
