// The diagnosis as an interface: explained ATRs, arguments, the last error, and hosts that look the
// functions up.

#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/diagnosis_fixture.h"
#include "tests/cardlibs/outside_tools.h"

#include <gmock/gmock.h>

#include <functional>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace fault = cardlibs::state::fault;

using DiagnosisCalls = DiagnosisFixture;

TEST_F(DiagnosisCalls, explainedAtr_entryAndWhy)
{
    proxy().reset();
    writeTable("[default]\nmodule = d\n"
               "[card Mascherata]\nname = Con maschera\nmodule = m\natr = 3B0000\n"
               "atr_mask = FF00FF\ncns = yes\n"
               "[card Esatta]\nmodule = /lib/e.so\natr = 3B1200\nferrolux = yes\n");
    struct Row {
        const char* atr;
        std::vector<FieldRow> told;
    };
    for (const Row& row : {
             Row{"3B1200",
                 {{MV_READER_ATR, "3B1200"},
                  {MV_READER_MATCH, MV_MATCH_ATR},
                  {MV_READER_ENTRY, "Esatta"},
                  {MV_READER_ENTRY_LINE, 9},
                  {MV_READER_MODEL_NAME, "Esatta"},
                  {MV_READER_MODULE, "/lib/e.so"},
                  {MV_READER_MODULE_FILE, "/lib/e.so"},
                  {MV_READER_CNS, 0},
                  {MV_READER_FERROLUX, 1}}},
             Row{"3b:13 00",
                 {{MV_READER_ATR, "3B1300"},
                  {MV_READER_MATCH, MV_MATCH_MASKED_ATR},
                  {MV_READER_ENTRY, "Mascherata"},
                  {MV_READER_ENTRY_LINE, 3},
                  {MV_READER_MODEL_NAME, "Con maschera"},
                  {MV_READER_MODULE, "m"},
                  {MV_READER_CNS, 1},
                  {MV_READER_FERROLUX, 0}}},
             Row{"3B99",
                 {{MV_READER_ATR, "3B99"},
                  {MV_READER_MATCH, MV_MATCH_DEFAULT},
                  {MV_READER_ENTRY, ""},
                  {MV_READER_ENTRY_LINE, 1},
                  {MV_READER_MODULE, "d"}}},
         }) {
        SCOPED_TRACE(row.atr);
        const ToldDiagnosis diagnosis(mvDiagnoseAtr(row.atr, tablePath().c_str()));
        ASSERT_EQ(diagnosis.count(MV_READERS), 1);
        expectFields(diagnosis, row.told);
        expectFields(diagnosis, {{MV_READER_NAME, notKnown},
                                 {MV_READER_KIND, notKnown},
                                 {MV_READER_CARD, notKnown},
                                 {MV_READER_MODULE_LOADED, notKnown},
                                 {MV_READER_SLOTS, notKnown},
                                 {MV_TOKEN_FLAGS, notKnown},
                                 {MV_READER_ERROR, 0}});
        EXPECT_EQ(diagnosis.field(0, MV_SERVICE), notKnown);
    }
    EXPECT_THAT(proxy().calls, IsEmpty());
}

TEST_F(DiagnosisCalls, explainedAtr_noEntryOrNoTable_toldApart)
{
    const ToldDiagnosis unknown(mvDiagnoseAtr("3B99", tablePath().c_str()));
    expectFields(unknown, {{MV_READER_MATCH, MV_MATCH_NONE},
                           {MV_READER_ENTRY, notKnown},
                           {MV_READER_MODULE, notKnown},
                           {MV_READER_ERROR, fault::unknownCard}});
    const ToldDiagnosis noTable(mvDiagnoseAtr("3B99", "/nonexistent/ATR-renew.ini"));
    expectFields(noTable, {{MV_READER_MATCH, notKnown}, {MV_READER_ERROR, fault::tableUnreadable}});
    EXPECT_EQ(noTable.field(0, MV_OBSTACLE_ERROR), fault::tableUnreadable);
}

TEST_F(DiagnosisCalls, explainedAtr_notAnAtr_refused)
{
    const std::string tooLong(68, '0');
    for (const char* atr :
         {static_cast<const char*>(nullptr), "", "3B", "3B0", "zz00", tooLong.c_str()}) {
        SCOPED_TRACE(atr == nullptr ? "null" : atr);
        EXPECT_EQ(mvDiagnoseAtr(atr, tablePath().c_str()), nullptr);
        EXPECT_EQ(lastError().number, static_cast<int>(fault::invalidArgument));
        EXPECT_THAT(lastError().text, HasSubstr("(atr)"));
    }
}

