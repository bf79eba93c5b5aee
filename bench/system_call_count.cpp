#include "bench/system_call_count.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

// Marks beginning and end of the work: a call that nothing else here makes.
constexpr long mark = SYS_getpgrp;

bool isFileStatus(unsigned long number)
{
    switch (number) {
    case SYS_stat:
    case SYS_fstat:
    case SYS_lstat:
    case SYS_newfstatat:
    case SYS_statx:
        return true;
    default:
        return false;
    }
}

[[noreturn]] void runTraced(const std::function<void()>& work)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(1);
    }
    static_cast<void>(raise(SIGSTOP));
    syscall(mark);
    work();
    syscall(mark);
    _exit(0);
}

// Runs the child to its next system-call stop; false when it has ended.
bool nextStop(pid_t child)
{
    int status = 0;
    return ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
           waitpid(child, &status, 0) == child && WIFSTOPPED(status);
}

}  // namespace

std::optional<SystemCalls> countSystemCalls(const std::function<void()>& work)
{
    const pid_t child = fork();
    if (child < 0) {
        return std::nullopt;
    }
    if (child == 0) {
        runTraced(work);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) {
        return std::nullopt;
    }
    // Without it the kernel does not tell what a stop is about (ptrace(2),
    // PTRACE_GET_SYSCALL_INFO).
    if (ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
        return std::nullopt;
    }
    SystemCalls calls;
    int marks = 0;
    while (nextStop(child)) {
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0 ||
            info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        if (info.entry.nr == mark) {
            ++marks;
        } else if (marks == 1) {
            ++calls.all;
            calls.fileStatus += isFileStatus(info.entry.nr) ? 1 : 0;
        }
    }
    return marks == 2 ? std::optional(calls) : std::nullopt;
}

}  // namespace bench
