#include "hosts/console/card_session.h"

#include "hosts/console/pin_source.h"

namespace console {

namespace keys = renew_context;

CardSession::CardSession()
{
    init_renew_system(&m_context);
}

CardSession::~CardSession()
{
    const auto settings = m_context.find(keys::settingsRow);
    if (settings != m_context.end()) {
        const auto pin = settings->find(keys::pin);
        if (pin != settings->end()) {
            wipe(*pin);
        }
    }
    free_renew_system(&m_context);
}

QString CardSession::setting(const QString& key) const
{
    return m_context.value(keys::settingsRow).value(key);
}

void CardSession::dropInventory()
{
    const RenewRecord settings = m_context.value(keys::settingsRow);
    m_context.clear();
    m_context.insert(keys::settingsRow, settings);
}

RenewContext CardSession::recoveryContext(const QString& row) const
{
    RenewContext context;
    context.insert(keys::settingsRow, m_context.value(keys::settingsRow));
    context.insert(row, m_context.value(row));
    return context;
}

}  // namespace console
