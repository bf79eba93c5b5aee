// The card that the card-access library talks to between mvInitializeFromATRLite and mvFinalize,
// and what the table said of the card looked up last.

#ifndef TARVELOQT_CARDLIBS_MOLVANE_CARD_ACCESS_H
#define TARVELOQT_CARDLIBS_MOLVANE_CARD_ACCESS_H

#include "cardlibs/token/module.h"

#include <string>
#include <vector>

namespace cardlibs::molvane {

struct TokenIdentity {
    std::string slotDescription;
    std::string manufacturer;
    std::string model;
    std::string serialNumber;
};

// All throw CardError. tablePath: empty keeps the path handed over earlier.

std::vector<std::string> readerNames();

// Closes an earlier session and opens one with the card in the reader, without login.
void openSession(const std::string& reader, const std::string& tablePath);
// Closes the open session, if any.
void closeSession();

// File name of the module that serves the card in the reader, whole: one of more than 63 bytes is
// an error (moduleNameTooLong).
std::string moduleFileName(const std::string& reader, const std::string& tablePath);

// Of the card last looked up by either of the two above; false when that failed.
bool isCns();
bool isFerrolux();

// On the open session.
void login(const char* pin);
bool isToBeActivated(long slot);
TokenIdentity identity();
CK_SLOT_ID slot();

}  // namespace cardlibs::molvane

#endif
