#include "installed_program.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace hosts {

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

InstalledProgram::InstalledProgram()
    : m_environment(m_card.environment())
{
    fs::create_directories(file("tree/bin"));
    fs::create_directories(file("tree/p11"));
    fs::copy_file(renewProgram(), program());
    writeTable(proxyEntry());
    set("PKCS11_PROXY_MODULE", SOFTHSM2_MODULE);
    set("PKCS11_PROXY_LOG", file("calls"));
    set("PCSCLITE_CSOCK_NAME", file("no-service"));
}

std::string InstalledProgram::program() const
{
    return file("tree/bin/tarvelo-renew");
}

std::string InstalledProgram::tablePath() const
{
    return file("tree/p11/ATR-renew.ini");
}

void InstalledProgram::writeTable(const std::string& text) const
{
    m_card.write("tree/p11/ATR-renew.ini", text);
}

void InstalledProgram::removeTable() const
{
    EXPECT_TRUE(fs::remove(tablePath()));
}

std::string InstalledProgram::proxyFile()
{
    return PROXY_FILE;
}

std::string InstalledProgram::proxyEntry()
{
    return "[software Proxy]\nname = Carta di prova\nmodule = " + proxyFile() +
           "\nmanufacturer = SoftHSM project\nmodel = SoftHSM v2\n";
}

void InstalledProgram::useMachineService()
{
    set("PCSCLITE_CSOCK_NAME", "/run/pcscd/pcscd.comm");
}

void InstalledProgram::useOtherCardLibraries(const std::string& answers)
{
    set("LD_LIBRARY_PATH", OTHER_CARD_LIBRARIES);
    set("OTHER_CARD", answers);
}

void InstalledProgram::useFailingDiagnosis()
{
    set("LD_LIBRARY_PATH", FAILING_CARD_LIBRARIES);
}

ProgramEnd InstalledProgram::run(const std::vector<std::string>& arguments,
                                 const std::string& input) const
{
    std::vector<std::string> command = m_launcher;
    command.push_back(program());
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProgram(command, input, m_environment);
}

QJsonObject InstalledProgram::answer(std::vector<std::string> arguments, int exitCode) const
{
    arguments.emplace_back("--json");
    const ProgramEnd end = run(arguments);
    EXPECT_EQ(end.exitCode, exitCode) << end.output << end.errors;
    QJsonParseError error;
    const auto document = QJsonDocument::fromJson(QByteArray::fromStdString(end.output), &error);
    EXPECT_TRUE(document.isObject()) << error.errorString().toStdString() << '\n' << end.output;
    return document.object();
}

std::string InstalledProgram::screen(std::vector<std::string> arguments,
                                     const std::string& language, int exitCode) const
{
    arguments.insert(arguments.end(), {"--lang", language});
    const ProgramEnd end = run(arguments);
    EXPECT_EQ(end.exitCode, exitCode) << end.output << end.errors;
    return end.output + end.errors;
}

std::size_t InstalledProgram::calls(const std::string& function) const
{
    std::istringstream lines(contentOf(file("calls")));
    return static_cast<std::size_t>(std::count(std::istream_iterator<std::string>(lines),
                                               std::istream_iterator<std::string>(), function));
}

std::map<std::string, std::string> InstalledProgram::cardFiles() const
{
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(file("card"))) {
        if (entry.is_regular_file()) {
            files[entry.path().string()] = contentOf(entry.path());
        }
    }
    EXPECT_FALSE(files.empty());
    return files;
}

std::vector<std::string> findingIds(const QJsonObject& answer, const std::string& severity)
{
    std::vector<std::string> ids;
    for (const QJsonValue finding : answer.value("findings").toArray()) {
        if (finding["severity"].toString().toStdString() == severity) {
            ids.push_back(finding["id"].toString().toStdString());
        }
    }
    return ids;
}

std::string jsonText(const QJsonObject& document)
{
    return QJsonDocument(document).toJson().toStdString();
}

}  // namespace hosts
