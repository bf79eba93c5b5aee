#include "hosts/console/attempts.h"

#include "hosts/console/json_answer.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace console {

Attempts::Attempts(QJsonObject& answer, QString key, std::size_t planned)
    : m_answer(answer)
    , m_key(std::move(key))
    , m_isOneOfSeveral(planned > 1)
{
    m_answer.insert(m_key, QJsonArray());
}

void Attempts::attempt(QJsonObject object, const std::function<void(QJsonObject&)>& work)
{
    Stop end(ExitCode::done);
    try {
        work(object);
    } catch (const Stop& stop) {
        end = stop;
        m_failures.push_back(stop);
    }
    object.insert(QStringLiteral("exit"), exitObject(end));
    m_objects.append(object);
    m_answer.insert(m_key, m_objects);
    if (end.code() != ExitCode::done && m_isOneOfSeveral) {
        say(QLatin1Char('\n') + stopMessage(end, {}, STDOUT_FILENO) + QLatin1Char('\n'));
    }
}

void Attempts::conclude() const
{
    if (m_failures.empty()) {
        return;
    }
    if (m_objects.size() == 1) {
        throw Stop(m_failures.front());
    }
    const bool allWait = static_cast<int>(m_failures.size()) == m_objects.size() &&
                         std::all_of(m_failures.begin(), m_failures.end(), [](const Stop& stop) {
                             return stop.code() == ExitCode::comeBackLater;
                         });
    throw Stop(allWait ? ExitCode::comeBackLater : ExitCode::someFailed,
               Text("%1 su %2 non completati.", "%1 of %2 not finished.")
                   .arg(QString::number(m_failures.size()), QString::number(m_objects.size())));
}

}  // namespace console
