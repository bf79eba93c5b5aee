#include "hosts/console/exit_code.h"
#include "hosts/console/library_streams.h"
#include "program_run.h"

#include <QTextStream>

#include <card_v_func.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using console::ExitCode;
using console::LibraryInput;
using console::LibraryOutput;
using console::LibraryStreams;
using hosts::ProgramEnd;

namespace {

// Runs the work in a process of its own, whose exit code tells whether its expectations held: what
// failed is then among the output.
ProgramEnd inProcess(const std::function<void()>& work, const std::string& input = {})
{
    ProgramEnd end = hosts::runCopy(input, [&work] {
        work();
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(end.exitCode, 0) << end.output << end.errors;
    return end;
}

void writeText(int descriptor, const std::string& text)
{
    EXPECT_EQ(::write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// The file behind a descriptor; (0, 0) when it is closed.
std::pair<dev_t, ino_t> identityOf(int descriptor)
{
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 ? std::make_pair(status.st_dev, status.st_ino)
                                             : std::make_pair(dev_t{0}, ino_t{0});
}

std::array<std::pair<dev_t, ino_t>, 3> standardIdentities()
{
    return {identityOf(0), identityOf(1), identityOf(2)};
}

// By trying each: reading a folder would need a descriptor itself.
std::set<int> openDescriptors()
{
    std::set<int> open;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) != -1) {
            open.insert(descriptor);
        }
    }
    return open;
}

constexpr std::array<LibraryOutput, 4> outputs{LibraryOutput::shown, LibraryOutput::onStandardError,
                                               LibraryOutput::dropped, LibraryOutput::kept};
constexpr std::array<LibraryInput, 2> inputs{LibraryInput::asItIs, LibraryInput::empty};

struct WayToPrint {
    const char* name;
    std::function<void()> print;
};

// Each prints "library\n", most without handing it to the system at once.
const std::vector<WayToPrint>& waysToPrint()
{
    static const std::vector<WayToPrint> ways = {
        {"printf", [] { std::printf("library\n"); }},
        {"write", [] { writeText(STDOUT_FILENO, "library\n"); }},
        {"std::cout", [] { std::cout << "library\n"; }},
        {"QTextStream", [] { QTextStream(stdout) << "library\n"; }},
        {"the log without a file",
         [] {
             ASSERT_TRUE(RENEWLOGFILE.open(stdout, QIODevice::WriteOnly));
             outLogFile.setDevice(&RENEWLOGFILE);
             outLogFile << "library\n";
         }},
        {"a program started", [] { EXPECT_EQ(std::system("echo library"), 0); }},
    };
    return ways;
}

}  // namespace

TEST(LibraryStreams, everyWayToPrint_endsUpWhereItShall)
{
    for (const WayToPrint& way : waysToPrint()) {
        for (const LibraryOutput output : outputs) {
            SCOPED_TRACE(way.name + std::string(", output ") +
                         std::to_string(static_cast<int>(output)));
            const ProgramEnd end = inProcess([&] {
                std::printf("before\n");
                LibraryStreams streams(output, LibraryInput::asItIs);
                way.print();
                if (output == LibraryOutput::kept) {
                    EXPECT_EQ(streams.printed().text, QStringLiteral("library\n"));
                }
                streams.restore();
                std::printf("after\n");
                const bool isKept = output == LibraryOutput::kept;
                EXPECT_EQ(streams.printed().text, isKept ? QStringLiteral("library\n") : QString());
                EXPECT_FALSE(streams.printed().isCut);
            });
            const bool isShown = output == LibraryOutput::shown;
            EXPECT_EQ(end.output, isShown ? "before\nlibrary\nafter\n" : "before\nafter\n");
            const bool isError = output == LibraryOutput::onStandardError;
            EXPECT_EQ(end.errors, isError ? "library\n" : "");
        }
    }
}

TEST(LibraryStreams, emptyInput_endsAtOnceAndTheRealOneIsUntouched)
{
    inProcess(
        [] {
            {
                const LibraryStreams streams(LibraryOutput::shown, LibraryInput::empty);
                char byte = 0;
                EXPECT_EQ(::read(STDIN_FILENO, &byte, 1), 0);
                EXPECT_EQ(std::fgetc(stdin), EOF);
                EXPECT_EQ(::isatty(STDIN_FILENO), 0);
            }
            EXPECT_EQ(std::fgetc(stdin), 'a');
            EXPECT_EQ(std::fgetc(stdin), 'b');
        },
        "ab");
}

TEST(LibraryStreams, inputAsItIs_canBeRead)
{
    inProcess(
        [] {
            const LibraryStreams streams(LibraryOutput::kept, LibraryInput::asItIs);
            char byte = 0;
            EXPECT_EQ(::read(STDIN_FILENO, &byte, 1), 1);
            EXPECT_EQ(byte, 'a');
        },
        "ab");
}

TEST(LibraryStreams, moreThanIsKept_isCutAndSaid)
{
    constexpr int limit = LibraryStreams::largestKept;
    struct Row {
        int size;
        int piece;
        bool isCut;
    };
    for (const Row& row :
         {Row{limit - 1, 100, false}, Row{limit, limit, false}, Row{limit, 1000, false},
          Row{limit + 1, limit + 1, true}, Row{limit + 1, 1000, true}, Row{4 * limit, 1000, true},
          Row{16 * limit, 16 * limit, true}}) {
        SCOPED_TRACE(std::to_string(row.size) + " in pieces of " + std::to_string(row.piece));
        const ProgramEnd end = inProcess([&] {
            LibraryStreams streams(LibraryOutput::kept, LibraryInput::empty);
            for (int left = row.size; left > 0; left -= row.piece) {
                const std::string piece(static_cast<size_t>(std::min(left, row.piece)), 'x');
                std::fputs(piece.c_str(), stdout);
            }
            struct stat status {};
            EXPECT_EQ(::fstat(STDOUT_FILENO, &status), 0);
            EXPECT_LT(status.st_size, 2 * limit);
            streams.restore();
            const console::PrintedText printed = streams.printed();
            EXPECT_EQ(printed.text, QString(std::min(row.size, limit), QLatin1Char('x')));
            EXPECT_EQ(printed.isCut, row.isCut);
            std::printf("after\n");
            EXPECT_EQ(std::fflush(stdout), 0);
            std::cout << "and on\n";
        });
        EXPECT_EQ(end.output, "after\nand on\n");
    }
}

TEST(LibraryStreams, closedStandardDescriptors_areClosedAgain)
{
    for (unsigned closed = 0; closed < 8; ++closed) {
        for (const LibraryOutput output : outputs) {
            for (const LibraryInput input : inputs) {
                SCOPED_TRACE("closed " + std::to_string(closed) + ", output " +
                             std::to_string(static_cast<int>(output)) + ", input " +
                             std::to_string(static_cast<int>(input)));
                const ProgramEnd end = hosts::runCopy("answer", [&] {
                    for (int descriptor = 0; descriptor < 3; ++descriptor) {
                        if ((closed >> descriptor & 1U) != 0) {
                            ::close(descriptor);
                        }
                    }
                    const auto before = standardIdentities();
                    const std::set<int> openBefore = openDescriptors();
                    bool isGood = true;
                    {
                        const LibraryStreams streams(output, input);
                        char byte = 0;
                        if (input == LibraryInput::empty) {
                            isGood = isGood && ::read(STDIN_FILENO, &byte, 1) == 0;
                        }
                        if (output != LibraryOutput::shown) {
                            isGood = isGood && ::write(STDOUT_FILENO, "library", 7) == 7;
                        }
                        if (output == LibraryOutput::kept) {
                            isGood = isGood && streams.printed().text == QStringLiteral("library");
                        }
                    }
                    isGood =
                        isGood && standardIdentities() == before && openDescriptors() == openBefore;
                    return isGood ? 0 : 1;
                });
                EXPECT_EQ(end.exitCode, 0);
                EXPECT_EQ(end.output, "");
                const bool isError = output == LibraryOutput::onStandardError && (closed & 4U) == 0;
                EXPECT_EQ(end.errors, isError ? "library" : "");
            }
        }
    }
}

TEST(LibraryStreams, nested_eachGetsItsOwn)
{
    const ProgramEnd end = inProcess([] {
        std::printf("1");
        LibraryStreams outer(LibraryOutput::kept, LibraryInput::empty);
        std::printf("2");
        {
            LibraryStreams inner(LibraryOutput::kept, LibraryInput::empty);
            std::printf("3");
            {
                const LibraryStreams innermost(LibraryOutput::onStandardError,
                                               LibraryInput::asItIs);
                std::printf("4");
            }
            std::printf("5");
            EXPECT_EQ(inner.printed().text, QStringLiteral("35"));
        }
        std::printf("6");
        outer.restore();
        std::printf("7");
        EXPECT_EQ(outer.printed().text, QStringLiteral("26"));
    });
    EXPECT_EQ(end.output, "17");
    EXPECT_EQ(end.errors, "4");
}

TEST(LibraryStreams, exceptionInTheOperation_putsTheStreamsBack)
{
    const ProgramEnd end = inProcess([] {
        const auto before = standardIdentities();
        try {
            const LibraryStreams streams(LibraryOutput::dropped, LibraryInput::empty);
            std::printf("library");
            throw std::runtime_error("the operation failed");
        } catch (const std::runtime_error&) {
            std::printf("caught");
        }
        EXPECT_EQ(standardIdentities(), before);
    });
    EXPECT_EQ(end.output, "caught");
}

TEST(LibraryStreams, noDescriptorLeft_isToldAndNothingChanges)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers need a descriptor to look at an object";
#endif
    for (const LibraryOutput output :
         {LibraryOutput::onStandardError, LibraryOutput::dropped, LibraryOutput::kept}) {
        SCOPED_TRACE(static_cast<int>(output));
        const ProgramEnd end = inProcess([output] {
            const auto before = standardIdentities();
            const rlimit few{64, 64};
            ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
            EXPECT_NO_THROW(LibraryStreams(output, LibraryInput::empty));
            std::vector<int> fillers;
            for (int filler = ::open("/dev/null", O_RDONLY); filler >= 0;
                 filler = ::open("/dev/null", O_RDONLY)) {
                fillers.push_back(filler);
            }
            ASSERT_EQ(errno, EMFILE);
            int refusals = 0;
            bool isDone = false;
            while (!isDone) {
                const std::set<int> openBefore = openDescriptors();
                try {
                    const LibraryStreams streams(output, LibraryInput::empty);
                    std::printf("library");
                    isDone = true;
                } catch (const console::Stop& stop) {
                    ++refusals;
                    EXPECT_EQ(stop.code(), ExitCode::internalError);
                    EXPECT_TRUE(stop.detail().contains(QStringLiteral("Too many open files")));
                    EXPECT_FALSE(stop.nextStep().isEmpty());
                    std::printf("x");
                }
                EXPECT_EQ(standardIdentities(), before);
                EXPECT_EQ(openDescriptors(), openBefore);
                ASSERT_FALSE(fillers.empty());
                ::close(fillers.back());
                fillers.pop_back();
            }
            // Both the first and the second stream were refused.
            EXPECT_GE(refusals, 2);
            std::printf(" %d", refusals);
        });
        const std::string refused = end.output.substr(0, end.output.find(' '));
        EXPECT_EQ(end.output, refused + " " + std::to_string(refused.size()));
        EXPECT_EQ(refused, std::string(refused.size(), 'x'));
    }
}

