// The three kinds of certificate that are renewed, and the labels of their keys.

#ifndef TARVELOQT_CARDLIBS_CONTENTS_KIND_H
#define TARVELOQT_CARDLIBS_CONTENTS_KIND_H

#include "cardlibs/x509/certificate.h"

#include <optional>
#include <set>
#include <string>

namespace cardlibs::contents {

enum class Kind { authentication, signature, cns };

// The three letters that the kind has in messages and stores.
const char* kindName(Kind kind);

// "AUT" + n, "DS" + n, or "CNS0".
struct KeyLabel {
    Kind kind = Kind::authentication;
    unsigned long number = 0;

    std::string text() const;
    bool operator==(const KeyLabel& other) const
    {
        return kind == other.kind && number == other.number;
    }
};

// The label of a key in the CNS position.
inline constexpr char cnsLabel[] = "CNS0";

// Nothing for any other text; n has no leading zeros and at most nine digits.
std::optional<KeyLabel> parseKeyLabel(const std::string& text);

// The lowest number from 0 that no object bears; "CNS0" for the CNS kind, whose position two pairs
// may share.
KeyLabel lowestFreeLabel(Kind kind, const std::multiset<std::string>& labels);

// Kind of a certificate whose object and private key bear these labels; nothing for authorities and
// for certificates of no use to a renewal.
std::optional<Kind> kindOf(const x509::Certificate& certificate,
                           const std::string& certificateLabel, const std::string& keyLabel);

}  // namespace cardlibs::contents

#endif
