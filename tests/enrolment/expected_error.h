// What a call that must fail failed with.

#ifndef TARVELOQT_TESTS_ENROLMENT_EXPECTED_ERROR_H
#define TARVELOQT_TESTS_ENROLMENT_EXPECTED_ERROR_H

#include "hosts/enrolment/enrolment_error.h"

#include <gtest/gtest.h>

#include <string>

namespace trial {

struct Failure {
    // The cause's name; empty when nothing was thrown.
    std::string cause;
    std::string text;
    std::string cure;
};

template <typename Call>
Failure failureOf(Call call)
{
    try {
        static_cast<void>(call());
    } catch (const enrolment::EnrolmentError& error) {
        EXPECT_FALSE(error.cure().isEmpty());
        return {nameOf(error.cause()).toStdString(), error.text().toStdString(),
                error.cure().toStdString()};
    }
    return {};
}

}  // namespace trial

#endif
