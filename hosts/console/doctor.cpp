#include "hosts/console/doctor.h"

#include "hosts/console/authority_findings.h"
#include "hosts/console/exit_code.h"
#include "hosts/console/library_view.h"
#include "hosts/console/machine_findings.h"
#include "hosts/console/reader_answer.h"
#include "hosts/console/reader_findings.h"
#include "hosts/console/record_store.h"
#include "hosts/console/terminal.h"

#include <QDateTime>

#include <algorithm>
#include <utility>

namespace console {

namespace {

int countOf(const std::vector<Finding>& findings, Severity severity)
{
    return static_cast<int>(
        std::count_if(findings.begin(), findings.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}

std::vector<Finding> clockFindings(const Arguments& /*arguments*/)
{
    return {clockFinding(QDateTime::currentDateTime(), installationTime())};
}

std::vector<Finding> folderFindings(const Arguments& /*arguments*/)
{
    return homeFindings(RecordStore::userFolder());
}

std::vector<Finding> cardFindings(const Arguments& arguments)
{
    const QString wanted = arguments.reader.isEmpty() ? configuredReader() : arguments.reader;
    DiagnosisFindings found = findingsOf(lookAtReaders(wanted), wanted);
    std::vector<Finding> all = std::move(found.surroundings);
    all.insert(all.end(), found.readers.begin(), found.readers.end());
    return all;
}

// In the order in which they are shown. The user's folder is looked at before the library's session
// makes it.
using Examination = std::vector<Finding> (*)(const Arguments& arguments);
constexpr Examination examinations[] = {clockFindings, folderFindings, authorityFindings,
                                        cardFindings};

std::vector<Finding> allFindings(const Arguments& arguments)
{
    std::vector<Finding> all;
    for (const Examination examination : examinations) {
        const std::vector<Finding> found = examination(arguments);
        all.insert(all.end(), found.begin(), found.end());
    }
    return all;
}

}  // namespace

void examine(const Arguments& arguments, QJsonObject& answer)
{
    const std::vector<Finding> findings = allFindings(arguments);
    const int problems = countOf(findings, Severity::problem);
    const int warnings = countOf(findings, Severity::warning);
    answer.insert(QStringLiteral("findings"), findingArray(findings));
    answer.insert(QStringLiteral("problemCount"), problems);
    answer.insert(QStringLiteral("warningCount"), warnings);
    say(findingScreen(findings));
    if (problems > 0) {
        throw Stop(ExitCode::problemsFound,
                   Text("Problemi: %1, avvisi: %2.", "Problems: %1, warnings: %2.")
                       .arg(QString::number(problems), QString::number(warnings)));
    }
    say(warnings > 0
            ? Text("\nNulla impedisce il rinnovo; leggere gli avvisi.",
                   "\nNothing stands in the way of a renewal; read the warnings.")
            : Text("\nNulla impedisce il rinnovo.", "\nNothing stands in the way of a renewal."));
}

}  // namespace console
