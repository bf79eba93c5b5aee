// The SoftHSM2 token of a software card.

#ifndef TARVELOQT_TOOLS_SOFTCARD_CARD_TOKEN_H
#define TARVELOQT_TOOLS_SOFTCARD_CARD_TOKEN_H

#include "cardlibs/token/module.h"
#include "tools/softcard/card_folder.h"
#include "tools/softcard/secret.h"

#include <string>
#include <vector>

namespace softcard {

// Serial numbers that begin like those of card generations which are no longer renewed.
bool isRetiredSerialNumber(const std::string& serialNumber);

// SoftHSM2, started on the configuration that the process has now.
cardlibs::token::Module& startModule();

// Makes a token in a prepared folder that holds none and gives its slot. Throws std::exception.
CK_SLOT_ID makeToken(const CardFolder& folder, const std::string& label, const Secret& pin,
                     const Secret& securityOfficerPin);

// Names of the tokens in the folder, as the card libraries list them.
std::vector<std::string> cardReaders(const CardFolder& folder);

}  // namespace softcard

#endif