TEST_F(DiagnosisCalls, whatIsNotThere_notKnownWithoutAnError)
{
    makeCard({});
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    ASSERT_EQ(diagnosis.count(MV_READERS), 1);
    for (const auto& [index, field] : {std::pair(1, int{MV_READER_NAME}),
                                       {-1, MV_READER_NAME},
                                       {0, 399},
                                       {0, 4711},
                                       {0, 0},
                                       {0, -301},
                                       {1, MV_SERVICE},
                                       {0, MV_COMPLAINT}}) {
        EXPECT_EQ(diagnosis.field(index, field), notKnown) << index << " " << field;
        EXPECT_EQ(lastError().number, 0);
    }
    for (const int group : {-1, 4, 47})
        EXPECT_EQ(diagnosis.count(group), 0);
    EXPECT_EQ(diagnosis.count(MV_WHOLE), 1);
    EXPECT_EQ(diagnosis.field(0, MV_SERVICE), MV_SERVICE_STOPPED);
}

TEST_F(DiagnosisCalls, noDiagnosis_refusedWithAnError)
{
    const std::vector<std::function<bool()>> calls = {
        [] { return mvDiagnosisCount(nullptr, MV_READERS) == -1; },
        [] { return mvDiagnosisText(nullptr, 0, MV_READER_NAME) == nullptr; },
        [] { return mvDiagnosisNumber(nullptr, 0, MV_READER_KIND) == MV_NOT_KNOWN; },
    };
    for (const auto& call : calls) {
        EXPECT_EQ(mvFinalize(), 0);
        EXPECT_EQ(lastError().number, 0);
        EXPECT_TRUE(call());
        EXPECT_EQ(lastError().number, static_cast<int>(fault::invalidArgument));
    }
}

TEST_F(DiagnosisCalls, everyFunction_forgetsTheLastError)
{
    makeCard({});
    mvDiagnosis* diagnosis = mvDiagnoseReaders(tablePath().c_str());
    ASSERT_NE(diagnosis, nullptr);
    const std::vector<std::function<void()>> calls = {
        [&] { ToldDiagnosis(mvDiagnoseReaders(nullptr)).isMade(); },
        [&] { ToldDiagnosis(mvDiagnoseAtr("3B00", nullptr)).isMade(); },
        [&] { EXPECT_EQ(mvDiagnosisCount(diagnosis, MV_READERS), 1); },
        [&] { EXPECT_NE(mvDiagnosisText(diagnosis, 0, MV_READER_NAME), nullptr); },
        [&] { EXPECT_EQ(mvDiagnosisNumber(diagnosis, 0, MV_READER_ERROR), 0); },
        [] { mvDiagnosisFree(nullptr); },
        [&] { mvDiagnosisFree(diagnosis); },
    };
    for (std::size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_NE(open("Altro lettore"), 0);
        ASSERT_NE(lastError().number, 0);
        calls[i]();
        EXPECT_EQ(lastError().number, 0);
        EXPECT_NE(lastError().result, 0);
    }
}

TEST_F(DiagnosisCalls, header_compilesAsC99)
{
    const std::filesystem::path source = std::filesystem::path(tablePath() + ".c");
    writeText(source, "#include \"card_diagnosis.h\"\n"
                      "mvDiagnoseReadersFunction diagnose = mvDiagnoseReaders;\n"
                      "mvDiagnoseAtrFunction explain = mvDiagnoseAtr;\n"
                      "mvDiagnosisCountFunction count = mvDiagnosisCount;\n"
                      "mvDiagnosisTextFunction text = mvDiagnosisText;\n"
                      "mvDiagnosisNumberFunction number = mvDiagnosisNumber;\n"
                      "mvDiagnosisFreeFunction release = mvDiagnosisFree;\n");
    const ToolRun run =
        runTool({CXX_COMPILER, "-x", "c", "-std=c99", "-Wall", "-Wextra", "-Wpedantic",
                 "-Wconversion", "-Werror", "-fsyntax-only", "-I", INCLUDE_FOLDER, source});
    EXPECT_EQ(run.exitCode, 0) << run.output;
}

TEST_F(DiagnosisCalls, hostThatLooksTheFunctionsUp_tellsReaders)
{
    makeCard({});
    proxy().reset();
    writeTable("[software Uno]\nname = Tessera Uno\nmodule = softhsm2\n"
               "manufacturer = SoftHSM project\nmodel = SoftHSM v2\n");
    const ToolRun run = runTool({REPORT_FILE, tablePath()});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.output, HasSubstr("reader: " + reader() +
                                      "\n  ATR: not known\n"
                                      "  card: Tessera Uno\n"));
    EXPECT_THAT(run.output, HasSubstr("obstacle: Il servizio delle smart card"));
}

TEST_F(DiagnosisCalls, hostWithoutTheFunctions_saysNotKnown)
{
    const ToolRun run = runTool({REPORT_ALONE_FILE, tablePath()});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output, "readers: not known\n");
}

}  // namespace
}  // namespace cardlibs_test
