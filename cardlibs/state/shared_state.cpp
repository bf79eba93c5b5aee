#include "cardlibs/state/shared_state.h"

#include <unistd.h>

#include <climits>

namespace cardlibs::state {
namespace {

constexpr char tableBesideApplication[] = "/../p11/ATR-renew.ini";

std::string executableFolder()
{
    char path[PATH_MAX] = {};
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0)
        throw CardError(fault::tableUnreadable, "/proc/self/exe");
    const std::string whole(path, static_cast<std::size_t>(length));
    return whole.substr(0, whole.rfind('/'));
}

}  // namespace

SharedState& sharedState()
{
    static SharedState state;
    return state;
}

void clearError()
{
    sharedState().lastError.reset();
}

void recordError(const CardError& error)
{
    sharedState().lastError = LastError{error.number(), error.text()};
}

std::string currentTablePath()
{
    const SharedState& state = sharedState();
    if (!state.tablePath.empty())
        return state.tablePath;
    const std::string folder =
        state.applicationFolder.empty() ? executableFolder() : state.applicationFolder;
    return folder + tableBesideApplication;
}

}  // namespace cardlibs::state
