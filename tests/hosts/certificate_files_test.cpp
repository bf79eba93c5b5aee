#include "hosts/console/certificate_files.h"
#include "hosts/console/exit_code.h"
#include "tests/support/printing.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace console;

TEST(CertificateFiles, whatWasWritten_isReadBack)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("request.pem"));
    writeWhole(path, "first");
    writeWhole(path, "second");
    EXPECT_EQ(readWhole(path), QByteArray("second"));
}

TEST(CertificateFiles, unusablePaths_stopWithTheName)
{
    const QTemporaryDir folder;
    const QString missing = folder.filePath(QStringLiteral("none/request.pem"));
    const QString large = folder.filePath(QStringLiteral("large"));
    writeWhole(large, QByteArray(1048577, 'x'));
    const auto expectStop = [](const QString& path, auto&& action) {
        SCOPED_TRACE(path.toStdString());
        try {
            action();
            FAIL() << "no Stop was thrown";
        } catch (const Stop& stop) {
            EXPECT_EQ(stop.code(), ExitCode::fileFailed);
            EXPECT_TRUE(stop.detail().contains(path));
        }
    };
    expectStop(missing, [&] { readWhole(missing); });
    expectStop(missing, [&] { writeWhole(missing, "x"); });
    expectStop(large, [&] { readWhole(large); });
}
