// tarvelo-renew in a tree of its own, with an ATR table of the test's and a software card behind
// the PKCS#11 proxy. No PC/SC service unless the test asks for it.

#ifndef TARVELOQT_TESTS_HOSTS_INSTALLED_PROGRAM_H
#define TARVELOQT_TESTS_HOSTS_INSTALLED_PROGRAM_H

#include "software_card.h"

#include <QJsonObject>

#include <map>
#include <string>
#include <vector>

namespace hosts {

// CK_TOKEN_INFO's flags (PKCS#11 v2.40), as the proxy takes them.
inline constexpr char tokenInitialised[] = "400";
inline constexpr char writeProtected[] = "2";
inline constexpr char pinInitialised[] = "8";
inline constexpr char pinCountLow[] = "10000";
inline constexpr char pinFinalTry[] = "20000";
inline constexpr char pinLocked[] = "40000";
inline constexpr char pinToBeChanged[] = "80000";

class InstalledProgram {
public:
    // The table has one entry, for the proxy's tokens.
    InstalledProgram();

    const SoftwareCard& card() const { return m_card; }
    // Full path of a file beside the card.
    std::string file(const std::string& name) const { return m_card.file(name); }

    std::string program() const;
    std::string tablePath() const;
    void writeTable(const std::string& text) const;
    void removeTable() const;
    static std::string proxyEntry();
    static std::string proxyFile();

    // For all runs from now on.
    void set(const std::string& name, const std::string& value) { m_environment[name] = value; }
    const Environment& environment() const { return m_environment; }
    // The command that starts it, which the program's own command line is put after.
    void startThrough(const std::vector<std::string>& launcher) { m_launcher = launcher; }
    // The machine's own PC/SC service, if any, instead of none.
    void useMachineService();
    // A pair of card libraries that has nothing but what the renewal library imports; with these
    // answers in OTHER_CARD: "no-reader", "refused".
    void useOtherCardLibraries(const std::string& answers = {});
    // A pair whose diagnosis fails.
    void useFailingDiagnosis();

    ProgramEnd run(const std::vector<std::string>& arguments, const std::string& input = {}) const;
    // With --json; the document. Fails the test when there is none.
    QJsonObject answer(std::vector<std::string> arguments, int exitCode = 0) const;
    // What it shows on standard output and error in this language.
    std::string screen(std::vector<std::string> arguments, const std::string& language,
                       int exitCode = 0) const;

    // How often the program called this PKCS#11 function.
    std::size_t calls(const std::string& function) const;
    // The files of the card, by name.
    std::map<std::string, std::string> cardFiles() const;

private:
    SoftwareCard m_card;
    Environment m_environment;
    std::vector<std::string> m_launcher;
};

// The "id" of each finding of this severity ("problem", ...), in their order.
std::vector<std::string> findingIds(const QJsonObject& answer, const std::string& severity);

// As the documents are put: for the schemas.
std::string jsonText(const QJsonObject& document);

}  // namespace hosts

#endif
