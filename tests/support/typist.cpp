#include "typist.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

namespace support {

namespace {

using namespace std::chrono_literals;

constexpr auto pollInterval = 10ms;
constexpr auto patience = 20s;
// Between the question and the look at standard input lies next to nothing.
constexpr auto reactionTime = 200ms;

}  // namespace

Typist::Typist(const std::string& waiting, const std::string& question, const std::string& answer,
               const std::function<void()>& act)
    : m_input([&](int descriptor) {
        EXPECT_EQ(write(descriptor, waiting.data(), waiting.size()),
                  static_cast<ssize_t>(waiting.size()));
        m_keys = dup(descriptor);
    })
    , m_thread([=] { type(question, answer, act); })
{
}

Typist::~Typist()
{
    if (m_thread.joinable())
        m_thread.join();
}

std::string Typist::shown()
{
    m_thread.join();
    EXPECT_TRUE(m_asked) << "shown was: " << m_shown;
    return m_shown + m_output.text();
}

void Typist::type(const std::string& question, const std::string& answer,
                  const std::function<void()>& act)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!m_asked && std::chrono::steady_clock::now() < deadline) {
        m_shown += m_output.text();
        m_asked = m_shown.find(question) != std::string::npos;
        std::this_thread::sleep_for(m_asked ? reactionTime : pollInterval);
    }
    if (m_asked && act)
        act();
    EXPECT_EQ(write(m_keys, answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
    close(m_keys);
}

}  // namespace support
