#include "hosts/console/machine_findings.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/owned_descriptor.h"
#include "hosts/console/record_store.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace console {

namespace {

// Clocks and time zones of the machine that installed may differ from this one's.
constexpr int daysOfGrace = 1;
// Longer than any card or certificate lives.
constexpr int longestUseYears = 20;
// Some systems give every file they install a date long past; this program is younger than that.
const QDate earliestInstallation(2025, 1, 1);

bool canWriteInto(const QString& folder)
{
    return QFileInfo(folder).isDir() &&
           ::access(QFile::encodeName(folder).constData(), W_OK | X_OK) == 0;
}

bool canAppendTo(const QString& path)
{
    // O_NONBLOCK: a named pipe must not make the program wait.
    const OwnedDescriptor file(
        ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    return file.isOpen() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

void lookAtRecords(const QString& userFolder, std::vector<Finding>& findings)
{
    try {
        for (const Stop& complaint : RecordStore(userFolder).list().complaints) {
            findings.emplace_back(FindingId::recordUnreadable, userFolder, complaint.detail());
        }
    } catch (const Stop& stop) {
        findings.emplace_back(FindingId::recordsUnsafe, userFolder, stop.detail());
    }
}

}  // namespace

bool isServiceInstalled()
{
    const QString program = QStringLiteral("pcscd");
    // The folders for the administrator's programs are seldom in a user's PATH.
    return !QStandardPaths::findExecutable(program).isEmpty() ||
           !QStandardPaths::findExecutable(
                program, {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/local/sbin")})
                .isEmpty();
}

std::vector<Finding> homeFindings(const QString& userFolder)
{
    const QFileInfo folder(userFolder);
    const bool isThere = folder.exists() || folder.isSymLink();
    const QString written = isThere ? userFolder : folder.path();
    if (!canWriteInto(written)) {
        return {Finding(FindingId::homeUnwritable, written)};
    }
    std::vector<Finding> findings;
    const QString log = userFolder + QStringLiteral("/TarveloQT.log");
    if (QFileInfo::exists(log) && !canAppendTo(log)) {
        findings.emplace_back(FindingId::logUnwritable, log);
    }
    lookAtRecords(userFolder, findings);
    if (findings.empty()) {
        findings.emplace_back(FindingId::homeUsable, userFolder);
    }
    return findings;
}

Finding clockFinding(const QDateTime& now, const QDateTime& installed)
{
    const QDate today = now.date();
    const QDate first = installed.date();
    const QString todayText = today.toString(Qt::ISODate);
    if (today.addDays(daysOfGrace) < first) {
        return Finding(FindingId::clockBehind, todayText, first.toString(Qt::ISODate));
    }
    if (today > first.addYears(longestUseYears)) {
        return Finding(FindingId::clockAhead, todayText, first.toString(Qt::ISODate));
    }
    return Finding(FindingId::clockPlausible, todayText);
}

QDateTime installationTime()
{
    return std::max(QFileInfo(QStringLiteral("/proc/self/exe")).lastModified(),
                    QDateTime(earliestInstallation, QTime(0, 0)));
}

}  // namespace console
