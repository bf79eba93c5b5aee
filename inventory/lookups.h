#ifndef TARVELOQT_INVENTORY_LOOKUPS_H
#define TARVELOQT_INVENTORY_LOOKUPS_H

#include "renew_context.h"

#include <QString>

#include <optional>

namespace inventory {

// A copy of the first row, in the context's own order, that has the key with exactly the value,
// with the row key added under renew_context::recordRow. Nothing when no row has it.
std::optional<RenewRecord> findRecord(const RenewContext& context, const QString& key,
                                      const QString& value);

}  // namespace inventory

#endif
