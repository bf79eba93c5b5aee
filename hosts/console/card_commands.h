// The commands that work on the certificates of a card, step by step and in one go.

#ifndef TARVELOQT_HOSTS_CONSOLE_CARD_COMMANDS_H
#define TARVELOQT_HOSTS_CONSOLE_CARD_COMMANDS_H

#include "hosts/console/arguments.h"

#include <QJsonObject>

namespace console {

// All fill the answer as they go (docs/json/) and throw Stop to end otherwise than well.

void listCertificates(const Arguments& arguments, QJsonObject& answer);
void makeRequests(const Arguments& arguments, QJsonObject& answer);
void submitRequests(const Arguments& arguments, QJsonObject& answer);
void installIssued(const Arguments& arguments, QJsonObject& answer);
void renewCertificates(const Arguments& arguments, QJsonObject& answer);
void resumeRenewals(const Arguments& arguments, QJsonObject& answer);

}  // namespace console

#endif
