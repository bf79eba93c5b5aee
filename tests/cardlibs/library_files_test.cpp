// The built libraries seen from outside: what they export and what they ask for.

#include "tests/cardlibs/outside_tools.h"

#include <gmock/gmock.h>

#include <set>
#include <sstream>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::set<std::string> exportedNames(const std::string& library)
{
    const ToolRun run = runTool({"nm", "-D", "--defined-only", "--format=posix", library});
    EXPECT_EQ(run.exitCode, 0) << run.output;
    std::set<std::string> names;
    std::istringstream lines(run.output);
    std::string line;
    while (std::getline(lines, line))
        names.insert(line.substr(0, line.find(' ')));
    return names;
}

TEST(LibraryFiles, cardAccess_exportsItsTwelveFunctionsAndTheDiagnosisAlone)
{
    const std::set<std::string> expected = {"mvGetReaderName",
                                            "mvInitializeFromATRLite",
                                            "mvIsCNSINCARD",
                                            "mvIsFERROLUX",
                                            "mvLogin",
                                            "mvFinalize",
                                            "mvLastError",
                                            "mvGetPKCS11FromATRLite",
                                            "mvCNSToBeActivatedLite",
                                            "mvLastErrno",
                                            "mvCheckSmartCard",
                                            "getSlotBriskoLite",
                                            "mvDiagnoseReaders",
                                            "mvDiagnoseAtr",
                                            "mvDiagnosisFree",
                                            "mvDiagnosisCount",
                                            "mvDiagnosisText",
                                            "mvDiagnosisNumber"};
    EXPECT_EQ(exportedNames(MOLVANE_FILE), expected);
}

TEST(LibraryFiles, cardRenewal_exportsItsSixFunctionsAlone)
{
    const std::set<std::string> expected = {"rinnovo_Card_readCerts",
                                            "rinnovo_Card_findFreeCKAID",
                                            "rinnovo_Card_createCertRequestAUT",
                                            "rinnovo_Card_createCertRequestPRA",
                                            "rinnovo_Card_saveCertAUT",
                                            "rinnovo_Card_saveCertPRA"};
    EXPECT_EQ(exportedNames(TARVELO_FILE), expected);
}

TEST(LibraryFiles, both_plainSonameSharedStateAndRunpathBesideThem)
{
    struct Row {
        const char* file;
        const char* soname;
    };
    for (const Row& row :
         {Row{MOLVANE_FILE, "[libmin_Molvane.so]"}, Row{TARVELO_FILE, "[libTarvelo.so]"}}) {
        SCOPED_TRACE(row.file);
        const ToolRun run = runTool({"readelf", "-d", row.file});
        ASSERT_EQ(run.exitCode, 0);
        EXPECT_THAT(run.output, HasSubstr(row.soname));
        EXPECT_THAT(run.output, HasSubstr("[libtarvelo_cardstate.so]"));
        EXPECT_THAT(run.output, HasSubstr("(RUNPATH)"));
        EXPECT_THAT(run.output, HasSubstr("$ORIGIN"));
        EXPECT_THAT(run.output, Not(HasSubstr("(RPATH)")));
        EXPECT_THAT(run.output, Not(HasSubstr("Qt5")));
    }
}

}  // namespace
}  // namespace cardlibs_test
