#include "doctor_case.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/finding.h"
#include "hosts/console/language.h"
#include "json_schema.h"

#include <QJsonArray>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace hosts {

namespace {

using testing::HasSubstr;

// Lines put together again: where they break is the screen's business.
std::string unwrapped(const QString& text)
{
    return text.simplified().toStdString();
}

std::string textOf(const QJsonValue& finding, const char* field)
{
    return unwrapped(finding[QLatin1String(field)].toString());
}

bool isTooLong(const QString& line)
{
    // A path is never parted.
    return line.size() > 79 && line.simplified().split(' ').size() > 1 &&
           !line.contains(QLatin1Char('/'));
}

QJsonArray findingsIn(const InstalledProgram& program, const DoctorCase& expected,
                      const std::string& language, int exitCode)
{
    std::vector<std::string> arguments = {"doctor", "--lang", language};
    arguments.insert(arguments.end(), expected.arguments.begin(), expected.arguments.end());
    const QJsonObject answer = program.answer(arguments, exitCode);
    EXPECT_EQ(schemaComplaint("doctor.schema.json", jsonText(answer)), "");
    EXPECT_EQ(findingIds(answer, "problem"), expected.problems);
    EXPECT_EQ(findingIds(answer, "warning"), expected.warnings);
    EXPECT_EQ(answer["problemCount"].toInt(), static_cast<int>(expected.problems.size()));
    EXPECT_EQ(answer["warningCount"].toInt(), static_cast<int>(expected.warnings.size()));

    arguments.front() = "doctor";
    const ProgramEnd shown = program.run(arguments);
    EXPECT_EQ(shown.exitCode, exitCode) << shown.errors;
    const QString screen = QString::fromStdString(shown.output + shown.errors);
    for (const QJsonValue finding : answer["findings"].toArray()) {
        EXPECT_THAT(unwrapped(screen), HasSubstr(textOf(finding, "text")));
        EXPECT_THAT(unwrapped(screen), HasSubstr(textOf(finding, "cure")));
    }
    for (const QString& line : screen.split('\n')) {
        EXPECT_FALSE(isTooLong(line)) << line.toStdString();
    }
    return answer["findings"].toArray();
}

}  // namespace

void expectFindings(const InstalledProgram& program, const DoctorCase& expected)
{
    const int exitCode = static_cast<int>(
        expected.problems.empty() ? console::ExitCode::done : console::ExitCode::problemsFound);
    const auto before = program.cardFiles();
    const QJsonArray italian = findingsIn(program, expected, "it", exitCode);
    const QJsonArray english = findingsIn(program, expected, "en", exitCode);
    ASSERT_EQ(italian.size(), english.size());
    for (int i = 0; i < italian.size(); ++i) {
        EXPECT_NE(textOf(italian.at(i), "text"), textOf(english.at(i), "text"));
        EXPECT_EQ(textOf(italian.at(i), "id"), textOf(english.at(i), "id"));
        const bool needsMending = italian.at(i)["severity"].toString() != QLatin1String("ok");
        EXPECT_EQ(!textOf(italian.at(i), "cure").empty(), needsMending);
        EXPECT_EQ(!textOf(english.at(i), "cure").empty(), needsMending);
    }
    EXPECT_EQ(program.calls("C_Login"), 0U);
    EXPECT_EQ(program.calls("C_OpenSession"), 0U);
    EXPECT_EQ(program.cardFiles(), before);
}

bool mayMount()
{
    return runProgram({"unshare", "--mount", "mount", "-t", "tmpfs", "none", "/mnt"}, {}, {})
               .exitCode == 0;
}

}  // namespace hosts
