#include "hosts/console/private_folder.h"
#include "program_run.h"
#include "stop_expectation.h"
#include "tests/support/printing.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

using console::ExitCode;
using console::PrivateFolder;
using hosts::expectStop;

namespace {

constexpr int anySize = 1 << 24;

class PrivateFolderTest : public testing::Test {
protected:
    QString parent() const { return m_home.filePath(QStringLiteral("user")); }
    QString inside(const QString& name) const { return parent() + QStringLiteral("/kept") + name; }
    PrivateFolder made() const { return PrivateFolder::made(parent(), QStringLiteral("kept")); }

    static mode_t modeOf(const QString& path)
    {
        struct stat status {};
        EXPECT_EQ(::lstat(QFile::encodeName(path).constData(), &status), 0) << std::strerror(errno);
        return status.st_mode & 07777U;
    }
    static void setMode(const QString& path, mode_t mode)
    {
        ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
    }
    static void writePlain(const QString& path, const QByteArray& bytes)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }
    QStringList allEntries() const
    {
        return QDir(inside({}))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                       QDir::Name);
    }
    static QByteArray contentOf(const PrivateFolder& folder, const char* name)
    {
        return folder.read(QString::fromUtf8(name), anySize).value_or("no file");
    }

    QTemporaryDir m_home;
    const QString m_file = QStringLiteral("note");
};

class Umask {
public:
    explicit Umask(mode_t mask)
        : m_before(::umask(mask))
    {
    }
    ~Umask() { ::umask(m_before); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;
    Umask(Umask&&) = delete;
    Umask& operator=(Umask&&) = delete;

private:
    mode_t m_before;
};

}  // namespace

TEST_F(PrivateFolderTest, everyUmask_onlyTheOwnerCanRead)
{
    for (const mode_t mask : {00U, 022U, 077U, 0777U}) {
        SCOPED_TRACE(mask);
        const QTemporaryDir home;
        const QString user = home.filePath(QStringLiteral("user"));
        const Umask set(mask);
        const PrivateFolder folder = PrivateFolder::made(user, QStringLiteral("kept"));
        folder.write(m_file, "text");
        EXPECT_EQ(modeOf(user), 0700U);
        EXPECT_EQ(modeOf(user + QStringLiteral("/kept")), 0700U);
        EXPECT_EQ(modeOf(folder.pathOf(m_file)), 0600U);
        EXPECT_EQ(contentOf(folder, "note"), QByteArray("text"));
    }
}

TEST_F(PrivateFolderTest, nothingThere_isNoErrorAndNothingIsMade)
{
    EXPECT_FALSE(PrivateFolder::existing(parent(), QStringLiteral("kept")));
    EXPECT_FALSE(QFile::exists(parent()));
    ASSERT_TRUE(QDir().mkdir(parent()));
    EXPECT_FALSE(PrivateFolder::existing(parent(), QStringLiteral("kept")));
    EXPECT_FALSE(QFile::exists(inside({})));

    const PrivateFolder folder = made();
    EXPECT_FALSE(folder.read(m_file, anySize));
    EXPECT_NO_THROW(folder.remove(m_file));
    EXPECT_TRUE(folder.names().isEmpty());
}

TEST_F(PrivateFolderTest, written_isListedReadAndRemoved)
{
    const PrivateFolder folder = made();
    folder.write(m_file, "first");
    folder.write(m_file, QByteArray("second\0with NUL", 15));
    folder.write(QStringLiteral("empty"), {});
    QStringList names = folder.names();
    names.sort();
    EXPECT_EQ(names, (QStringList{QStringLiteral("empty"), m_file}));
    EXPECT_EQ(contentOf(folder, "note"), QByteArray("second\0with NUL", 15));
    EXPECT_EQ(contentOf(folder, "empty"), QByteArray());
    folder.remove(m_file);
    EXPECT_EQ(allEntries(), QStringList{QStringLiteral("empty")});
}

TEST_F(PrivateFolderTest, sizeLimit_isExact)
{
    const PrivateFolder folder = made();
    folder.write(m_file, QByteArray(10000, 'x'));
    EXPECT_EQ(folder.read(m_file, 10000), QByteArray(10000, 'x'));
    expectStop(ExitCode::fileFailed, {inside(QStringLiteral("/note")).toStdString(), "9999 bytes"},
               [&] { static_cast<void>(folder.read(m_file, 9999)); });
}

