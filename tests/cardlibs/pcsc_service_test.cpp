// A PC/SC service that is missing, out of reach, or does not behave; no real one is needed.

#include "cardlibs/readers/pcsc_readers.h"
#include "cardlibs/state/card_error.h"
#include "imports/molvane.h"
#include "tests/cardlibs/card_calls.h"
#include "tests/cardlibs/card_fixture.h"
#include "tests/cardlibs/outside_tools.h"
#include "tests/cardlibs/service_socket.h"
#include "tests/cardlibs/told_diagnosis.h"

#include <gmock/gmock.h>
#include <winscard.h>

#include <filesystem>
#include <optional>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

using cardlibs::readers::listPcscReaders;
using cardlibs::readers::PcscListing;
using cardlibs::readers::PcscService;
using namespace std::chrono_literals;
namespace fault = cardlibs::state::fault;
namespace fs = std::filesystem;

struct FaultRow {
    LONG result;
    unsigned long error;
    mvServiceState service;
    const char* advice;
};

class PcscServiceState : public CardFixture {
protected:
    static void SetUpTestSuite() { serviceSocketFile(); }

    ~PcscServiceState() override { setModes(0755, 0666); }

    static void setModes(unsigned folder, unsigned socket)
    {
        fs::permissions(serviceSocketFile().parent_path(), static_cast<fs::perms>(0755));
        if (fs::exists(serviceSocketFile()))
            fs::permissions(serviceSocketFile(), static_cast<fs::perms>(socket));
        fs::permissions(serviceSocketFile().parent_path(), static_cast<fs::perms>(folder));
    }

    static std::string names()
    {
        char buffer[1024] = {};
        long length = sizeof buffer;
        return mvGetReaderName(buffer, &length) < 0 ? "none" : buffer;
    }

    int open(std::string reader) const
    {
        std::string table = tablePath();
        std::string folder;
        return mvInitializeFromATRLite(reader.data(), table.data(), folder.data());
    }

    void expectNothingFound(const FaultRow& row) const
    {
        EXPECT_EQ(names(), "none");
        EXPECT_EQ(lastError().number, static_cast<int>(row.error));
        EXPECT_THAT(lastError().text, HasSubstr(row.advice));
        EXPECT_NE(open("Lettore 00 00"), 0);
        EXPECT_EQ(lastError().number, static_cast<int>(row.error));
        EXPECT_THAT(lastError().text, HasSubstr(row.advice));
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

// What users are told, by each function that looks for a reader, and beside it the entry that they
// may have made a mistake in.
TEST_F(PcscServiceState, contextRefused_namesOpeningAndDiagnosisTellWhy)
{
    const FaultRow rows[] = {
        {SCARD_W_SECURITY_VIOLATION, fault::serviceRefused, MV_SERVICE_REFUSING, "nega l'accesso"},
        {SCARD_E_SERVICE_STOPPED, fault::serviceStopped, MV_SERVICE_STOPPED, "non e' attivo"},
        {SCARD_F_INTERNAL_ERROR, fault::serviceFailed, MV_SERVICE_FAILING, "riavviarlo"},
    };
    const std::string card = "[card Prova]\nmodule = opensc-pkcs11\natr = 3B00\n";
    for (const FaultRow& row : rows) {
        SCOPED_TRACE(pcsc_stringify_error(row.result));
        const ServiceSocket service(Manner::answering, static_cast<std::uint32_t>(row.result));
        writeTable(card);
        expectNothingFound(row);
        writeTable("[software Rotta]\nmodule = softhsm2\n" + card);
        expectNothingFound(row);
        EXPECT_THAT(lastError().text, HasSubstr("table.ini:1: \"manufacturer\""));

        const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
        EXPECT_EQ(diagnosis.field(0, MV_SERVICE), row.service);
        EXPECT_EQ(diagnosis.count(MV_READERS), 0);
        EXPECT_EQ(diagnosis.count(MV_COMPLAINTS), 1);
        ASSERT_EQ(diagnosis.count(MV_OBSTACLES), 1);
        EXPECT_EQ(diagnosis.field(0, MV_OBSTACLE_ERROR), row.error);
        EXPECT_THAT(diagnosis.field(0, MV_OBSTACLE_TEXT).text.value_or(""), HasSubstr(row.advice));
        EXPECT_EQ(diagnosis.field(0, MV_OBSTACLE_MODULE), notKnown);
    }
}

TEST_F(PcscServiceState, contextRefused_softwareTokensServedAllTheSame)
{
    const ServiceSocket service(Manner::answering,
                                static_cast<std::uint32_t>(SCARD_W_SECURITY_VIOLATION));
    makeCard({});
    EXPECT_EQ(names(), reader() + "|");
    EXPECT_EQ(open(reader()), 0) << lastError().text;
    mvFinalize();
    EXPECT_NE(open("Lettore 00 00"), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(fault::readerNotFound));
    EXPECT_THAT(lastError().text, HasSubstr("pcscd"));
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    EXPECT_EQ(diagnosis.field(0, MV_SERVICE), MV_SERVICE_REFUSING);
    EXPECT_EQ(diagnosis.count(MV_OBSTACLES), 1);
    ASSERT_EQ(diagnosis.count(MV_READERS), 1);
    EXPECT_EQ(diagnosis.reader(MV_READER_NAME), reader());
    EXPECT_EQ(diagnosis.reader(MV_READER_ERROR), 0);
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
