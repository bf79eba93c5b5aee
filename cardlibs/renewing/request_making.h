// The request for a renewed certificate, and the key pair behind it.

#ifndef TARVELOQT_CARDLIBS_RENEWING_REQUEST_MAKING_H
#define TARVELOQT_CARDLIBS_RENEWING_REQUEST_MAKING_H

#include "cardlibs/contents/card_contents.h"
#include "cardlibs/readers/reader_directory.h"

#include <optional>
#include <string>

namespace cardlibs::renewing {

// The longest request without its NUL.
constexpr std::size_t longestRequest = 16383;

struct RequestOrder {
    // The label to use if a new pair is needed and nobody bears it; its kind is the certificate's.
    contents::KeyLabel label;
    // CKA_ID of the certificate to renew.
    Bytes certificateId;
    // Its subject as text, or that with the organisation replaced.
    std::string subjectText;
};

struct MadeRequest {
    std::string pem;
    // Label of the pair that was made for it; absent when a pending one is used again.
    std::optional<contents::KeyLabel> newPair;
};

// On a read-write session that is logged in and has just read the contents. A pending pair that is
// to replace this certificate is used again, otherwise one is made. Throws CardError; a pair that
// was made by then stays on the card, pending.
MadeRequest makeRequest(token::Session& session, const readers::CardPlace& place,
                        const contents::CardContents& contents, const RequestOrder& order,
                        const char* pin);

}  // namespace cardlibs::renewing

#endif
