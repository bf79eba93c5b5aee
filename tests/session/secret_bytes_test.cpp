#include "session/secret_bytes.h"

#include <QByteArray>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(SecretUtf8, anyText_isEncodedAsQtEncodesIt)
{
    for (const char* text :
         {"", "12345678", "p\xC3\xA0ss", "\xE2\x82\xAC\xF0\x9F\x94\x91!", "a b"}) {
        const QString string = QString::fromUtf8(text);
        const session::SecretBytes bytes = session::secretUtf8(string);
        ASSERT_FALSE(bytes.empty());
        EXPECT_EQ(std::string(bytes.data()), text);
        EXPECT_EQ(bytes.size(), std::string(text).size() + 1);
    }
}

TEST(SecretUtf8, loneSurrogate_isReplacedLikeQtDoes)
{
    const QString broken = QStringLiteral("1") + QChar(0xD83D) + QStringLiteral("2");
    EXPECT_EQ(std::string(session::secretUtf8(broken).data()), broken.toUtf8().toStdString());
}

}  // namespace
