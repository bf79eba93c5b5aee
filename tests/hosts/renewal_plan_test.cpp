#include "hosts/console/renewal_plan.h"
#include "hosts/console/text_layout.h"
#include "tests/support/printing.h"

#include <QJsonArray>

#include <gtest/gtest.h>

using namespace console;

namespace {

struct Row {
    const char* situation;
    Command command;
    Verdict verdict;
    bool keyWaits;
    bool isKept;
    const char* issuedFile;
    const char* authority;
    const char* steps;
};

constexpr Row situations[] = {
    {"first time", Command::renew, Verdict::toRenew, false, false, "", "ca",
     "make-key-pair make-request ask-authority write-certificate remove-replaced"},
    {"by hand", Command::guided, Verdict::toRenew, false, false, "", "",
     "make-key-pair make-request fetch-by-hand write-certificate remove-replaced"},
    {"begun before", Command::resume, Verdict::toRenew, true, false, "", "ca",
     "use-waiting-key make-request ask-authority write-certificate remove-replaced"},
    {"file given", Command::install, Verdict::toRenew, true, false, "file", "",
     "use-waiting-key make-request read-issued-file write-certificate remove-replaced"},
    {"certificate kept", Command::resume, Verdict::toRenew, true, true, "", "ca",
     "use-kept-certificate write-certificate remove-replaced"},
    {"request alone", Command::request, Verdict::toRenew, false, false, "", "",
     "make-key-pair make-request"},
    {"request again", Command::request, Verdict::toRenew, true, false, "", "",
     "use-waiting-key make-request"},
    {"recovery, kept", Command::resume, Verdict::recovery, true, true, "", "ca",
     "use-kept-certificate write-certificate"},
    {"recovery, file", Command::resume, Verdict::recovery, true, false, "file", "",
     "read-issued-file write-certificate"},
    {"recovery, by hand", Command::resume, Verdict::recovery, true, false, "", "ca",
     "fetch-by-hand write-certificate"},
};

RenewalPlan planOf(const Row& row)
{
    CertificateEntry entry;
    entry.number = 2;
    entry.kindName = QStringLiteral("authentication");
    entry.holder = QStringLiteral("VERDI ADA");
    entry.verdict = row.verdict;
    entry.pendingKey = row.keyWaits ? QStringLiteral("AUT1") : QString();
    Arguments arguments;
    arguments.command = row.command;
    arguments.issuedFile = QString::fromLatin1(row.issuedFile);
    const QString authority = QString::fromLatin1(row.authority);
    if (!authority.isEmpty()) {
        arguments.authority =
            enrolment::configurationFrom(QStringLiteral("command:") + authority, {});
    }
    return renewalPlan(entry, row.isKept, arguments);
}

}  // namespace

TEST(RenewalPlan, eachSituation_hasItsSteps)
{
    for (const Row& row : situations) {
        SCOPED_TRACE(row.situation);
        const QJsonObject plan = planObject(planOf(row));
        QStringList steps;
        for (const QJsonValue step : plan["steps"].toArray()) {
            steps.append(step.toString());
        }
        EXPECT_EQ(steps.join(QLatin1Char(' ')), QString::fromLatin1(row.steps));
        EXPECT_EQ(plan["certificate"].toInt(), 2);
    }
}

TEST(RenewalPlan, screen_hasALineForEachStep)
{
    for (const Row& row : situations) {
        SCOPED_TRACE(row.situation);
        const RenewalPlan plan = planOf(row);
        const QStringList lines = planScreen(plan).split(QLatin1Char('\n'));
        EXPECT_EQ(lines.size(), static_cast<int>(plan.steps.size()) + 1);
        EXPECT_TRUE(lines.first().contains(QStringLiteral("number 2")))
            << lines.first().toStdString();
        for (const QString& line : lines) {
            EXPECT_LT(displayWidth(line), screenWidth) << line.toStdString();
        }
    }
}

TEST(RenewalPlan, authorityWithControlCharacters_isShownWithoutThem)
{
    Row row = situations[0];
    row.authority = "dir/c\033[2Ja";
    EXPECT_TRUE(planScreen(planOf(row)).contains(QStringLiteral("(c?[2Ja)")));
}
