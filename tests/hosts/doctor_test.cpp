// doctor on a machine on which something is really broken. Smart card readers have a test program
// of their own, doctor_readers_test.

#include "doctor_case.h"
#include "tests/cardlibs/service_socket.h"
#include "tests/enrolment/est_server.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <winscard.h>

#include <filesystem>
#include <memory>

using cardlibs_test::Manner;
using cardlibs_test::ServiceSocket;
using hosts::DoctorCase;
using hosts::expectFindings;
using hosts::InstalledProgram;

namespace {

namespace fs = std::filesystem;

std::string softwareEntry(const std::string& module)
{
    return "[software Prova]\nmodule = " + module +
           "\nmanufacturer = SoftHSM project\nmodel = SoftHSM v2\n";
}

std::function<void(InstalledProgram&)> withModule(const std::string& module)
{
    return [module](InstalledProgram& program) { program.writeTable(softwareEntry(module)); };
}

std::function<void(InstalledProgram&)> withVariable(const std::string& name,
                                                    const std::string& value)
{
    return [name, value](InstalledProgram& program) { program.set(name, value); };
}

std::function<void(InstalledProgram&)> withFlags(const std::string& flags)
{
    return withVariable("PKCS11_PROXY_SET_FLAGS", flags);
}

std::string userFolder(const InstalledProgram& program)
{
    std::string folder = program.file("home/.brisko");
    fs::create_directories(folder);
    EXPECT_EQ(::chmod(folder.c_str(), 0700), 0);
    return folder;
}

void touch(const std::string& file, const std::string& date)
{
    EXPECT_EQ(hosts::runProgram({"touch", "-d", date, file}, {}, {}).exitCode, 0);
}

// Starts a program in a world of its own, after a change of what is mounted there.
std::vector<std::string> afterMounting(const std::string& command)
{
    return {"unshare", "--mount", "sh", "-c", command + " && exec \"$@\"", "sh"};
}

const std::vector<std::string> stopped = {"pcsc-stopped"};

std::vector<std::string> stoppedAnd(const std::string& id)
{
    return {"pcsc-stopped", id};
}

const std::vector<DoctorCase>& tableCases()
{
    static const std::vector<DoctorCase> cases = {
        {"tableMissing",
         [](InstalledProgram& program) { program.removeTable(); },
         stoppedAnd("table-unreadable"),
         {}},
        {"tableWithoutEntries",
         [](InstalledProgram& program) { program.writeTable("; nulla\n"); },
         stoppedAnd("table-unreadable"),
         {}},
        {"tableMistake",
         [](InstalledProgram& program) {
             program.writeTable(InstalledProgram::proxyEntry() +
                                "[card Rotta]\nmodule = x\natr = 3\n");
         },
         {},
         stoppedAnd("table-mistake")},
        {"moduleMissing", withModule("/nonexistent/module.so"), stoppedAnd("module-missing"), {}},
        {"moduleIsNoLibrary",
         [](InstalledProgram& program) { program.writeTable(softwareEntry(program.tablePath())); },
         stoppedAnd("module-broken"),
         {}},
        {"moduleIsAnotherLibrary",
         withModule(OTHER_CARD_LIBRARIES "/libTarvelo.so"),
         stoppedAnd("module-broken"),
         {}},
        {"moduleGivesNoList",
         withVariable("PKCS11_PROXY_MODULE", "/nonexistent"),
         stoppedAnd("module-broken"),
         {}},
        {"moduleWithoutFolder", withModule("nessuno"), stoppedAnd("module-not-loaded"), {}},
        {"moduleDoesNotStart",
         withVariable("SOFTHSM2_CONF", "/nonexistent"),
         stoppedAnd("module-failing"),
         {}},
        {"softHsmConfigurationMissing",
         [](InstalledProgram& program) {
             withModule("softhsm2")(program);
             program.set("SOFTHSM2_CONF", "/nonexistent");
         },
         stoppedAnd("softhsm-configuration-missing"),
         {}},
        {"softHsmTokensMissing",
         [](InstalledProgram& program) {
             withModule("softhsm2")(program);
             program.card().write("softhsm2.conf", "directories.tokendir = /nonexistent\n");
             program.set("SOFTHSM2_CONF", program.file("softhsm2.conf"));
         },
         stoppedAnd("softhsm-tokens-unreadable"),
         {}},
    };
    return cases;
}

const std::vector<DoctorCase>& tokenCases()
{
    static const std::vector<DoctorCase> cases = {
        {"healthy", [](InstalledProgram& /*program*/) {}, {}, stopped},
        {"pinBlocked", withFlags(hosts::pinLocked), {"pin-blocked"}, stopped},
        {"pinLastTry", withFlags(hosts::pinFinalTry), {"pin-last-try"}, stopped},
        {"pinTriesLow", withFlags(hosts::pinCountLow), {}, stoppedAnd("pin-tries-low")},
        {"pinToBeChanged", withFlags(hosts::pinToBeChanged), {"pin-to-be-changed"}, stopped},
        {"writeProtected", withFlags(hosts::writeProtected), {"card-write-protected"}, stopped},
        {"notActivated",
         withVariable("PKCS11_PROXY_CLEAR_FLAGS", hosts::pinInitialised),
         {"not-activated"},
         stopped},
        {"readerNotThere",
         [](InstalledProgram& /*program*/) {},
         stoppedAnd("reader-not-found"),
         {},
         {"--reader", "Altro lettore"}},
    };
    return cases;
}

const std::vector<DoctorCase>& machineCases()
{
    static const std::vector<DoctorCase> cases = {
        {"userFolderIsAFile",
         [](InstalledProgram& program) { program.card().write("home/.brisko", ""); },
         {"home-unwritable"},
         stopped},
        {"logIsAFolder",
         [](InstalledProgram& program) {
             fs::create_directory(userFolder(program) + "/TarveloQT.log");
         },
         {},
         {"log-unwritable", "pcsc-stopped"}},
        {"othersMayWriteRecords",
         [](InstalledProgram& program) {
             fs::create_directory(userFolder(program) + "/renewals");
             EXPECT_EQ(::chmod(userFolder(program).c_str(), 0700), 0);
             EXPECT_EQ(::chmod((program.file("home/.brisko")).c_str(), 0777), 0);
         },
         {"records-unsafe"},
         stopped},
        {"recordIsNoRecord",
         [](InstalledProgram& program) {
             fs::create_directory(userFolder(program) + "/renewals");
             program.card().write("home/.brisko/renewals/" + std::string(64, 'a') + ".json", "{}");
         },
         {},
         {"record-unreadable", "pcsc-stopped"}},
        {"clockBehind",
         [](InstalledProgram& program) { touch(program.program(), "2095-01-01"); },
         {"clock-behind"},
         stopped},
        {"authorityProgramMissing",
         [](InstalledProgram& /*program*/) {},
         {"authority-misconfigured"},
         stopped,
         {"--ca", "command:/nonexistent/authority --now"}},
        {"authorityProgramNotInPath",
         [](InstalledProgram& /*program*/) {},
         {"authority-misconfigured"},
         stopped,
         {"--ca", "command:no-such-authority"}},
        {"authorityProgramNotExecutable",
         [](InstalledProgram& /*program*/) {},
         {"authority-misconfigured"},
         stopped,
         {"--ca", "command:/etc/passwd"}},
        // Nobody listens at the discard port.
        {"authorityUnreachable",
         [](InstalledProgram& /*program*/) {},
         {"authority-unreachable"},
         stopped,
         {"--ca", "est:https://127.0.0.1:9"}},
    };
    return cases;
}

const std::vector<DoctorCase>& otherLibrariesCases()
{
    static const std::vector<DoctorCase> cases = {
        {"nothingDescribed",
         [](InstalledProgram& program) { program.useOtherCardLibraries(); },
         {},
         {"diagnosis-unavailable"}},
        {"noReader",
         [](InstalledProgram& program) { program.useOtherCardLibraries("no-reader"); },
         {"no-reader"},
         {"diagnosis-unavailable"}},
        {"cardRefused",
         [](InstalledProgram& program) { program.useOtherCardLibraries("refused"); },
         {"card-unusable"},
         {"diagnosis-unavailable"}},
        {"diagnosisFails",
         [](InstalledProgram& program) { program.useFailingDiagnosis(); },
         {"card-library-fault"},
         {}},
    };
    return cases;
}

class Doctor : public testing::TestWithParam<DoctorCase> {
protected:
    InstalledProgram m_program;
};

class DoctorAndTheMachine : public testing::Test {
protected:
    void expect(const std::vector<std::string>& problems, const std::vector<std::string>& warnings)
    {
        expectFindings(m_program, {{}, {}, problems, warnings});
    }