TEST_F(PrivateFolderTest, folderThatOthersCanWrite_isRefusedUnchanged)
{
    made().write(m_file, "text");
    for (const QString& path : {parent(), inside({})}) {
        for (const mode_t mode : {0770U, 0702U, 0777U}) {
            SCOPED_TRACE(path.toStdString() + " " + std::to_string(mode));
            setMode(path, mode);
            const std::vector<std::string> told = {path.toStdString(),
                                                   "can be changed by other users"};
            expectStop(ExitCode::fileFailed, told,
                       [&] { PrivateFolder::existing(parent(), QStringLiteral("kept")); });
            expectStop(ExitCode::fileFailed, told, [&] { made(); });
            EXPECT_EQ(modeOf(path), mode);
        }
        setMode(path, 0700);
    }
    EXPECT_EQ(contentOf(made(), "note"), QByteArray("text"));
}

TEST_F(PrivateFolderTest, folderThatOthersCanRead_isClosedToThem)
{
    made();
    setMode(inside({}), 0755);
    setMode(parent(), 0755);
    EXPECT_TRUE(PrivateFolder::existing(parent(), QStringLiteral("kept")));
    EXPECT_EQ(modeOf(inside({})), 0700U);
    EXPECT_EQ(modeOf(parent()), 0755U);
}

TEST_F(PrivateFolderTest, folderOfAnotherUser_isRefused)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder to another user";
    }
    made();
    for (const QString& path : {inside({}), parent()}) {
        ASSERT_EQ(::chown(QFile::encodeName(path).constData(), 65534, 65534), 0);
        expectStop(ExitCode::fileFailed, {path.toStdString(), "belongs to another user"},
                   [&] { made(); });
    }
}

TEST_F(PrivateFolderTest, linkInsteadOfTheFolder_isRefused)
{
    const QString elsewhere = m_home.filePath(QStringLiteral("elsewhere"));
    ASSERT_TRUE(QDir().mkdir(elsewhere));
    ASSERT_TRUE(QDir().mkdir(parent()));
    ASSERT_TRUE(QFile::link(elsewhere, inside({})));
    expectStop(ExitCode::fileFailed, {inside({}).toStdString()}, [&] { made(); });
    EXPECT_TRUE(QDir(elsewhere).isEmpty());
}

TEST_F(PrivateFolderTest, whatIsNoFileOfOurs_isNotRead)
{
    const PrivateFolder folder = made();
    const QString secret = m_home.filePath(QStringLiteral("secret"));
    writePlain(secret, "another's text");
    ASSERT_TRUE(QFile::link(secret, inside(QStringLiteral("/link"))));
    ASSERT_TRUE(QDir(inside({})).mkdir(QStringLiteral("folder")));
    ASSERT_EQ(::mkfifo(QFile::encodeName(inside(QStringLiteral("/pipe"))).constData(), 0600), 0);
    folder.write(QStringLiteral("open"), "text");
    setMode(inside(QStringLiteral("/open")), 0622);
    for (const char* name : {"link", "folder", "pipe", "open"}) {
        SCOPED_TRACE(name);
        expectStop(ExitCode::fileFailed, {inside(QStringLiteral("/")).toStdString() + name},
                   [&] { static_cast<void>(folder.read(QString::fromUtf8(name), anySize)); });
    }
}

TEST_F(PrivateFolderTest, writeOverALink_replacesTheLinkOnly)
{
    const PrivateFolder folder = made();
    const QString target = m_home.filePath(QStringLiteral("target"));
    writePlain(target, "another's text");
    ASSERT_TRUE(QFile::link(target, inside(QStringLiteral("/note"))));
    folder.write(m_file, "mine");
    EXPECT_EQ(contentOf(folder, "note"), QByteArray("mine"));
    QFile file(target);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("another's text"));
}

