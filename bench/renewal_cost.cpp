// What a renewal costs in PKCS#11 calls, logins, processes and time: with this library, and with
// the programs that people use instead. Exits 1 when the library takes more calls or logins than it
// may, 2 when something could not be measured.

#include "bench/renewal/bounds.h"
#include "bench/renewal/series.h"
#include "bench/renewal/tables.h"
#include "cardlibs/token/module_file.h"

#include <CLI/CLI.hpp>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace {

namespace fs = std::filesystem;
using softcard::KeyType;

constexpr int cardSizes[] = {1, 3, 6, 10};

struct Options {
    int runs = 11;
    bool boundsOnly = false;
    bool byFunction = false;
    std::string folder = fs::temp_directory_path();
};

class TemporaryFolder {
public:
    explicit TemporaryFolder(const fs::path& parent)
        : m_path((fs::absolute(parent) / "renewal-cost-XXXXXX").string())
    {
        if (mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("cannot make a folder in " + parent.string());
        }
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    fs::path path() const { return m_path; }

private:
    std::string m_path;
};

void setVariable(const char* name, const std::string& value)
{
    if (setenv(name, value.c_str(), 1) != 0) {
        throw std::runtime_error(std::string("cannot set ") + name);
    }
}

void prepareEnvironment(const fs::path& folder)
{
    setVariable("HOME", folder);
    setVariable(bench::moduleVariable, cardlibs::token::moduleFile("softhsm2"));
    // Whatever readers this computer has, the only card is ours.
    setVariable("PCSCLITE_CSOCK_NAME", folder / "no-service");
    setVariable("PKCS11_MODULE_PATH", COUNTING_MODULE);
    setVariable("RENEWAL_COST_PIN", bench::cardPin);
    setVariable("GNUTLS_PIN", bench::cardPin);
}

const char* nameOf(KeyType type)
{
    return type == KeyType::rsa2048 ? "RSA-2048" : "P-256";
}

class Measurement {
public:
    Measurement(const fs::path& folder, Options options)
        : m_folder(folder)
        , m_options(std::move(options))
        , m_counters(folder / "counters")
    {
    }

    void compare(KeyType type)
    {
        const bench::BenchCard card(newFolder(), type, 1);
        std::vector<bench::Series> contenders = {bench::Series("TarveloQT"),
                                                 bench::Series("pkcs11-tool + openssl"),
                                                 bench::Series("p11tool + certtool")};
        // In turns, so that whatever else the computer does strikes all of them.
        for (int run = 0; run < m_options.runs; ++run) {
            contenders[0].add(bench::renewWithLibrary(card, m_counters));
            contenders[1].add(bench::renewWithOpenScAndOpenSsl(card, m_counters));
            contenders[2].add(bench::renewWithGnuTls(card, m_counters));
        }
        std::printf("One %s certificate on a card in %s, median of %d runs, without key "
                    "generation and authority\n",
                    nameOf(type), m_options.folder.c_str(), m_options.runs);
        bench::printComparison(contenders);
        bench::printOperations(contenders[0]);
        if (m_options.byFunction) {
            for (const bench::Series& contender : contenders) {
                std::printf("  %s\n", contender.name().c_str());
                bench::printFunctions(contender.first());
            }
            std::printf("\n");
        }
    }

    bool keepsBounds(KeyType type, int pairs)
    {
        const bench::BenchCard card(newFolder(), type, pairs);
        const bench::Renewal renewal = bench::renewWithLibrary(card, m_counters);
        const bool isKept = bench::printBounds(
            std::string(nameOf(type)) + ", key pairs on the card: " + std::to_string(pairs),
            bench::boundedCounts(renewal, pairs));
        if (!isKept || m_options.byFunction) {
            bench::printFunctions(renewal);
        }
        return isKept;
    }

private:
    fs::path newFolder() { return m_folder / ("card-" + std::to_string(++m_cards)); }

    fs::path m_folder;
    Options m_options;
    bench::CounterFile m_counters;
    int m_cards = 0;
};

// False when a bound is exceeded.
bool measure(const Options& options)
{
    const TemporaryFolder folder(options.folder);
    prepareEnvironment(folder.path());
    Measurement measurement(folder.path(), options);
    if (!options.boundsOnly) {
        measurement.compare(KeyType::rsa2048);
        measurement.compare(KeyType::p256);
    }
    std::printf("Bounds\n");
    bool isKept = measurement.keepsBounds(KeyType::rsa2048, 1);
    for (const int pairs : cardSizes) {
        isKept = measurement.keepsBounds(KeyType::p256, pairs) && isKept;
    }
    return isKept;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("Counts the PKCS#11 calls and logins of a renewal and takes its time.",
                 "renewal_cost");
    app.add_option("--runs", options.runs, "Renewals of each kind to take the median of")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--folder", options.folder,
                   "Where the software cards are made; on a disk their writing is most of the time")
        ->capture_default_str();
    app.add_flag("--bounds", options.boundsOnly, "Count only, and only this library's calls");
    app.add_flag("--functions", options.byFunction, "Show the calls by function");
    CLI11_PARSE(app, argc, argv);
    // A host that ended early is told by its exit code.
    signal(SIGPIPE, SIG_IGN);
    try {
        return measure(options) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "renewal_cost: %s\n", error.what());
        return 2;
    }
}
