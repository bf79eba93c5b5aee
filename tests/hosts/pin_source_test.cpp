#include "hosts/console/exit_code.h"
#include "hosts/console/pin_source.h"
#include "tests/support/printing.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace console;

namespace {

class PinFile : public testing::Test {
protected:
    QString write(const QByteArray& bytes)
    {
        QFile file(m_folder.filePath(QStringLiteral("pin")));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        EXPECT_EQ(file.write(bytes), bytes.size());
        return file.fileName();
    }

    QTemporaryDir m_folder;
};

}  // namespace

TEST_F(PinFile, firstLine_isThePin)
{
    struct Row {
        QByteArray bytes;
        QString pin;
    };
    const Row rows[] = {
        {"12345678", QStringLiteral("12345678")},
        {"12345678\n", QStringLiteral("12345678")},
        {"12345678\r\n", QStringLiteral("12345678")},
        {"1234567\u00e0\nsecond\n", QStringLiteral("1234567\u00e0")},
        {"123456789\n", QStringLiteral("123456789")},
        {" 1234567\n", QStringLiteral(" 1234567")},
        {"", QString()},
        {"\n12345678\n", QString()},
        {QByteArray(100, '7'), QString(64, QLatin1Char('7'))},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bytes.toStdString());
        EXPECT_EQ(pinFromFile(write(row.bytes)), row.pin);
    }
}

TEST_F(PinFile, missingOrUnreadable_stopsWithTheName)
{
    for (const QString& path : {m_folder.filePath(QStringLiteral("missing")), m_folder.path()}) {
        SCOPED_TRACE(path.toStdString());
        try {
            pinFromFile(path);
            FAIL() << "no Stop was thrown";
        } catch (const Stop& stop) {
            EXPECT_EQ(stop.code(), ExitCode::fileFailed);
            EXPECT_TRUE(stop.detail().contains(path));
        }
    }
}

TEST(PinVariable, set_isReadAndRemoved)
{
    ASSERT_EQ(setenv("CONSOLE_TEST_PIN", "87654321", 1), 0);
    const char* place = std::getenv("CONSOLE_TEST_PIN");
    EXPECT_EQ(pinFromEnvironment(QStringLiteral("CONSOLE_TEST_PIN")), QStringLiteral("87654321"));
    EXPECT_EQ(std::getenv("CONSOLE_TEST_PIN"), nullptr);
    EXPECT_EQ(place[0], '\0');
}

TEST(PinVariable, unset_stops)
{
    try {
        pinFromEnvironment(QStringLiteral("CONSOLE_TEST_NO_PIN"));
        FAIL() << "no Stop was thrown";
    } catch (const Stop& stop) {
        EXPECT_EQ(stop.code(), ExitCode::pinUnusable);
    }
}

TEST(Wipe, sharedText_isOverwrittenInEveryCopy)
{
    QString pin = QString::number(12345678);
    const QString copy = pin;
    wipe(pin);
    EXPECT_EQ(copy, QString(8, QChar(0)));
    QString empty;
    wipe(empty);
    EXPECT_TRUE(empty.isEmpty());
}
