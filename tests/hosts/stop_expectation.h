// Expects that an action ends with a Stop.

#ifndef TARVELOQT_TESTS_HOSTS_STOP_EXPECTATION_H
#define TARVELOQT_TESTS_HOSTS_STOP_EXPECTATION_H

#include "hosts/console/exit_code.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace hosts {

// The detail must contain each text, and there must be advice.
template <typename Action>
void expectStop(console::ExitCode code, const std::vector<std::string>& told, Action&& action)
{
    try {
        action();
        ADD_FAILURE() << "no Stop was thrown";
    } catch (const console::Stop& stop) {
        EXPECT_EQ(stop.code(), code);
        for (const std::string& text : told) {
            EXPECT_THAT(stop.detail().toStdString(), testing::HasSubstr(text));
        }
        EXPECT_FALSE(stop.nextStep().isEmpty());
    }
}

}  // namespace hosts

#endif
