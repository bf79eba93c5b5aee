// The readers that the PC/SC service knows, with what lies in them.

#ifndef TARVELOQT_CARDLIBS_READERS_PCSC_READERS_H
#define TARVELOQT_CARDLIBS_READERS_PCSC_READERS_H

#include "cardlibs/bytes.h"

#include <string>
#include <vector>

namespace cardlibs::readers {

enum class PcscService { running, stopped, refusing, failing };

struct PcscReader {
    std::string name;
    bool hasCard = false;
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

// Asks the service afresh; never throws, never waits for a card.
PcscListing listPcscReaders();

}  // namespace cardlibs::readers

#endif