    InstalledProgram m_program;
};

std::string nameOf(const testing::TestParamInfo<DoctorCase>& info)
{
    return info.param.name;
}

}  // namespace

// For GoogleTest's messages.
namespace hosts {
void PrintTo(const DoctorCase& one, std::ostream* stream)
{
    *stream << one.name;
}
}  // namespace hosts

TEST_P(Doctor, something_isFoundWithItsCure)
{
    GetParam().breakIt(m_program);
    expectFindings(m_program, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Table, Doctor, testing::ValuesIn(tableCases()), nameOf);
INSTANTIATE_TEST_SUITE_P(Token, Doctor, testing::ValuesIn(tokenCases()), nameOf);
INSTANTIATE_TEST_SUITE_P(Machine, Doctor, testing::ValuesIn(machineCases()), nameOf);
INSTANTIATE_TEST_SUITE_P(OtherLibraries, Doctor, testing::ValuesIn(otherLibrariesCases()), nameOf);

TEST_F(DoctorAndTheMachine, serverOfAnotherAuthority_isNotTrusted)
{
    const trial::EstServer server;
    DoctorCase expected;
    expected.name = "authorityUntrusted";
    expected.problems = {"authority-untrusted"};
    expected.warnings = {"pcsc-stopped"};
    expected.arguments = {"--ca", "est:" + server.address().toStdString()};
    expectFindings(m_program, expected);
    EXPECT_EQ(server.paths(), std::vector<std::string>());
}

TEST_F(DoctorAndTheMachine, healthy_whatIsWellIsTold)
{
    const QJsonObject answer = m_program.answer({"doctor", "--ca", "command:true"});
    EXPECT_EQ(hosts::findingIds(answer, "ok"),
              (std::vector<std::string>{"clock-plausible", "home-usable", "authority-reachable",
                                        "table-usable", "reader-ready"}));
}

TEST_F(DoctorAndTheMachine, clockFarAhead_isFound)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "faketime and the address sanitizer cannot both be loaded first";
#endif
    m_program.set("NO_FAKE_STAT", "1");
    m_program.startThrough({"faketime", "-f", "2099-01-01 12:00:00"});
    expect({"clock-ahead"}, {"pcsc-stopped"});
}