TEST(LibraryStreams, streamsThatCannotBePutBack_areTold)
{
    const auto closeAllSpare = [] {
        for (const int descriptor : openDescriptors()) {
            if (descriptor > STDERR_FILENO) {
                ::close(descriptor);
            }
        }
    };
    // Standard output is gone in both: exit codes and standard error tell.
    const ProgramEnd asked = hosts::runCopy({}, [&] {
        LibraryStreams streams(LibraryOutput::dropped, LibraryInput::empty);
        closeAllSpare();
        try {
            streams.restore();
        } catch (const console::Stop& stop) {
            return stop.code() == ExitCode::internalError &&
                           stop.detail().contains(QStringLiteral("cannot be put back"))
                       ? 0
                       : 2;
        }
        return 3;
    });
    EXPECT_EQ(asked.exitCode, 0);
    EXPECT_EQ(asked.errors, "");

    const ProgramEnd unasked = hosts::runCopy({}, [&] {
        const LibraryStreams streams(LibraryOutput::dropped, LibraryInput::empty);
        closeAllSpare();
        return 0;
    });
    EXPECT_EQ(unasked.exitCode, 0);
    EXPECT_NE(unasked.errors.find("cannot be put back: Bad file descriptor"), std::string::npos);
}

TEST(LibraryStreams, startedPrograms_inheritNoSpareDescriptor)
{
    const char* const listing = "ls /proc/self/fd >&2";
    const ProgramEnd without = inProcess([&] { EXPECT_EQ(std::system(listing), 0); });
    for (const LibraryOutput output : outputs) {
        for (const LibraryInput input : inputs) {
            SCOPED_TRACE(static_cast<int>(output));
            const ProgramEnd end = inProcess([&] {
                const LibraryStreams outer(output, input);
                const LibraryStreams inner(LibraryOutput::kept, LibraryInput::empty);
                EXPECT_EQ(std::system(listing), 0);
            });
            EXPECT_EQ(end.errors, without.errors);
        }
    }
}
