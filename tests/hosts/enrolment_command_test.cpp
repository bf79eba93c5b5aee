#include "hosts/console/enrolment_command.h"
#include "hosts/console/exit_code.h"
#include "tests/support/printing.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace console;

namespace {

QString stopDetail(const QStringList& command, int timeoutSeconds = 20)
{
    try {
        enrolByCommand(command, "request", timeoutSeconds);
    } catch (const Stop& stop) {
        EXPECT_EQ(stop.code(), ExitCode::authorityFailed);
        return stop.detail();
    }
    ADD_FAILURE() << "no Stop was thrown";
    return {};
}

QStringList shell(const char* script)
{
    return {QStringLiteral("sh"), QStringLiteral("-c"), QString::fromUtf8(script)};
}

}  // namespace

TEST(EnrolmentCommand, requestOnItsInput_answerFromItsOutput)
{
    EXPECT_EQ(enrolByCommand(shell("tr a-z A-Z"), "request\n", 20), QByteArray("REQUEST\n"));
}

TEST(EnrolmentCommand, largeRequestAndAnswer_arriveWhole)
{
    const QByteArray request(300000, 'x');
    EXPECT_EQ(enrolByCommand({QStringLiteral("cat")}, request, 20), request);
}

TEST(EnrolmentCommand, argumentWithShellSigns_isNotInterpreted)
{
    EXPECT_EQ(enrolByCommand(
                  {QStringLiteral("printf"), QStringLiteral("%s"), QStringLiteral("$HOME; `id` *")},
                  "", 20),
              QByteArray("$HOME; `id` *"));
}

TEST(EnrolmentCommand, inputNotRead_isNoFailure)
{
    EXPECT_EQ(enrolByCommand(shell("exec <&-; echo certificate"), QByteArray(200000, 'x'), 20),
              QByteArray("certificate\n"));
}

TEST(EnrolmentCommand, failures_areToldInTheProgramsWords)
{
    struct Row {
        QStringList command;
        const char* told;
    };
    const Row rows[] = {
        {{}, "No program is named"},
        {{QStringLiteral("/nonexistent/authority")}, "cannot be started"},
        {shell("echo 'no such holder' >&2; exit 3"), "ended with code 3. It says: no such holder"},
        {shell("exit 4"), "ended with code 4. It gave no reason."},
        {shell("exit 0"), "wrote nothing"},
        {shell("kill -9 $$"), "crashed"},
        {shell("printf 'a\\033[2Jb' >&2; exit 1"), "a?[2Jb"},
        {shell("head -c 1100000 /dev/zero"), "more than a certificate"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.told);
        EXPECT_TRUE(stopDetail(row.command).contains(QString::fromUtf8(row.told)));
    }
}

TEST(EnrolmentCommand, programThatHangs_isKilledAfterTheTimeout)
{
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(stopDetail({QStringLiteral("sleep"), QStringLiteral("60")}, 1)
                    .contains(QStringLiteral("within 1 seconds")));
    EXPECT_LT(timer.elapsed(), 20000);
}

TEST(Placeholders, knownNames_areReplacedEverywhere)
{
    const QStringList command = {QStringLiteral("issue"), QStringLiteral("--until={not-after}"),
                                 QStringLiteral("{policy}{policy}"), QStringLiteral("{other}")};
    const QStringList expected = {QStringLiteral("issue"), QStringLiteral("--until=20300101000000"),
                                  QStringLiteral("1.21.2"), QStringLiteral("{other}")};
    EXPECT_EQ(
        withPlaceholders(command, {{QStringLiteral("not-after"), QStringLiteral("20300101000000")},
                                   {QStringLiteral("policy"), QStringLiteral("1.2")}}),
        expected);
}
