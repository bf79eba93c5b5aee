// The readers that the PC/SC service knows, with what lies in them.

#ifndef TARVELOQT_CARDLIBS_READERS_PCSC_READERS_H
#define TARVELOQT_CARDLIBS_READERS_PCSC_READERS_H

#include "cardlibs/bytes.h"

#include <chrono>
#include <string>
#include <vector>

namespace cardlibs::readers {

enum class PcscService { running, stopped, refusing, failing };

struct PcscReader {
    std::string name;
    // False when the service could not tell what follows.
    bool isStateKnown = false;
    bool hasCard = false;
    // A program keeps the card to itself.
    bool isExclusive = false;
    // In the reader but not answering, most often because it was put in the wrong way round.
    bool isMute = false;
    // Empty without a card that answers.
    Bytes atr;
};

struct PcscListing {
    PcscService service = PcscService::running;
    // In the order of their names.
    std::vector<PcscReader> readers;
};

// How long the service may take; one that starts on demand looks for its readers first.
constexpr std::chrono::milliseconds servicePatience = std::chrono::seconds(10);

// Asks the service afresh; never throws, never waits for a card. A service that has not answered in
// time is failing. The question stays open then, in a thread of its own, and until it is answered
// later calls find the service failing without waiting again.
PcscListing listPcscReaders(std::chrono::milliseconds patience = servicePatience);

}  // namespace cardlibs::readers

#endif
