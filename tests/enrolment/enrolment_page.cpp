#include "enrolment_page.h"

#include <QFile>

#include <gtest/gtest.h>

namespace trial {

QString enrolmentPage()
{
    QFile file(QStringLiteral(TARVELOQT_SOURCE_DIR "/docs/enrolment.md"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return QString::fromUtf8(file.readAll());
}

QByteArray example(const QString& language)
{
    const QString page = enrolmentPage();
    const QString fence = QStringLiteral("```%1\n").arg(language);
    EXPECT_EQ(page.count(fence), 1) << fence.toStdString();
    const int begin = page.indexOf(fence) + fence.size();
    return page.mid(begin, page.indexOf(QStringLiteral("```"), begin) - begin).toUtf8();
}

void expectRow(const QString& first, const QString& second)
{
    EXPECT_TRUE(enrolmentPage().contains(QStringLiteral("\n| %1 | %2 |\n").arg(first, second)))
        << "docs/enrolment.md lacks the row \"" << first.toStdString() << "\", \""
        << second.toStdString() << '"';
}

}  // namespace trial
