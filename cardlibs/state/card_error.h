// The one error type of the card libraries, and the catalogue of its numbers and texts.
//
// A number is a PKCS#11 return value as the module gave it, or one of `fault` below. Texts are
// Italian, ASCII, at most 254 bytes, and say what to do.

#ifndef TARVELOQT_CARDLIBS_STATE_CARD_ERROR_H
#define TARVELOQT_CARDLIBS_STATE_CARD_ERROR_H

#include <exception>
#include <string>
#include <vector>

namespace cardlibs::state {

// Numbers of our own. All but unknownCard, which hosts compare with, lie above what PKCS#11 has
// assigned and above that one.
namespace fault {
enum Number : unsigned long {
    unknownCard = 0xBFC,
    noReader = 0x2001,
    readerNotFound,
    readerAmbiguous,
    tableUnreadable,
    moduleNotLoaded,
    noOpenSession,
    invalidArgument,
    noReaderChosen,
    certificateNotOnCard,
    certificateAmbiguous,
    certificateOfOtherKind,
    subjectDiffers,
    keyNotSupported,
    requestNotValid,
    requestTooLong,
    issuedUnreadable,
    issuedForOtherKey,
    issuedForOtherHolder,
    issuedExpired,
    issuedNotYetValid,
    issuedTooLarge,
    issuedOfOtherKind,
    replacesOther,
    linkAmbiguous,
    writtenDiffers,
    keyDoesNotSign,
    certificatesLeftOut,
    serviceStopped,
    serviceRefused,
    serviceFailed,
    slotNotFound,
    slotAmbiguous,
    issuedSeveral,
    moduleNameTooLong,
    internal,
};
}

// The largest text, without its NUL: mvLastError is called with 255 bytes.
constexpr std::size_t longestErrorText = 254;

struct CatalogueEntry {
    unsigned long number;
    const char* name;
    const char* text;
};

// Every number that has a text of its own, in ascending order.
const std::vector<CatalogueEntry>& errorCatalogue();

class CardError : public std::exception {
public:
    // detail: what the text should name besides (a reader, a PKCS#11 function, a file and line);
    // shown in parentheses as far as it fits, bytes that are not printable ASCII as "?".
    explicit CardError(unsigned long number, const std::string& detail = {});
    ~CardError() override;

    unsigned long number() const { return m_number; }
    const std::string& text() const { return m_text; }
    const char* what() const noexcept override;

    // detail: as many of the names as fit whole, and how many do not.
    static CardError withNames(unsigned long number, const std::vector<std::string>& names);

    // The same number with another text, for a failure whose cure depends on how far a call got.
    static CardError withText(unsigned long number, const std::string& text);

private:
    unsigned long m_number;
    std::string m_text;
};

}  // namespace cardlibs::state

#endif
