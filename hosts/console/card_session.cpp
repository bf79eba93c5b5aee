#include "hosts/console/card_session.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/pin_source.h"
#include "hosts/console/terminal.h"

#include <optional>

namespace console {

namespace keys = renew_context;

LibraryOutput libraryOutput()
{
    return streamUse().isJson ? LibraryOutput::onStandardError : LibraryOutput::shown;
}

LibraryInput libraryInput()
{
    return mayAsk() ? LibraryInput::asItIs : LibraryInput::empty;
}

CardSession::CardSession()
{
    const LibraryStreams streams(libraryOutput(), libraryInput());
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
    std::optional<LibraryStreams> streams;
    try {
        streams.emplace(libraryOutput(), libraryInput());
    } catch (const Stop&) {
        // A log on standard output then ends there: no reason not to end the session.
        streams.reset();
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
