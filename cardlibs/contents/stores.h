// The certificates of a card as the renewal library's stores take them.

#ifndef TARVELOQT_CARDLIBS_CONTENTS_STORES_H
#define TARVELOQT_CARDLIBS_CONTENTS_STORES_H

#include "cardlibs/contents/card_contents.h"

#include <ctime>
#include <string>
#include <vector>

namespace cardlibs::contents {

struct Store {
    // At most as many as the renewal library has room for.
    std::vector<std::string> descriptors;
};

struct Stores {
    Store cns;
    Store signature;
    Store authentication;
    // End of validity of the CNS certificate in its store, "yyyyMMdd"; empty without one.
    std::string cnsExpiry;
    // Kind and serial number of each certificate for which there was no room, or whose key cannot
    // be told from another.
    std::vector<std::string> leftOut;
};

// Unexpired certificates by nearest expiry, then expired ones, the latest first.
Stores storesOf(const CardContents& contents, std::time_t now);

}  // namespace cardlibs::contents

#endif
