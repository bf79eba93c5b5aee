#include "card_commands_fixture.h"

#include "json_schema.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonDocument>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace hosts {

namespace {

namespace fs = std::filesystem;
using console::ExitCode;
using testing::HasSubstr;
using testing::Not;

std::size_t occurrences(const std::string& text, const std::string& wanted)
{
    std::size_t count = 0;
    for (auto at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1)) {
        ++count;
    }
    return count;
}

}  // namespace

std::string text(const QJsonValue& value)
{
    return value.toString().toStdString();
}

std::string unbroken(const std::string& text)
{
    return QString::fromStdString(text).simplified().toStdString();
}

CardCommands::CardCommands(const std::string& kinds)
    : m_card(daysLeft, kinds)
{
}

Words CardCommands::withPin(Words arguments) const
{
    arguments.insert(arguments.end(), {"--pin-file", m_card.file("card/pin")});
    return arguments;
}

Words CardCommands::unattended(Words arguments) const
{
    arguments.emplace_back("--yes");
    return withPin(std::move(arguments));
}

Words CardCommands::byAuthority(Words arguments) const
{
    arguments.insert(arguments.end(), {"--ca", "command:" + m_card.authority()});
    return unattended(std::move(arguments));
}

QJsonObject CardCommands::answer(Words arguments, ExitCode expected) const
{
    return answer(std::move(arguments), expected, {});
}

QJsonObject CardCommands::answer(Words arguments, ExitCode expected,
                                 const Environment& environment) const
{
    const std::string command = arguments.front();
    arguments.emplace_back("--json");
    const ProgramEnd end = run(arguments, environment);
    EXPECT_EQ(end.exitCode, static_cast<int>(expected)) << end.output << end.errors;
    for (const std::string& stream : {end.output, end.errors}) {
        EXPECT_THAT(stream, Not(HasSubstr(m_card.pin())));
    }
    QJsonParseError error;
    const auto document = QJsonDocument::fromJson(QByteArray::fromStdString(end.output), &error);
    EXPECT_TRUE(document.isObject()) << error.errorString().toStdString() << '\n' << end.output;
    EXPECT_EQ(schemaComplaint(command + ".schema.json", end.output), "") << end.output;
    EXPECT_EQ(document["exit"]["code"].toInt(-1), end.exitCode);
    EXPECT_EQ(text(document["exit"]["name"]), console::entryOf(expected).name);
    return document.object();
}

ProgramEnd CardCommands::run(const Words& arguments, const Environment& environment) const
{
    Words command = {renewProgram()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Environment variables = m_card.environment();
    for (const auto& [name, value] : environment) {
        variables[name] = value;
    }
    return runProgram(command, {}, variables);
}

ProgramEnd CardCommands::run(const Words& arguments) const
{
    return run(arguments, {});
}

void CardCommands::expectEnd(const ProgramEnd& end, ExitCode expected, const std::string& told)
{
    EXPECT_EQ(end.exitCode, static_cast<int>(expected)) << end.output << end.errors;
    EXPECT_THAT(unbroken(end.errors), HasSubstr(told));
}

std::map<std::string, std::string> CardCommands::records() const
{
    return filesBelow("home/.brisko/renewals");
}

std::map<std::string, std::string> CardCommands::cardObjects() const
{
    std::map<std::string, std::string> objects;
    for (const auto& [name, content] : filesBelow("card/tokens")) {
        if (fs::path(name).extension() == ".object" && name != "token.object") {
            objects[name] = QCryptographicHash::hash(QByteArray::fromStdString(content),
                                                     QCryptographicHash::Sha256)
                                .toHex()
                                .toStdString();
        }
    }
    EXPECT_FALSE(objects.empty());
    return objects;
}

std::map<std::string, std::string> CardCommands::filesBelow(const std::string& folder) const
{
    std::map<std::string, std::string> files;
    if (!fs::exists(m_card.file(folder))) {
        return files;
    }
    for (const auto& entry : fs::recursive_directory_iterator(m_card.file(folder))) {
        if (entry.is_regular_file()) {
            std::ifstream stream(entry.path(), std::ios::binary);
            files[entry.path().filename().string()] = {std::istreambuf_iterator<char>(stream), {}};
        }
    }
    return files;
}

QJsonArray CardCommands::listed() const
{
    return answer(withPin({"list"}), ExitCode::done)["certificates"].toArray();
}

void CardCommands::expectAllRenewed(int certificates) const
{
    const QJsonArray now = listed();
    EXPECT_EQ(now.size(), certificates);
    for (const QJsonValue& certificate : now) {
        EXPECT_EQ(text(certificate["verdict"]), "not-yet-due");
        EXPECT_EQ(text(certificate["validUntil"]), renewedEnd());
        EXPECT_TRUE(certificate["pendingKey"].isNull());
    }
    EXPECT_TRUE(records().empty());
    expectPairsOnCard(certificates);
}

void CardCommands::expectPairsOnCard(int pairs) const
{
    Environment environment = m_card.environment();
    environment["CARD_PIN"] = m_card.pin();
    const ProgramEnd end = runProgram({"pkcs11-tool", "--module", SOFTHSM2_MODULE, "--login",
                                       "--pin", "env:CARD_PIN", "--list-objects"},
                                      {}, environment);
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    for (const char* kind : {"Certificate Object", "Private Key Object", "Public Key Object"}) {
        EXPECT_EQ(occurrences(end.output, kind), static_cast<std::size_t>(pairs)) << end.output;
    }
}

std::string CardCommands::issued(const std::string& request, const std::string& name) const
{
    m_card.write("to-issue.pem", request);
    std::string command = m_card.authority();
    const std::string placeholder = "{not-after}";
    QString end = QString::fromStdString(renewedEnd());
    command.replace(command.find(placeholder), placeholder.size(),
                    end.remove(QLatin1Char('-')).toStdString());
    const ProgramEnd made =
        m_card.shell(command + " < " + m_card.file("to-issue.pem") + " > " + m_card.file(name));
    EXPECT_EQ(made.exitCode, 0) << made.errors;
    return m_card.file(name);
}

Environment CardCommands::otherHome() const
{
    const std::string home = m_card.file("other-home");
    ::mkdir(home.c_str(), S_IRWXU);
    return {{"HOME", home}};
}

Environment CardCommands::withoutCard() const
{
    return {{"SOFTHSM2_CONF", m_card.file("no-such.conf")}};
}

std::string CardCommands::renewedEnd()
{
    const QDate today = QDateTime::currentDateTimeUtc().date();
    return today.addDays(daysLeft)
        .addYears(3)
        .addDays(daysLeft)
        .toString(Qt::ISODate)
        .toStdString();
}

}  // namespace hosts