TEST_F(DoctorAndTheMachine, homeOnReadOnlyMedium_isFound)
{
    if (!hosts::mayMount()) {
        GTEST_SKIP() << hosts::noMounts;
    }
    const std::string home = m_program.file("home");
    m_program.startThrough(afterMounting("mount --bind " + home + " " + home +
                                         " && mount -o remount,bind,ro " + home));
    expect({"home-unwritable"}, {"pcsc-stopped"});
}

TEST_F(DoctorAndTheMachine, serviceNotInstalled_isFound)
{
    const std::string daemon = "/usr/sbin/pcscd";
    if (fs::exists(daemon) && !hosts::mayMount()) {
        GTEST_SKIP() << hosts::noMounts;
    }
    if (fs::exists(daemon)) {
        m_program.startThrough(afterMounting("mount --bind /dev/null " + daemon));
    }
    expect({}, {"pcsc-missing"});
    m_program.writeTable("[card Prova]\nmodule = x\natr = 3B00\n");
    expect({"pcsc-missing"}, {});
}

TEST_F(DoctorAndTheMachine, serviceThatRefuses_isFound)
{
    m_program.set("PCSCLITE_CSOCK_NAME", cardlibs_test::serviceSocketFile().string());
    const ServiceSocket service(Manner::closing);
    expect({}, {"pcsc-refused"});
    m_program.writeTable("[card Prova]\nmodule = x\natr = 3B00\n");
    expect({"pcsc-refused"}, {});
}

TEST_F(DoctorAndTheMachine, serviceThatFails_isFound)
{
    m_program.set("PCSCLITE_CSOCK_NAME", cardlibs_test::serviceSocketFile().string());
    const ServiceSocket service(Manner::answering,
                                static_cast<std::uint32_t>(SCARD_F_INTERNAL_ERROR));
    expect({}, {"pcsc-failing"});
}
