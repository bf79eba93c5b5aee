#include "renewal_fixture.h"

namespace support {

void RenewalTest::SetUp()
{
    LibraryTest::SetUp();
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    ErrorMessage = QStringLiteral("from before");
    ErrorCode = 8;
    ErrorOccurred = 7;
    rememberContext();
}

void RenewalTest::TearDown()
{
    EXPECT_EQ(plain(context), m_before);
    EXPECT_EQ(ErrorCode, 8);
    EXPECT_EQ(ErrorOccurred, 7);
    EXPECT_TRUE(signCertificate.isNull());
    EXPECT_TRUE(signCkaid.isNull());
    LibraryTest::TearDown();
}

void RenewalTest::addRecord(const QString& rowKey, const QString& certId)
{
    context[rowKey] = {{renew_context::renewalId, certId},
                       {renew_context::certificateCkaId, QStringLiteral("C0FFEE")},
                       {renew_context::subjectDN, QStringLiteral("2.5.4.3=Anna Verdi")},
                       {renew_context::pendingKey, QStringLiteral("DS9")}};
    rememberContext();
}

void RenewalTest::addRecoveryRecord(const QString& rowKey)
{
    context[rowKey] = {{renew_context::action, renew_context::recoverCertificate}};
    rememberContext();
}

void RenewalTest::removeRows()
{
    const RenewRecord settings = context.value(renew_context::settingsRow);
    context.clear();
    context[renew_context::settingsRow] = settings;
    rememberContext();
}

void RenewalTest::rememberContext()
{
    m_before = plain(context);
}

}  // namespace support
