// Loads the shared library named by its argument and prints the time that took, in nanoseconds.

#include <dlfcn.h>

#include <chrono>
#include <cstdio>

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: load_probe LIBRARY\n");
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    if (dlopen(arguments[1], RTLD_NOW) == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    const std::chrono::nanoseconds time = std::chrono::steady_clock::now() - start;
    std::printf("%lld\n", static_cast<long long>(time.count()));
    return 0;
}
