#ifndef TARVELOQT_INVENTORY_INVENTORY_H
#define TARVELOQT_INVENTORY_INVENTORY_H

#include "inventory/card_reading.h"
#include "renew_context.h"
#include "session/log.h"

#include <QString>

namespace inventory {

// The process-wide variables that tell a host how the inventory went.
struct InventoryOutcome {
    int& certificatesCns;
    int& certificatesPra;
    int& certificatesAut;
    int& certificates;
    int& rows;
    QString& errorMessage;
    int& errorOccurred;
    int& errorCode;
};

// The three eligibility checks, handed in because they lie above this folder.
struct EligibilityChecks {
    bool (*cns)(RenewContext*, int reserved, int pendingKeyFlag, int count, int* result);
    bool (*pra)(RenewContext*, int pendingKeyFlag, int count, int* result);
    bool (*aut)(RenewContext*, int pendingKeyFlag, int count, int* result);
};

// Reads the card and runs the checks. Returns an inventory_result::Result.
int takeInventory(RenewContext& context, const CardContents& contents,
                  const InventoryOutcome& outcome, const EligibilityChecks& checks,
                  session::Log& log);

}  // namespace inventory

#endif
