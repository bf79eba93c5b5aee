// What was tried for several certificates, where a failure of one does not stop the others.

#ifndef TARVELOQT_HOSTS_CONSOLE_ATTEMPTS_H
#define TARVELOQT_HOSTS_CONSOLE_ATTEMPTS_H

#include "hosts/console/exit_code.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <cstddef>
#include <functional>
#include <vector>

namespace console {

class Attempts {
public:
    // answer gets the array `key`, one object for each attempt; it must outlive this. planned: how
    // many attempts there will be; of several, each failure is shown at once.
    Attempts(QJsonObject& answer, QString key, std::size_t planned);

    // work fills the object; the Stop it throws is kept as its "exit".
    void attempt(QJsonObject object, const std::function<void(QJsonObject&)>& work);

    // Throws the one failure there was, or what several come to: comeBackLater when all that was
    // planned waits for the authority, else someFailed.
    void conclude() const;

private:
    QJsonObject& m_answer;
    QString m_key;
    bool m_isOneOfSeveral;
    QJsonArray m_objects;
    std::vector<Stop> m_failures;
};

}  // namespace console

#endif
