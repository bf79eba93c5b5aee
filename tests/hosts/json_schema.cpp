#include "json_schema.h"

#include "program_run.h"

#include <QTemporaryDir>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace hosts {

namespace {

// One line per document: nothing, or what is wrong and where.
constexpr const char* validator = R"(
import json, sys
from jsonschema import Draft202012Validator
with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
Draft202012Validator.check_schema(schema)
for path in sys.argv[2:]:
    try:
        with open(path, encoding="utf-8") as file:
            document = json.load(file)
    except ValueError as error:
        print("no JSON:", str(error).replace("\n", " "))
        continue
    errors = Draft202012Validator(schema).iter_errors(document)
    print("; ".join((error.json_path + ": " + error.message).replace("\n", " ")
                    for error in errors))
)";

void write(const std::string& path, const std::string& content)
{
    std::ofstream file(path, std::ios::binary);
    file << content;
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace

std::vector<std::string> schemaComplaints(const std::string& schema,
                                          const std::vector<std::string>& documents)
{
    const QTemporaryDir folder;
    std::vector<std::string> command = {"python3", "-c", validator,
                                        TARVELOQT_SOURCE_DIR "/docs/json/" + schema};
    for (const std::string& document : documents) {
        const QString name = QString::number(command.size());
        command.push_back(folder.filePath(name).toStdString());
        write(command.back(), document);
    }
    const ProgramEnd end = runProgram(command, {}, {{"PYTHONIOENCODING", "utf-8"}});
    std::vector<std::string> complaints;
    std::istringstream lines(end.output);
    for (std::string line; std::getline(lines, line);) {
        complaints.push_back(line);
    }
    if (end.exitCode != 0 || complaints.size() != documents.size()) {
        throw std::runtime_error("the documents cannot be validated against " + schema + ":\n" +
                                 end.errors);
    }
    return complaints;
}

std::string schemaComplaint(const std::string& schema, const std::string& document)
{
    return schemaComplaints(schema, {document}).front();
}

}  // namespace hosts
