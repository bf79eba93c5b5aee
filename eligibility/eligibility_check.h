#ifndef TARVELOQT_ELIGIBILITY_ELIGIBILITY_CHECK_H
#define TARVELOQT_ELIGIBILITY_ELIGIBILITY_CHECK_H

#include "eligibility/kind_rule.h"
#include "renew_context.h"
#include "session/log.h"

#include <QString>

namespace eligibility {

// What the check of a kind works on.
struct CheckInput {
    const char* const* store;  // element 0 is the count, which the caller hands over separately
    int pendingKeyFlag;
    int count;
    QString pendingLabel;
};

// The process-wide texts that a check writes.
struct CheckOutput {
    QString& fiscalCode;
    QString& errorMessage;
};

// Writes a record for each certificate of the kind: to be renewed, or why it is not. With a pending
// key and no certificate, writes the kind's recovery record instead.
void checkEligibility(RenewContext& context, const KindRule& rule, const CheckInput& input,
                      const Surroundings& surroundings, const CheckOutput& output,
                      session::Log& log);

}  // namespace eligibility

#endif
