// What a diagnosis of the readers means to a person.

#ifndef TARVELOQT_HOSTS_CONSOLE_READER_FINDINGS_H
#define TARVELOQT_HOSTS_CONSOLE_READER_FINDINGS_H

#include "hosts/console/finding.h"
#include "hosts/console/reader_diagnosis.h"

#include <QString>

#include <vector>

namespace console {

// What keeps this reader's card from being renewed, readerReady besides when it can be reached;
// empty when nothing is known.
std::vector<Finding> findingsOf(const ReaderDiagnosis& reader);

struct DiagnosisFindings {
    // The service, the table and the modules.
    std::vector<Finding> surroundings;
    std::vector<Finding> readers;
};

// wantedReader: the one that will be used, empty when that is open. What concerns other readers
// only, or does not keep a usable card from being used, is a warning.
DiagnosisFindings findingsOf(const Diagnosis& diagnosis, const QString& wantedReader);

}  // namespace console

#endif
