// The limitation-of-use question in processes with and without widgets.

#include "tests/support/eligibility_fixture.h"
#include "tests/support/limitation.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

using namespace support;
using testing::EndsWith;
using testing::HasSubstr;

#ifdef __SANITIZE_ADDRESS__
// Qt's offscreen platform does not release its screens; whole stacks are needed to tell them apart.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:libqoffscreen";
}
#endif

namespace {

struct HostArguments {
    int count = 1;
    char name[5] = "host";
    char* arguments[2] = {name, nullptr};
};

class LimitationQuestion : public EligibilityTest {
protected:
    void SetUp() override
    {
        EligibilityTest::SetUp();
        certificate = support::limited(renewable(pra()));
        certificate.policy = "1.3.76.36.1.1.23";
    }

    // The policy that the record asks for after the check.
    std::string askedPolicy()
    {
        check(pra(), certificate);
        return record(pra(), 1)["policy"];
    }

    // Looks at the box once it is shown, then does this to it. Only the box's own event loop can
    // start this, so nothing happens where no box appears.
    void onBox(const std::function<void(QMessageBox&)>& act)
    {
        m_timer = std::make_unique<QTimer>();
        m_timer->setSingleShot(true);
        QObject::connect(m_timer.get(), &QTimer::timeout, [this, act] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            ++boxes;
            EXPECT_EQ(box->windowTitle(), QStringLiteral("QMessageBox::question()"));
            EXPECT_EQ(box->text().toStdString(), questionText);
            EXPECT_EQ(box->informativeText(), QString());
            EXPECT_EQ(box->standardButtons(), QMessageBox::Yes | QMessageBox::No);
            EXPECT_EQ(box->defaultButton(), nullptr);
            EXPECT_EQ(box->icon(), QMessageBox::Question);
            EXPECT_EQ(box->parentWidget(), nullptr);
            EXPECT_TRUE(box->isModal());
            EXPECT_TRUE(box->isVisible());
            act(*box);
        });
        m_timer->start(0);
    }

    Descriptor certificate;
    int boxes = 0;
    HostArguments host;

private:
    std::unique_ptr<QTimer> m_timer;
};

TEST_F(LimitationQuestion, yesClicked_limitationIsRemoved)
{
    const QApplication application(host.count, host.arguments);
    StandardOutput output;
    onBox([](QMessageBox& box) { box.button(QMessageBox::Yes)->click(); });
    EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.1");
    EXPECT_EQ(boxes, 1);
    EXPECT_EQ(output.text(), "");
}

TEST_F(LimitationQuestion, noClicked_limitationStays)
{
    const QApplication application(host.count, host.arguments);
    answer("s\n");
    onBox([](QMessageBox& box) { box.button(QMessageBox::No)->click(); });
    EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.23");
    EXPECT_EQ(boxes, 1);
    EXPECT_EQ(input->rest(), "s\n");
}

TEST_F(LimitationQuestion, escapePressed_limitationStays)
{
    const QApplication application(host.count, host.arguments);
    onBox([](QMessageBox& box) {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
        QApplication::sendEvent(&box, &press);
    });
    EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.23");
    EXPECT_EQ(boxes, 1);
}

TEST_F(LimitationQuestion, windowClosed_limitationStays)
{
    const QApplication application(host.count, host.arguments);
    onBox([](QMessageBox& box) { box.close(); });
    EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.23");
    EXPECT_EQ(boxes, 1);
}

// While the box is shown a host sees the process-wide variables, and may set them.
TEST_F(LimitationQuestion, rowsTakenAwayMeanwhile_inventoryFindsNothingRenewable)
{
    struct Row {
        const char* condition;
        const char* earlierMessage;
        std::vector<Step> lastError;
        const char* message;
    };
    const Row table[] = {
        {"no message yet",
         "",
         {call("mvLastError").writing({"gi\xc3\xa0 estratta"}), call("mvLastErrno")},
         "gi\xc3\xa0 estratta"},
        {"no message at all", "", {call("mvLastError").returning(1), call("mvLastErrno")}, ""},
        {"a message from before", "from before", {}, "from before"},
    };
    const QApplication application(host.count, host.arguments);
    setting(renew_context::reader, QStringLiteral("Lettore"));
    setting(renew_context::pin, QStringLiteral("12345678"));
    CardContents card;
    card.praStore = {"1", signatureText(certificate)};
    card.labelPra = "DS1";
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        ErrorMessage = QString::fromUtf8(row.earlierMessage);
        setScript({call("rinnovo_Card_readCerts").reading(card)});
        extendScript(row.lastError);
        onBox([](QMessageBox& box) {
            EXPECT_EQ(rows, 1);
            rows = 0;
            box.button(QMessageBox::Yes)->click();
        });
        EXPECT_EQ(fill_sc_objects(&context), inventory_result::nothingRenewable);
        EXPECT_EQ(ErrorOccurred, 1);
        EXPECT_EQ(ErrorCode, inventory_error::nothingRenewable);
        EXPECT_EQ(ErrorMessage, QString::fromUtf8(row.message));
        EXPECT_THAT(log(), EndsWith(std::string("[*]: Nessun certificato rinnovabile: ") +
                                    row.message + "\n\n"));
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
    EXPECT_EQ(static_cast<int>(inventory_result::nothingRenewable), -80);
    EXPECT_EQ(static_cast<int>(inventory_error::nothingRenewable), -1002);
}

TEST_F(LimitationQuestion, applicationWithoutWindows_consoleIsAsked)
{
    const QGuiApplication application(host.count, host.arguments);
    answer("s\n");
    StandardOutput output;
    EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.1");
    EXPECT_THAT(output.text(), HasSubstr(questionText));
}

TEST_F(LimitationQuestion, applicationWithoutGraphics_consoleIsAsked)
{
    const QCoreApplication application(host.count, host.arguments);
    answer("n\n");
    StandardOutput output;
    EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.23");
    EXPECT_THAT(output.text(), HasSubstr(questionText));
}

TEST_F(LimitationQuestion, noApplication_consoleIsAsked)
{
    answer("s\xc3\xac\n");
    StandardOutput output;
    EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.1");
    EXPECT_THAT(output.text(), HasSubstr(questionText));
}

TEST_F(LimitationQuestion, applicationGone_consoleIsAskedAgain)
{
    {
        const QApplication application(host.count, host.arguments);
        onBox([](QMessageBox& box) { box.button(QMessageBox::No)->click(); });
        EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.23");
    }
    answer("s\n");
    StandardOutput output;
    EXPECT_EQ(askedPolicy(), "1.3.76.36.1.1.1");
    EXPECT_EQ(boxes, 1);
}

}  // namespace
