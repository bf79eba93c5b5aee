#include "hosts/console/doctor.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/library_view.h"
#include "hosts/console/machine_findings.h"
#include "hosts/console/reader_answer.h"
#include "hosts/console/reader_findings.h"
#include "hosts/console/record_store.h"
#include "hosts/console/terminal.h"

#include <QDateTime>

#include <algorithm>

namespace console {

namespace {

int countOf(const std::vector<Finding>& findings, Severity severity)
{
    return static_cast<int>(
        std::count_if(findings.begin(), findings.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}

std::vector<Finding> allFindings(const Arguments& arguments)
{
    std::vector<Finding> findings = homeFindings(RecordStore::userFolder());
    findings.push_back(clockFinding(QDateTime::currentDateTime(), installationTime()));
    if (!arguments.authorityCommand.isEmpty()) {
        findings.push_back(authorityProgramFinding(arguments.authorityCommand));
    }
    const QString wanted = arguments.reader.isEmpty() ? configuredReader() : arguments.reader;
    const std::vector<Finding> readers = findingsOf(lookAtReaders(wanted), wanted);
    findings.insert(findings.end(), readers.begin(), readers.end());
    return findings;
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
        throw Stop(ExitCode::problemsFound);
    }
    say(warnings > 0
            ? Text("\nNulla impedisce il rinnovo; leggere gli avvisi.",
                   "\nNothing stands in the way of a renewal; read the warnings.")
            : Text("\nNulla impedisce il rinnovo.", "\nNothing stands in the way of a renewal."));
}

}  // namespace console
