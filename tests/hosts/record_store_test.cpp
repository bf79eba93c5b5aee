#include "certificate_maker.h"
#include "hosts/console/record_store.h"
#include "json_schema.h"
#include "stop_expectation.h"
#include "tests/support/printing.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace console;
using hosts::expectStop;

namespace {

QDateTime daysAfterStart(int days)
{
    return QDateTime(QDate(2026, 11, 21), QTime(12, 0), Qt::UTC).addDays(days);
}

class RecordStoreTest : public testing::Test {
protected:
    static RenewalRecord newRecord(int day)
    {
        const hosts::Key key = hosts::newKey();
        return recordOfRequest(hosts::requestFor(key.get(), key.get()), daysAfterStart(day));
    }
    QString fileOf(const QString& digest) const
    {
        return m_home.filePath(QStringLiteral("user/renewals/") + digest + QStringLiteral(".json"));
    }
    static QByteArray contentOf(const QString& path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        return file.readAll();
    }
    static void write(const QString& path, const QByteArray& bytes)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    QTemporaryDir m_home;
    const RecordStore m_store{m_home.filePath(QStringLiteral("user"))};
};

}  // namespace

TEST_F(RecordStoreTest, saved_isFoundUnderItsDigestAndValid)
{
    const RenewalRecord record = newRecord(0);
    m_store.save(record);
    const QByteArray written = contentOf(fileOf(record.publicKeyDigest));
    EXPECT_EQ(written, toJson(record));
    EXPECT_EQ(hosts::schemaComplaint("record.schema.json", written.toStdString()), "");

    const auto found = m_store.find(record.publicKeyDigest);
    ASSERT_TRUE(found);
    EXPECT_EQ(toJson(*found), written);
    EXPECT_FALSE(m_store.find(newRecord(0).publicKeyDigest));
}

TEST_F(RecordStoreTest, noFolder_isAnEmptyListAndNothingIsMade)
{
    const RecordListing listing = m_store.list();
    EXPECT_TRUE(listing.records.empty());
    EXPECT_TRUE(listing.complaints.empty());
    EXPECT_FALSE(m_store.find(newRecord(0).publicKeyDigest));
    EXPECT_NO_THROW(m_store.remove(newRecord(0).publicKeyDigest));
    EXPECT_TRUE(QDir(m_home.path()).isEmpty());
    m_store.prepare();
    EXPECT_TRUE(QDir(m_home.filePath(QStringLiteral("user/renewals"))).exists());
}

TEST_F(RecordStoreTest, list_beginsWithTheOldest)
{
    for (const int day : {2, 0, 3, 1}) {
        m_store.save(newRecord(day));
    }
    const RecordListing listing = m_store.list();
    EXPECT_TRUE(listing.complaints.empty());
    ASSERT_EQ(listing.records.size(), 4U);
    for (int day = 0; day < 4; ++day) {
        EXPECT_EQ(listing.records[static_cast<size_t>(day)].requestedAt, daysAfterStart(day));
    }
}

TEST_F(RecordStoreTest, unreadableFiles_hideNoOthers)
{
    const RenewalRecord good = newRecord(1);
    m_store.save(newRecord(0));
    m_store.save(good);
    const QString damaged = QString(64, QLatin1Char('a'));
    const QString misplaced = QString(64, QLatin1Char('b'));
    const QString large = QString(64, QLatin1Char('c'));
    const QString link = QString(64, QLatin1Char('d'));
    const QString folder = QString(64, QLatin1Char('e'));
    write(fileOf(damaged), toJson(good).left(100));
    write(fileOf(misplaced), toJson(good));
    write(fileOf(large), QByteArray(262145, ' '));
    ASSERT_TRUE(QFile::link(fileOf(good.publicKeyDigest), fileOf(link)));
    ASSERT_TRUE(QDir().mkdir(fileOf(folder)));

    const RecordListing listing = m_store.list();
    EXPECT_EQ(listing.records.size(), 2U);
    const QStringList expected = {damaged, misplaced, large, link, folder};
    ASSERT_EQ(listing.complaints.size(), 5U);
    for (int index = 0; index < expected.size(); ++index) {
        const Stop& complaint = listing.complaints[static_cast<size_t>(index)];
        EXPECT_EQ(complaint.code(), ExitCode::fileFailed);
        EXPECT_TRUE(complaint.detail().contains(fileOf(expected[index])))
            << complaint.detail().toStdString();
        EXPECT_FALSE(complaint.nextStep().isEmpty());
    }
    EXPECT_TRUE(listing.complaints[1].detail().contains(QStringLiteral("another key")));
}

