#include "hosts/console/screens.h"
#include "hosts/console/text_layout.h"
#include "tests/support/printing.h"

#include <QStringList>

#include <gtest/gtest.h>
#include <unistd.h>

using namespace console;

namespace {

const QDate today(2026, 11, 21);

CertificateEntry dueEntry()
{
    CertificateEntry entry;
    entry.number = 1;
    entry.row = QStringLiteral("AUT: 1");
    entry.kindName = QStringLiteral("authentication");
    entry.holder = QStringLiteral("VERDI ADA");
    entry.issuer = QStringLiteral("Castelvane Demo CA");
    entry.validUntil = QDate(2026, 12, 21);
    entry.verdict = Verdict::toRenew;
    entry.verdictText = QStringLiteral("to be renewed; afterwards valid until 2030-01-20");
    return entry;
}

}  // namespace

TEST(CertificateTable, oneCertificate_isShownInTwoLines)
{
    EXPECT_EQ(
        certificateTable({dueEntry()}, today),
        QStringLiteral(
            "No  Kind           Holder                Issuer              Valid until   Days\n"
            "1   authentication VERDI ADA             Castelvane Demo CA  2026-12-21      30\n"
            "    to be renewed; afterwards valid until 2030-01-20"));
}

TEST(CertificateTable, longNamesAndOldDates_keepTheScreenWidth)
{
    CertificateEntry entry = dueEntry();
    entry.holder = QString(80, QLatin1Char('H'));
    entry.issuer = QString(80, QLatin1Char('I'));
    entry.validUntil = QDate(2016, 1, 1);
    entry.verdictText = QStringLiteral("reason ").repeated(30);
    for (const QString& line : certificateTable({entry}, today).split(QLatin1Char('\n'))) {
        EXPECT_LT(displayWidth(line), screenWidth) << line.toStdString();
    }
}

TEST(CertificateTable, noDate_isShownAsDash)
{
    CertificateEntry entry = dueEntry();
    entry.validUntil = QDate();
    const QString line = certificateTable({entry}, today).split(QLatin1Char('\n')).value(1);
    EXPECT_TRUE(line.endsWith(QStringLiteral("-                -"))) << line.toStdString();
}

TEST(RenewalResult, recovery_hasNoDateBefore)
{
    CertificateEntry before = dueEntry();
    CertificateEntry after = dueEntry();
    after.validUntil = QDate(2030, 1, 20);
    EXPECT_EQ(renewalResult(before, after),
              QStringLiteral("Renewed: authentication certificate of VERDI ADA\n"
                             "    valid until, before:  2026-12-21\n"
                             "    valid until, after:   2030-01-20"));
    before.verdict = Verdict::recovery;
    EXPECT_TRUE(renewalResult(before, after).contains(QStringLiteral("before:  no certificate")));
}

TEST(StopMessage, failure_tellsMeaningDetailAdviceAndLog)
{
    const Stop stop(ExitCode::noReader, QStringLiteral("Detail."), QStringLiteral("Advice."));
    EXPECT_EQ(stopMessage(stop, QStringLiteral("/log"), STDERR_FILENO),
              QStringLiteral("No card reader can be used.\n  Detail.\nAdvice.\nLog: /log"));
    EXPECT_EQ(stopMessage(Stop(ExitCode::declined), QStringLiteral("/log"), STDERR_FILENO),
              QStringLiteral("Nothing was done, as you wished."));
}

TEST(ResultSentences, everyRefusalOfTheLibrary_hasOne)
{
    for (const int result : {inventory_result::nothingRenewable, inventory_result::nothingOnCard,
                             inventory_result::noFreeKeyLabel, inventory_result::cardError,
                             inventory_result::cardNotSupported, inventory_result::pinLength}) {
        EXPECT_FALSE(inventorySentence(result).isEmpty()) << result;
    }
    for (const int result :
         {card_verification::serialNumberUnknown, card_verification::noLongerSupported,
          card_verification::noLongerRenewable, card_verification::notActivated,
          card_verification::activationUnknown, card_verification::noSession,
          card_verification::noModule, card_verification::unknownAtr,
          card_verification::noReader}) {
        EXPECT_FALSE(cardCheckSentence(result).isEmpty()) << result;
    }
    EXPECT_TRUE(inventorySentence(inventory_result::completed).isEmpty());
    EXPECT_TRUE(cardCheckSentence(card_verification::accepted).isEmpty());
}
