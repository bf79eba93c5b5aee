#ifndef TARVELOQT_BENCH_SYSTEM_CALL_COUNT_H
#define TARVELOQT_BENCH_SYSTEM_CALL_COUNT_H

#include <functional>
#include <optional>

namespace bench {

struct SystemCalls {
    int all = 0;
    int fileStatus = 0;  // stat, fstat, lstat, fstatat, statx
};

// The system calls that the work makes, counted in a forked copy of this process under ptrace(2).
// Nothing where tracing is not permitted.
std::optional<SystemCalls> countSystemCalls(const std::function<void()>& work);

}  // namespace bench

#endif
