// An inventory and the log it must write.

#ifndef TARVELOQT_TESTS_SUPPORT_INVENTORY_FIXTURE_H
#define TARVELOQT_TESTS_SUPPORT_INVENTORY_FIXTURE_H

#include "descriptor.h"
#include "library_fixture.h"

#include <string>

namespace support {

class InventoryTest : public LibraryTest {
protected:
    // A session with reader "Lettore" and PIN "12345678".
    void SetUp() override;

    // One certificate of the kind, not renewable, so that its log is short.
    static std::string foreign(const std::string& serial);

    // Values that only a finished inventory may replace.
    static void setOutcomeFromBefore();

    // The log up to the card's answer, and with it.
    static std::string begun();
    static std::string readLines(int result, const CardContents& contents);

    // What a search for free labels adds, and what the certificates' counts add.
    static std::string freeLabelLines(const std::string& labelPra, const std::string& labelAut,
                                      int result);
    static std::string countLines(int cns, int pra, int aut, int tableRows);
};

}  // namespace support

#endif
