// What doctor must say of something that is broken, and how a test holds it to that.

#ifndef TARVELOQT_TESTS_HOSTS_DOCTOR_CASE_H
#define TARVELOQT_TESTS_HOSTS_DOCTOR_CASE_H

#include "installed_program.h"

#include <functional>
#include <string>
#include <vector>

namespace hosts {

struct DoctorCase {
    std::string name;
    std::function<void(InstalledProgram&)> breakIt;
    // Identifiers of the findings, in their order.
    std::vector<std::string> problems;
    std::vector<std::string> warnings;
    // Besides "doctor".
    std::vector<std::string> arguments = {};
};

// Runs doctor: exit code, findings, the document against its schema, texts and cures on the screens
// of both languages, no line of more than 79 columns where words can be parted, no login, and a
// card that stays as it is.
void expectFindings(const InstalledProgram& program, const DoctorCase& expected);

// Whether programs may be started here with mounts of their own: only root may, and not in every
// container.
bool mayMount();
inline constexpr char noMounts[] = "mounts of one's own need root, and a system that lets root";

}  // namespace hosts

#endif
