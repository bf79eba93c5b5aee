// What tests of installations share.

#ifndef TARVELOQT_TESTS_CARDLIBS_INSTALLATION_FIXTURE_H
#define TARVELOQT_TESTS_CARDLIBS_INSTALLATION_FIXTURE_H

#include "tests/cardlibs/outside_tools.h"
#include "tests/cardlibs/renewal_steps.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace cardlibs_test {

class Installation : public RenewalFixture {
protected:
    // Runs something that must fail and change nothing on the card.
    template <typename Call>
    void expectRefused(Call&& call, unsigned long number)
    {
        const auto before = objectNames();
        EXPECT_NE(call(), 0);
        EXPECT_EQ(lastError().number, static_cast<int>(number)) << lastError().text;
        EXPECT_EQ(objectNames(), before);
    }

    // What openssl makes of the certificate; IN, OUT and CA stand for files.
    std::string inForm(const std::string& pem, const std::vector<std::string>& arguments)
    {
        const TemporaryFolder scratch;
        writeText(scratch.path() / "in.pem", pem);
        std::vector<std::string> command = {"openssl"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        for (std::string& argument : command) {
            if (argument == "IN")
                argument = scratch.path() / "in.pem";
            if (argument == "OUT")
                argument = scratch.path() / "out";
            if (argument == "CA")
                argument = folder().authority() / "certificate.pem";
        }
        const ToolRun run = runTool(command);
        EXPECT_EQ(run.exitCode, 0) << run.output;
        return readText(scratch.path() / "out");
    }
};

}  // namespace cardlibs_test

#endif