TEST_F(RecordStoreTest, otherFileNames_areLeftAlone)
{
    m_store.save(newRecord(0));
    const QString digits(64, QLatin1Char('a'));
    const QString suffix = QStringLiteral(".json");
    const QStringList names = {digits,
                               digits.left(63) + suffix,
                               digits + QLatin1Char('a') + suffix,
                               digits.toUpper() + suffix,
                               digits.left(63) + QLatin1Char('g') + suffix,
                               digits + suffix + QLatin1Char('\n'),
                               digits + suffix + QLatin1Char('~'),
                               QStringLiteral("notes") + suffix};
    const QDir folder(m_home.filePath(QStringLiteral("user/renewals")));
    for (const QString& name : names) {
        write(folder.filePath(name), "anything");
    }
    const RecordListing listing = m_store.list();
    EXPECT_EQ(listing.records.size(), 1U);
    EXPECT_TRUE(listing.complaints.empty());
    for (const QString& name : names) {
        EXPECT_EQ(contentOf(folder.filePath(name)), QByteArray("anything"));
    }
}

TEST_F(RecordStoreTest, savedAgain_replacesAndKeepsFieldsOfLaterPrograms)
{
    const RenewalRecord record = newRecord(0);
    m_store.save(record);
    QByteArray withMore = contentOf(fileOf(record.publicKeyDigest));
    withMore.replace(R"("version": 1)", R"("later": "kept", "version": 1)");
    write(fileOf(record.publicKeyDigest), withMore);

    RenewalRecord found = m_store.find(record.publicKeyDigest).value();
    found.state = RecordState::submitted;
    m_store.save(found);
    const RecordListing listing = m_store.list();
    ASSERT_EQ(listing.records.size(), 1U);
    EXPECT_EQ(listing.records[0].state, RecordState::submitted);
    EXPECT_EQ(listing.records[0].asRead.value(QStringLiteral("later")).toString(),
              QStringLiteral("kept"));
}

TEST_F(RecordStoreTest, removed_isGoneAndOthersStay)
{
    const RenewalRecord first = newRecord(0);
    const RenewalRecord second = newRecord(1);
    m_store.save(first);
    m_store.save(second);
    m_store.remove(first.publicKeyDigest);
    m_store.remove(first.publicKeyDigest);
    const RecordListing listing = m_store.list();
    ASSERT_EQ(listing.records.size(), 1U);
    EXPECT_EQ(listing.records[0].publicKeyDigest, second.publicKeyDigest);
}

TEST_F(RecordStoreTest, whatCouldNotBeReadAgain_isNotSaved)
{
    const RenewalRecord good = newRecord(0);
    m_store.save(good);
    const QByteArray before = contentOf(fileOf(good.publicKeyDigest));

    RenewalRecord withoutCertificate = good;
    withoutCertificate.state = RecordState::issued;
    RenewalRecord large = good;
    large.authority.state.insert(QStringLiteral("cookie"), QString(262144, QLatin1Char('x')));
    RenewalRecord withoutTime = good;
    withoutTime.changedAt = QDateTime();
    for (const RenewalRecord& record : {withoutCertificate, large, withoutTime}) {
        EXPECT_THROW(m_store.save(record), Stop);
        EXPECT_EQ(contentOf(fileOf(good.publicKeyDigest)), before);
    }

    RenewalRecord withoutDigest = good;
    withoutDigest.publicKeyDigest = QStringLiteral("../../x");
    expectStop(ExitCode::internalError, {"lacks the digest"}, [&] { m_store.save(withoutDigest); });
    expectStop(ExitCode::internalError, {"lacks the digest"},
               [&] { m_store.remove(withoutDigest.publicKeyDigest); });
}

TEST_F(RecordStoreTest, folderThatOthersCanWrite_stopsBeforeAnythingIsDone)
{
    m_store.save(newRecord(0));
    ASSERT_TRUE(QFile::setPermissions(m_home.filePath(QStringLiteral("user")),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                          QFile::WriteOther | QFile::ExeOther));
    const std::vector<std::string> told = {m_home.filePath(QStringLiteral("user")).toStdString(),
                                           "can be changed by other users"};
    expectStop(ExitCode::fileFailed, told, [&] { m_store.prepare(); });
    expectStop(ExitCode::fileFailed, told, [&] { static_cast<void>(m_store.list()); });
    expectStop(ExitCode::fileFailed, told, [&] { m_store.save(newRecord(1)); });
}

TEST(RecordStore, userFolder_isTheLibrarys)
{
    const QByteArray home = qgetenv("HOME");
    ASSERT_TRUE(qputenv("HOME", "/tmp/somebody"));
    EXPECT_EQ(RecordStore::userFolder(), QStringLiteral("/tmp/somebody/.brisko"));
    ASSERT_TRUE(qputenv("HOME", home));
}
