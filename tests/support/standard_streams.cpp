#include "standard_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace support {

namespace {

// Enough for every transcript, so that writing never waits for the reader.
constexpr int pipeSize = 1024 * 1024;

std::array<int, 2> makePipe()
{
    std::array<int, 2> ends{-1, -1};
    if (pipe(ends.data()) != 0 || fcntl(ends[1], F_SETPIPE_SZ, pipeSize) == -1)
        ADD_FAILURE() << "no pipe";
    return ends;
}

void forgetStdioInput()
{
    __fpurge(stdin);
    clearerr(stdin);
}

}  // namespace

StandardInput::StandardInput(const std::string& bytes)
    : StandardInput([&bytes](int descriptor) {
        EXPECT_EQ(::write(descriptor, bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    })
{
}

StandardInput::StandardInput(const std::function<void(int)>& writer)
    : m_saved(dup(STDIN_FILENO))
{
    const std::array<int, 2> ends = makePipe();
    writer(ends[1]);
    close(ends[1]);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    forgetStdioInput();
}

StandardInput::~StandardInput()
{
    dup2(m_saved, STDIN_FILENO);
    close(m_saved);
    forgetStdioInput();
}

std::string StandardInput::rest()
{
    std::string bytes;
    for (int byte = 0; (byte = std::fgetc(stdin)) != EOF;)
        bytes += static_cast<char>(byte);
    return bytes;
}

StandardOutput::StandardOutput()
{
    std::fflush(stdout);
    m_saved = dup(STDOUT_FILENO);
    const std::array<int, 2> ends = makePipe();
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    m_pipe = ends[0];
    fcntl(m_pipe, F_SETFL, O_NONBLOCK);
}

StandardOutput::~StandardOutput()
{
    std::fflush(stdout);
    dup2(m_saved, STDOUT_FILENO);
    close(m_saved);
    // GoogleTest's own messages must not be lost in the pipe.
    if (testing::Test::HasFailure())
        std::fputs(text().c_str(), stdout);
    close(m_pipe);
}

std::string StandardOutput::text()
{
    std::string text;
    std::array<char, 4096> chunk{};
    for (ssize_t size = 0; (size = read(m_pipe, chunk.data(), chunk.size())) > 0;)
        text.append(chunk.data(), static_cast<std::size_t>(size));
    return text;
}

}  // namespace support
