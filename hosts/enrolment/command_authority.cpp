#include "hosts/enrolment/command_authority.h"

#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/enrolment/issued_check.h"
#include "hosts/enrolment/program_run.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

const char* const cookieKey = "cookie";
constexpr int longestCookie = 4096;
constexpr std::chrono::seconds longestRetryAfter = std::chrono::hours(24 * 30);

// "; it says ..." where it says something.
QString inItsWords(const QString& sentence, const ProgramEnd& end)
{
    return sentence + QLatin1Char(' ') +
           (end.words.isEmpty() ? Text("Non ha dato motivi.", "It gave no reason.").string()
                                : Text("Dice: %1", "It says: %1").arg(end.words));
}

bool isCookie(const QByteArray& line)
{
    return line.size() <= longestCookie &&
           std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

class CommandAuthority : public Authority {
public:
    explicit CommandAuthority(const Configuration& configuration)
        : m_arguments(
              QProcess::splitCommand(requiredValueOf(configuration, QStringLiteral("command"))))
        , m_timeLimit(
              secondsOf(configuration, QStringLiteral("time-limit"), std::chrono::seconds(60)))
        , m_anchors(issuerAnchorsOf(configuration))
    {
        if (m_arguments.isEmpty()) {
            failMisconfigured(configuration, Text("\"command\" non indica un programma.",
                                                  "\"command\" names no program."));
        }
        m_program = m_arguments.takeFirst();
        if (m_program.contains(QLatin1Char('/'))) {
            m_program = QDir(configuration.folder).absoluteFilePath(m_program);
        }
    }

    QString name() const override { return QStringLiteral("command"); }

    Answer enrol(const Request& request) const override
    {
        static_cast<void>(checkedRequest(request));
        const ProgramEnd end = runProgram(orderFor(request));
        switch (static_cast<CommandExit>(end.exitCode)) {
        case CommandExit::issued:
            return issuedBy(end, request);
        case CommandExit::deferred:
            return deferredBy(end);
        case CommandExit::refused:
            fail(Cause::refused,
                 Text("L'autorità ha rifiutato la richiesta, secondo il programma %1.",
                      "The authority refused the request, according to the program %1."),
                 end);
        case CommandExit::unreachable:
            fail(Cause::unreachable,
                 Text("Il programma %1 non ha raggiunto l'autorità.",
                      "The program %1 did not reach the authority."),
                 end);
        case CommandExit::policyUnsupported:
            fail(Cause::policyUnsupported,
                 Text("Il programma %1 non ha un profilo per la politica.",
                      "The program %1 has no profile for the policy."),
                 end);
        }
        fail(Cause::badAnswer,
             Text("Il programma %1 è finito con il codice %2.",
                  "The program %1 ended with code %2."),
             end);
    }

    void probe() const override
    {
        const bool isPath = m_program.contains(QLatin1Char('/'));
        const bool isThere =
            isPath ? QFileInfo(m_program).isFile() && QFileInfo(m_program).isExecutable()
                   : !QStandardPaths::findExecutable(m_program).isEmpty();
        if (!isThere) {
            throw EnrolmentError(Cause::misconfigured,
                                 Text("Il programma %1 non c'è o non è eseguibile.",
                                      "The program %1 is not there or cannot be executed.")
                                     .arg(printable(m_program)));
        }
    }

private:
    ProgramOrder orderFor(const Request& request) const
    {
        const QString notAfter = request.expectedEnd.toString(QStringLiteral("yyyyMMdd000000"));
        ProgramOrder order;
        order.program = m_program;
        order.arguments = m_arguments;
        order.arguments.replaceInStrings(QStringLiteral("{policy}"), request.policy);
        order.arguments.replaceInStrings(QStringLiteral("{not-after}"), notAfter);
        order.environment = {
            {QStringLiteral("TARVELO_POLICY"), request.policy},
            {QStringLiteral("TARVELO_NOT_AFTER"), notAfter},
            {QStringLiteral("TARVELO_RENEWAL"),
             request.isRenewal ? QStringLiteral("1") : QStringLiteral("0")},
            {QStringLiteral("TARVELO_COOKIE"),
             request.state.value(QLatin1String(cookieKey)).toString()},
        };
        order.input = request.pkcs10;
        order.timeLimit = m_timeLimit;
        return order;
    }

    [[noreturn]] void fail(Cause cause, const Text& sentence, const ProgramEnd& end) const
    {
        QString text = sentence.string();
        text.replace(QStringLiteral("%2"), QString::number(end.exitCode));
        text.replace(QStringLiteral("%1"), printable(m_program));
        throw EnrolmentError(cause, inItsWords(text, end));
    }

    Issued issuedBy(const ProgramEnd& end, const Request& request) const
    {
        const std::vector<QByteArray> certificates = certificatesIn(end.output);
        if (certificates.empty()) {
            fail(
                Cause::badAnswer,
                end.output.isEmpty()
                    ? Text("Il programma %1 non ha scritto nulla.", "The program %1 wrote nothing.")
                    : Text("Il programma %1 non ha scritto un certificato leggibile.",
                           "The program %1 wrote no certificate that can be read."),
                end);
        }
        return checkedIssue(request, certificates, m_anchors);
    }

    Deferred deferredBy(const ProgramEnd& end) const
    {
        const QList<QByteArray> lines = end.output.split('\n');
        const QByteArray cookie = lines.first().trimmed();
        if (!isCookie(cookie)) {
            fail(Cause::badAnswer,
                 Text("Il programma %1 rimanda con un'annotazione che non è una riga ASCII di al "
                      "massimo 4096 caratteri.",
                      "The program %1 defers with a cookie that is not an ASCII line of at most "
                      "4096 characters."),
                 end);
        }
        Deferred deferred;
        deferred.state.insert(QLatin1String(cookieKey), QString::fromLatin1(cookie));
        const int seconds = lines.size() > 1 ? lines.at(1).trimmed().toInt() : 0;
        if (seconds > 0) {
            deferred.retryAfter = std::min(std::chrono::seconds(seconds), longestRetryAfter);
        }
        deferred.reason = end.words.isEmpty() ? Text("L'autorità chiede di tornare più tardi.",
                                                     "The authority asks to come back later.")
                                                    .string()
                                              : Text("L'autorità chiede di tornare più tardi: %1",
                                                     "The authority asks to come back later: %1")
                                                    .arg(end.words);
        return deferred;
    }

    QStringList m_arguments;
    QString m_program;
    std::chrono::seconds m_timeLimit;
    std::vector<QByteArray> m_anchors;
};

}  // namespace

std::unique_ptr<Authority> commandAuthority(const Configuration& configuration)
{
    requireKnownKeys(
        configuration,
        {QStringLiteral("command"), QStringLiteral("time-limit"), QStringLiteral("issuer-anchors")},
        false);
    return std::make_unique<CommandAuthority>(configuration);
}

}  // namespace enrolment
