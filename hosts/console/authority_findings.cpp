#include "hosts/console/authority_findings.h"

#include <QFileInfo>
#include <QStandardPaths>

namespace console {

namespace {

// Program and arguments of --ca-command.
Finding programFinding(const QStringList& command)
{
    const QString program = command.value(0);
    if (!program.contains(QLatin1Char('/'))) {
        const QString found = QStandardPaths::findExecutable(program);
        return found.isEmpty() ? Finding(FindingId::authorityProgramMissing, program)
                               : Finding(FindingId::authorityProgramFound, found);
    }
    const QFileInfo file(program);
    if (!file.isFile()) {
        return Finding(FindingId::authorityProgramMissing, program);
    }
    return Finding(file.isExecutable() ? FindingId::authorityProgramFound
                                       : FindingId::authorityProgramNotExecutable,
                   program);
}

}  // namespace

std::vector<Finding> authorityFindings(const Arguments& arguments)
{
    std::vector<Finding> findings;
    if (!arguments.authorityCommand.isEmpty()) {
        findings.push_back(programFinding(arguments.authorityCommand));
    }
    return findings;
}

}  // namespace console
