// Counters of PKCS#11 calls in a file that several processes map: the counting module adds to them
// in whatever program loaded it, and the benchmark reads them between two steps.

#ifndef TARVELOQT_BENCH_RENEWAL_CALL_COUNTERS_H
#define TARVELOQT_BENCH_RENEWAL_CALL_COUNTERS_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>

// The functions of PKCS #11 v2.40, all but C_GetFunctionList, which no card hears of.
#define BENCH_CARD_FUNCTIONS(X)                                                                    \
    X(C_Initialize)                                                                                \
    X(C_Finalize)                                                                                  \
    X(C_GetInfo)                                                                                   \
    X(C_GetSlotList)                                                                               \
    X(C_GetSlotInfo)                                                                               \
    X(C_GetTokenInfo)                                                                              \
    X(C_GetMechanismList)                                                                          \
    X(C_GetMechanismInfo)                                                                          \
    X(C_InitToken)                                                                                 \
    X(C_InitPIN)                                                                                   \
    X(C_SetPIN)                                                                                    \
    X(C_OpenSession)                                                                               \
    X(C_CloseSession)                                                                              \
    X(C_CloseAllSessions)                                                                          \
    X(C_GetSessionInfo)                                                                            \
    X(C_GetOperationState)                                                                         \
    X(C_SetOperationState)                                                                         \
    X(C_Login)                                                                                     \
    X(C_Logout)                                                                                    \
    X(C_CreateObject)                                                                              \
    X(C_CopyObject)                                                                                \
    X(C_DestroyObject)                                                                             \
    X(C_GetObjectSize)                                                                             \
    X(C_GetAttributeValue)                                                                         \
    X(C_SetAttributeValue)                                                                         \
    X(C_FindObjectsInit)                                                                           \
    X(C_FindObjects)                                                                               \
    X(C_FindObjectsFinal)                                                                          \
    X(C_EncryptInit)                                                                               \
    X(C_Encrypt)                                                                                   \
    X(C_EncryptUpdate)                                                                             \
    X(C_EncryptFinal)                                                                              \
    X(C_DecryptInit)                                                                               \
    X(C_Decrypt)                                                                                   \
    X(C_DecryptUpdate)                                                                             \
    X(C_DecryptFinal)                                                                              \
    X(C_DigestInit)                                                                                \
    X(C_Digest)                                                                                    \
    X(C_DigestUpdate)                                                                              \
    X(C_DigestKey)                                                                                 \
    X(C_DigestFinal)                                                                               \
    X(C_SignInit)                                                                                  \
    X(C_Sign)                                                                                      \
    X(C_SignUpdate)                                                                                \
    X(C_SignFinal)                                                                                 \
    X(C_SignRecoverInit)                                                                           \
    X(C_SignRecover)                                                                               \
    X(C_VerifyInit)                                                                                \
    X(C_Verify)                                                                                    \
    X(C_VerifyUpdate)                                                                              \
    X(C_VerifyFinal)                                                                               \
    X(C_VerifyRecoverInit)                                                                         \
    X(C_VerifyRecover)                                                                             \
    X(C_DigestEncryptUpdate)                                                                       \
    X(C_DecryptDigestUpdate)                                                                       \
    X(C_SignEncryptUpdate)                                                                         \
    X(C_DecryptVerifyUpdate)                                                                       \
    X(C_GenerateKey)                                                                               \
    X(C_GenerateKeyPair)                                                                           \
    X(C_WrapKey)                                                                                   \
    X(C_UnwrapKey)                                                                                 \
    X(C_DeriveKey)                                                                                 \
    X(C_SeedRandom)                                                                                \
    X(C_GenerateRandom)                                                                            \
    X(C_GetFunctionStatus)                                                                         \
    X(C_CancelFunction)                                                                            \
    X(C_WaitForSlotEvent)

namespace bench {

// contextLogin: a C_Login of the user type CKU_CONTEXT_SPECIFIC, counted apart from the others.
enum class CardFunction : std::size_t {
#define BENCH_ENUMERATE(name) name,
    BENCH_CARD_FUNCTIONS(BENCH_ENUMERATE)
#undef BENCH_ENUMERATE
        contextLogin,
    count
};

inline constexpr auto cardFunctionCount = static_cast<std::size_t>(CardFunction::count);

const char* nameOf(CardFunction function);

// Environment of the programs that load the counting module: the module that it hands every call on
// to, and the file of the counters.
inline constexpr char moduleVariable[] = "RENEWAL_COST_MODULE";
inline constexpr char countersVariable[] = "RENEWAL_COST_COUNTERS";

// What lies in the file. All zero is the beginning.
struct SharedCounters {
    std::array<std::atomic<std::uint64_t>, cardFunctionCount> calls;
    // Time inside C_GenerateKeyPair: chance decides it, not the caller.
    std::atomic<std::int64_t> keyGenerationWallNs;
    std::atomic<std::int64_t> keyGenerationCpuNs;
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "processes share no lock");

// Maps the file, which must be there, for the life of the process. Null when that fails.
SharedCounters* mapCounters(const char* file);

// The counters at one moment, or the difference of two moments.
struct Tally {
    std::array<std::uint64_t, cardFunctionCount> calls = {};
    std::chrono::nanoseconds keyGenerationWall{0};
    std::chrono::nanoseconds keyGenerationCpu{0};

    std::uint64_t of(CardFunction function) const
    {
        return calls[static_cast<std::size_t>(function)];
    }
    std::uint64_t all() const;
    std::uint64_t logins() const { return of(CardFunction::C_Login); }
    std::uint64_t contextLogins() const { return of(CardFunction::contextLogin); }
};

Tally operator-(Tally later, const Tally& earlier);
Tally operator+(Tally one, const Tally& other);

class CounterFile {
public:
    // Makes the file and points countersVariable of this process there. Throws std::runtime_error.
    explicit CounterFile(const std::filesystem::path& file);

    Tally now() const;

private:
    SharedCounters* m_counters;
};

}  // namespace bench

#endif
