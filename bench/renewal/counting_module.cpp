// A PKCS#11 module that hands every call on to the module of the environment and counts it.
//
// It does so with one addition in shared memory, so that the programs which make the most calls do
// not pay for being watched.

#include "bench/renewal/call_counters.h"

#pragma GCC visibility push(default)
#include <p11-kit/pkcs11.h>

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list);
#pragma GCC visibility pop

#include <dlfcn.h>
#include <time.h>

#include <cstdlib>

namespace bench {
namespace {

SharedCounters* counters()
{
    static SharedCounters* const mapped = []() -> SharedCounters* {
        const char* file = std::getenv(countersVariable);
        return file == nullptr ? nullptr : mapCounters(file);
    }();
    return mapped;
}

CK_FUNCTION_LIST* loadBehind()
{
    static CK_FUNCTION_LIST* const list = []() -> CK_FUNCTION_LIST* {
        const char* file = std::getenv(moduleVariable);
        void* library = file == nullptr ? nullptr : dlopen(file, RTLD_NOW | RTLD_LOCAL);
        auto* get =
            library == nullptr
                ? nullptr
                : reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
        CK_FUNCTION_LIST* functions = nullptr;
        return get != nullptr && get(&functions) == CKR_OK ? functions : nullptr;
    }();
    return list;
}

// Nobody holds our functions unless C_GetFunctionList found the module.
const CK_FUNCTION_LIST& behind()
{
    const CK_FUNCTION_LIST* list = loadBehind();
    if (list == nullptr) {
        std::abort();
    }
    return *list;
}

void count(CardFunction function)
{
    ++counters()->calls[static_cast<std::size_t>(function)];
}

std::int64_t nanosecondsOf(clockid_t clock)
{
    timespec now = {};
    if (clock_gettime(clock, &now) != 0) {
        std::abort();
    }
    return std::int64_t{1'000'000'000} * now.tv_sec + now.tv_nsec;
}

// Adds the time that passes on one clock while it lives.
class Stopwatch {
public:
    Stopwatch(clockid_t clock, std::atomic<std::int64_t>& sum)
        : m_clock(clock)
        , m_sum(sum)
        , m_start(nanosecondsOf(clock))
    {
    }
    ~Stopwatch() { m_sum += nanosecondsOf(m_clock) - m_start; }
    Stopwatch(const Stopwatch&) = delete;
    Stopwatch& operator=(const Stopwatch&) = delete;

private:
    clockid_t m_clock;
    std::atomic<std::int64_t>& m_sum;
    std::int64_t m_start;
};

template <auto member, CardFunction function, typename Pointer>
struct Counted;

template <auto member, CardFunction function, typename... Arguments>
struct Counted<member, function, CK_RV (*)(Arguments...)> {
    static CK_RV call(Arguments... arguments)
    {
        count(function);
        return (behind().*member)(arguments...);
    }
};

CK_RV login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length)
{
    count(user == CKU_CONTEXT_SPECIFIC ? CardFunction::contextLogin : CardFunction::C_Login);
    return behind().C_Login(session, user, pin, length);
}

CK_RV generateKeyPair(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism,
                      CK_ATTRIBUTE_PTR publicTemplate, CK_ULONG publicCount,
                      CK_ATTRIBUTE_PTR privateTemplate, CK_ULONG privateCount,
                      CK_OBJECT_HANDLE_PTR publicKey, CK_OBJECT_HANDLE_PTR privateKey)
{
    count(CardFunction::C_GenerateKeyPair);
    const Stopwatch wall(CLOCK_MONOTONIC, counters()->keyGenerationWallNs);
    const Stopwatch cpu(CLOCK_THREAD_CPUTIME_ID, counters()->keyGenerationCpuNs);
    return behind().C_GenerateKeyPair(session, mechanism, publicTemplate, publicCount,
                                      privateTemplate, privateCount, publicKey, privateKey);
}

CK_FUNCTION_LIST* functionList()
{
    static CK_FUNCTION_LIST list = [] {
        CK_FUNCTION_LIST counted = behind();
#define BENCH_COUNT(name)                                                                          \
    counted.name = &Counted<&CK_FUNCTION_LIST::name, CardFunction::name,                           \
                            decltype(CK_FUNCTION_LIST::name)>::call;
        BENCH_CARD_FUNCTIONS(BENCH_COUNT)
#undef BENCH_COUNT
        counted.C_Login = &login;
        counted.C_GenerateKeyPair = &generateKeyPair;
        counted.C_GetFunctionList = &C_GetFunctionList;
        return counted;
    }();
    return &list;
}

}  // namespace
}  // namespace bench

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list)
{
    if (list == nullptr) {
        return CKR_ARGUMENTS_BAD;
    }
    if (bench::loadBehind() == nullptr || bench::counters() == nullptr) {
        return CKR_GENERAL_ERROR;
    }
    *list = bench::functionList();
    return CKR_OK;
}
