// A PC/SC service that is missing, out of reach, or does not behave; no real one is needed.

#include "cardlibs/readers/pcsc_readers.h"
#include "tests/cardlibs/outside_tools.h"
#include "tests/cardlibs/service_socket.h"

#include <gmock/gmock.h>
#include <winscard.h>

#include <filesystem>
#include <optional>

namespace cardlibs_test {
namespace {

using ::testing::IsEmpty;

using cardlibs::readers::listPcscReaders;
using cardlibs::readers::PcscListing;
using cardlibs::readers::PcscService;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

class PcscServiceState : public ::testing::Test {
protected:
    PcscServiceState() { serviceSocketFile(); }
    ~PcscServiceState() override { setModes(0755, 0666); }

    static void setModes(unsigned folder, unsigned socket)
    {
        fs::permissions(serviceSocketFile().parent_path(), static_cast<fs::perms>(0755));
        if (fs::exists(serviceSocketFile()))
            fs::permissions(serviceSocketFile(), static_cast<fs::perms>(socket));
        fs::permissions(serviceSocketFile().parent_path(), static_cast<fs::perms>(folder));
    }

    static std::string seenByOrdinaryUser() { return runTool({LISTER_FILE}).output; }
};

TEST_F(PcscServiceState, noSocket_stopped)
{
    const PcscListing listing = listPcscReaders();
    EXPECT_EQ(listing.service, PcscService::stopped);
    EXPECT_THAT(listing.readers, IsEmpty());
    EXPECT_EQ(seenByOrdinaryUser(), "stopped\n");
}

TEST_F(PcscServiceState, socketThatNobodyListensOn_stopped)
{
    {
        const ServiceSocket service(Manner::hangingUp);
        fs::create_hard_link(serviceSocketFile(), serviceSocketFile().string() + ".left");
    }
    fs::rename(serviceSocketFile().string() + ".left", serviceSocketFile());
    EXPECT_EQ(listPcscReaders().service, PcscService::stopped);
    fs::remove(serviceSocketFile());
}

struct ModeRow {
    unsigned folder;
    unsigned socket;
    const char* seen;
};

TEST_F(PcscServiceState, socketThatTheUserMayNotUse_refusing)
{
    const ServiceSocket service(Manner::answering, SCARD_F_INTERNAL_ERROR);
    const ModeRow rows[] = {
        {0755, 0666, "failing\n"},  {0755, 0000, "refusing\n"}, {0755, 0444, "refusing\n"},
        {0000, 0666, "refusing\n"}, {0755, 0666, "failing\n"},
    };
    for (const ModeRow& row : rows) {
        SCOPED_TRACE(::testing::Message() << std::oct << row.folder << " " << row.socket);
        setModes(row.folder, row.socket);
        EXPECT_EQ(seenByOrdinaryUser(), row.seen);
    }
}

struct AnswerRow {
    LONG result;
    PcscService service;
};

TEST_F(PcscServiceState, contextRefused_stateByTheReason)
{
    const AnswerRow rows[] = {
        {SCARD_W_SECURITY_VIOLATION, PcscService::refusing},
        {SCARD_E_NO_ACCESS, PcscService::refusing},
        {SCARD_E_SERVICE_STOPPED, PcscService::stopped},
        {SCARD_F_INTERNAL_ERROR, PcscService::failing},
        {SCARD_E_NO_MEMORY, PcscService::failing},
    };
    for (const AnswerRow& row : rows) {
        SCOPED_TRACE(pcsc_stringify_error(row.result));
        const ServiceSocket service(Manner::answering, static_cast<std::uint32_t>(row.result));
        EXPECT_EQ(listPcscReaders().service, row.service);
    }
}

// What libpcsclite makes of it depends on who is faster.
TEST_F(PcscServiceState, connectionEndedWithoutAnAnswer_refusingEachTime)
{
    for (const Manner manner : {Manner::closing, Manner::hangingUp}) {
        const ServiceSocket service(manner);
        for (int attempt = 0; attempt < 50; ++attempt)
            ASSERT_EQ(listPcscReaders().service, PcscService::refusing) << attempt;
        EXPECT_EQ(seenByOrdinaryUser(), "refusing\n");
    }
}

TEST_F(PcscServiceState, serviceThatNeverAnswers_failingInTimeAndAskedAnewOnceItEnded)
{
    using std::chrono::steady_clock;
    std::optional<ServiceSocket> service(std::in_place, Manner::silent);
    const auto begin = steady_clock::now();
    EXPECT_EQ(listPcscReaders(300ms).service, PcscService::failing);
    const auto first = steady_clock::now();
    EXPECT_GE(first - begin, 300ms);
    EXPECT_LT(first - begin, 3s);
    // The question is still open: nobody waits for it a second time.
    EXPECT_EQ(listPcscReaders(60s).service, PcscService::failing);
    EXPECT_LT(steady_clock::now() - first, 3s);

    service.reset();
    PcscService seen = PcscService::failing;
    for (int attempt = 0; attempt < 100 && seen != PcscService::stopped; ++attempt) {
        std::this_thread::sleep_for(20ms);
        seen = listPcscReaders().service;
    }
    EXPECT_EQ(seen, PcscService::stopped);
}

}  // namespace
}  // namespace cardlibs_test
