// A reader with its card as the commands show it: as JSON and on the screen.

#ifndef TARVELOQT_HOSTS_CONSOLE_READER_ANSWER_H
#define TARVELOQT_HOSTS_CONSOLE_READER_ANSWER_H

#include "hosts/console/finding.h"
#include "hosts/console/reader_diagnosis.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <vector>

namespace console {

// What is not known is null.
QJsonObject readerObject(const ReaderDiagnosis& reader);
QJsonObject entryObject(const EntryDiagnosis& entry);
QJsonObject findingObject(const Finding& finding);
QJsonArray findingArray(const std::vector<Finding>& findings);
// What is said of no single reader: the table of cards and the modules, and the service besides.
QJsonObject tableObject(const Diagnosis& diagnosis);
QJsonObject surroundingsObject(const Diagnosis& diagnosis);

// The reader's name, its state, and a line for each thing that is known.
QString readerScreen(const ReaderDiagnosis& reader);
QString entryScreen(const EntryDiagnosis& entry);
// Every finding with its severity, and below it how to mend it.
QString findingScreen(const std::vector<Finding>& findings);
// The same without what is well.
QString mendingScreen(std::vector<Finding> findings);

}  // namespace console

#endif
