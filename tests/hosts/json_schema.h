// Holds JSON documents against the schemas in docs/json, with a validator that others wrote
// (Debian's python3-jsonschema).

#ifndef TARVELOQT_TESTS_HOSTS_JSON_SCHEMA_H
#define TARVELOQT_TESTS_HOSTS_JSON_SCHEMA_H

#include <string>
#include <vector>

namespace hosts {

// What is wrong with each document, empty for a valid one. schema: its file's name in docs/json.
// Throws std::runtime_error when the validator or the schema itself cannot be used.
std::vector<std::string> schemaComplaints(const std::string& schema,
                                          const std::vector<std::string>& documents);

// The same for one document.
std::string schemaComplaint(const std::string& schema, const std::string& document);

}  // namespace hosts

#endif
