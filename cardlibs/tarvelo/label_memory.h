// The labels that the card gave last, so that asking for them again need not read all of it.

#ifndef TARVELOQT_CARDLIBS_TARVELO_LABEL_MEMORY_H
#define TARVELOQT_CARDLIBS_TARVELO_LABEL_MEMORY_H

#include "cardlibs/contents/card_contents.h"

#include <optional>
#include <string>

namespace cardlibs::tarvelo {

struct NewKeyLabels {
    std::string signature;
    std::string authentication;
};

// What was seen on one card: labels and numbers of objects, nothing that gives access to it.
struct LabelMemory {
    std::string reader;
    std::string tokenSerialNumber;
    NewKeyLabels labels;
    std::size_t objects = 0;
    std::size_t signatureBearers = 0;
    std::size_t authenticationBearers = 0;
};

// newPair: label of a pair that the card was given since its objects were read.
LabelMemory memoryOf(const contents::CardContents& contents,
                     const std::optional<contents::KeyLabel>& newPair);

// True when the card of the session, logged in, still has as many objects, and each of the two
// labels as many bearers. Three searches, whatever lies on the card. Throws CardError.
bool stillHolds(const LabelMemory& memory, token::Session& session);

}  // namespace cardlibs::tarvelo

#endif
