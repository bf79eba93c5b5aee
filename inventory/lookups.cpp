#include "inventory/lookups.h"

#include <algorithm>

namespace inventory {

namespace {

// A host may have inserted a key more than once.
bool hasEntry(const RenewRecord& record, const QString& key, const QString& value)
{
    const auto [first, last] = record.equal_range(key);
    return std::find(first, last, value) != last;
}

}  // namespace

std::optional<RenewRecord> findRecord(const RenewContext& context, const QString& key,
                                      const QString& value)
{
    for (auto row = context.cbegin(); row != context.cend(); ++row) {
        if (hasEntry(row.value(), key, value)) {
            RenewRecord record = row.value();
            record.insert(renew_context::recordRow, row.key());
            return record;
        }
    }
    return std::nullopt;
}

}  // namespace inventory