TEST_F(PrivateFolderTest, writeThatFails_leavesTheEarlierFileAlone)
{
    made().write(m_file, "earlier");
    const hosts::ProgramEnd end = hosts::runCopy({}, [&] {
        const PrivateFolder folder = made();
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{5000, 5000};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        expectStop(ExitCode::fileFailed, {inside(QStringLiteral("/note")).toStdString()},
                   [&] { folder.write(m_file, QByteArray(9000, 'x')); });
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(end.exitCode, 0) << end.output;
    EXPECT_EQ(allEntries(), QStringList{m_file});
    EXPECT_EQ(contentOf(made(), "note"), QByteArray("earlier"));
}

TEST_F(PrivateFolderTest, targetThatCannotBeReplaced_leavesNoUnfinishedFile)
{
    const PrivateFolder folder = made();
    ASSERT_TRUE(QDir(inside({})).mkdir(m_file));
    expectStop(ExitCode::fileFailed, {inside(QStringLiteral("/note")).toStdString()},
               [&] { folder.write(m_file, "text"); });
    EXPECT_EQ(allEntries(), QStringList{m_file});
}

TEST_F(PrivateFolderTest, killedWriters_neverLeaveHalfAFile)
{
    constexpr int size = 300000;
    constexpr int kills = 40;
    const PrivateFolder folder = made();
    folder.write(m_file, QByteArray(size, 'a'));
    for (int kill = 1; kill <= kills; ++kill) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // The size tells whose file it is.
            for (char letter = 'a';; letter = letter == 'z' ? 'a' : static_cast<char>(letter + 1)) {
                folder.write(m_file, QByteArray(size + kill, letter));
            }
        }
        // At its work for certain, then interrupted at some moment of it.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (contentOf(folder, "note").size() != size + kill &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(131 * kill));
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself: " << status;
        const QByteArray left = contentOf(folder, "note");
        ASSERT_EQ(left.size(), size + kill);
        ASSERT_EQ(left.count(left.at(0)), left.size());
    }
}

TEST_F(PrivateFolderTest, severalWriters_theLastOneWinsWhole)
{
    const PrivateFolder folder = made();
    folder.write(m_file, QByteArray(20000, 'a'));
    constexpr int rounds = 60;
    std::array<pid_t, 2> writers{};
    for (pid_t& writer : writers) {
        const char letter = &writer == writers.data() ? 'b' : 'c';
        writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            for (int round = 0; round < rounds; ++round) {
                folder.write(m_file, QByteArray(20000 + round, letter));
            }
            ::_exit(0);
        }
    }
    size_t running = writers.size();
    while (running > 0) {
        const QByteArray now = contentOf(folder, "note");
        ASSERT_GE(now.size(), 20000);
        ASSERT_EQ(now.count(now.at(0)), now.size());
        int status = 0;
        if (::waitpid(-1, &status, WNOHANG) > 0) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
            --running;
        }
    }
    EXPECT_EQ(contentOf(folder, "note").size(), 20000 + rounds - 1);
    EXPECT_EQ(allEntries(), QStringList{m_file});
}

TEST_F(PrivateFolderTest, leftoversOfAKilledWriter_goOnceTheyAreOld)
{
    const PrivateFolder folder = made();
    const QStringList left = {QStringLiteral(".1f.unfinished"), QStringLiteral(".2e.unfinished"),
                              QStringLiteral(".other")};
    for (const QString& name : left) {
        writePlain(inside(QLatin1Char('/') + name), "half");
    }
    const auto age = [&](const QString& name, int seconds) {
        const timespec time{::time(nullptr) - seconds, 0};
        const std::array<timespec, 2> times{time, time};
        ASSERT_EQ(::utimensat(AT_FDCWD,
                              QFile::encodeName(inside(QLatin1Char('/') + name)).constData(),
                              times.data(), 0),
                  0);
    };
    age(left[0], 4000);
    age(left[1], 3000);
    age(left[2], 4000);
    EXPECT_TRUE(folder.names().isEmpty());
    folder.write(m_file, "text");
    EXPECT_EQ(allEntries(), (QStringList{left[1], left[2], m_file}));
}

TEST_F(PrivateFolderTest, openedFolderMovedAway_writesStayInIt)
{
    const PrivateFolder folder = made();
    const QString moved = m_home.filePath(QStringLiteral("moved"));
    const QString trap = m_home.filePath(QStringLiteral("trap"));
    ASSERT_TRUE(QDir().mkdir(trap));
    ASSERT_TRUE(QDir().rename(inside({}), moved));
    ASSERT_TRUE(QFile::link(trap, inside({})));
    folder.write(m_file, "text");
    EXPECT_TRUE(QFile::exists(moved + QStringLiteral("/note")));
    EXPECT_TRUE(QDir(trap).isEmpty());
}
