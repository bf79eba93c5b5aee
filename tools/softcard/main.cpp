// tarvelo-softcard: a software card and a demonstration authority for people, tests and benchmarks.

#include "tools/softcard/card_folder.h"
#include "tools/softcard/card_making.h"
#include "tools/softcard/card_token.h"
#include "tools/softcard/demo_authority.h"
#include "tools/softcard/secret.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <iterator>

namespace {

using namespace softcard;

constexpr int exitFailure = 1;
constexpr std::time_t day = 86400;

struct MakeOptions {
    std::string folder;
    std::string label = "Carta Demo";
    std::vector<std::string> kinds = {"aut"};
    KeyType keyType = KeyType::rsa2048;
    int days = 30;
    std::string pinFile;
    std::string pinVariable;
    int pinDescriptor = -1;
    bool force = false;
};

struct IssueOptions {
    std::string folder;
    int days = 3 * 365 + 1;
    std::string notAfter;
    std::string policy;
};

Secret chosenPin(const MakeOptions& options)
{
    if (!options.pinFile.empty())
        return readSecretFile(options.pinFile);
    if (!options.pinVariable.empty())
        return readSecretVariable(options.pinVariable);
    if (options.pinDescriptor >= 0)
        return readSecretDescriptor(options.pinDescriptor);
    return drawEightDigits();
}

void describe(const CardFolder& folder)
{
    for (const std::string& reader : cardReaders(folder))
        std::cout << "Reader:       " << reader << '\n';
    std::cout << "PIN in:       " << folder.pin().string() << '\n'
              << "SoftHSM2:     SOFTHSM2_CONF=" << folder.configuration().string() << '\n'
              << "Authority:    " << DemoAuthority::certificateFile(folder.authority()).string()
              << '\n';
}

int make(const MakeOptions& options)
{
    const CardFolder folder(options.folder);
    if (folder.holdsCard() && !options.force) {
        std::cout << "There is a card in " << folder.root().string()
                  << " already; --force makes a new one.\n";
        describe(folder);
        return 0;
    }
    const Secret pin = chosenPin(options);
    if (!pin.isEightDigits())
        throw std::runtime_error("the PIN must have eight digits");
    // What an interrupted run left behind is no card, and the next one would stumble over it.
    if (folder.holdsRemains())
        folder.clear();
    folder.prepare();
    const Secret securityOfficerPin = drawEightDigits();
    writeSecretFile(folder.pin(), pin);
    writeSecretFile(folder.securityOfficerPin(), securityOfficerPin);
    makeCard(folder, {options.label, options.kinds, options.keyType, options.days}, pin,
             securityOfficerPin);
    folder.markFinished();
    std::cout << "A software card was made in " << folder.root().string() << ".\n";
    describe(folder);
    return 0;
}

// "yyyyMMdd" or "yyyyMMddHHmmss", in UTC; a date alone means the end of that day.
std::time_t parseTime(const std::string& text)
{
    const bool isDigits =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    std::tm parts = {};
    const bool isDate = text.size() == 8;
    const std::string whole = isDate ? text + "235959" : text;
    const char* end = strptime(whole.c_str(), "%Y%m%d%H%M%S", &parts);
    if (!isDigits || whole.size() != 14 || end == nullptr || *end != '\0')
        throw std::runtime_error("--not-after wants yyyyMMdd or yyyyMMddHHmmss");
    return timegm(&parts);
}

int issue(const IssueOptions& options)
{
    const CardFolder folder(options.folder);
    const DemoAuthority authority = DemoAuthority::open(folder.authority());
    const std::string request((std::istreambuf_iterator<char>(std::cin)),
                              std::istreambuf_iterator<char>());
    const std::time_t now = std::time(nullptr);
    const std::time_t notAfter =
        options.notAfter.empty() ? now + options.days * day : parseTime(options.notAfter);
    if (notAfter <= now)
        throw std::runtime_error("the end of validity lies in the past");
    std::cout << authority.issue(request, {now, notAfter}, options.policy) << std::flush;
    return std::cout ? 0 : exitFailure;
}

void defineMake(CLI::App& app, MakeOptions& options)
{
    std::vector<std::string> kindNames;
    for (const CertificateKind& kind : certificateKinds())
        kindNames.emplace_back(kind.name);
    const std::map<std::string, KeyType> keyTypes = {
        {"rsa2048", KeyType::rsa2048}, {"p256", KeyType::p256}, {"p384", KeyType::p384}};

    app.add_option("folder", options.folder, "Folder of the card, made when missing")->required();
    app.add_option("--label", options.label, "Label of the token, up to 32 characters")
        ->capture_default_str();
    app.add_option("--kinds", options.kinds, "Certificates, separated by commas")
        ->delimiter(',')
        ->check(CLI::IsMember(kindNames))
        ->capture_default_str();
    app.add_option("--key", options.keyType, "Keys: rsa2048, p256 or p384")
        ->transform(CLI::CheckedTransformer(keyTypes));
    app.add_option("--days", options.days, "Days until the certificates expire")
        ->check(CLI::Range(-3650, 3650))
        ->capture_default_str();
    auto* pinFile = app.add_option("--pin-file", options.pinFile, "File with the PIN to use");
    auto* pinVariable =
        app.add_option("--pin-env", options.pinVariable, "Environment variable with the PIN");
    auto* pinDescriptor =
        app.add_option("--pin-fd", options.pinDescriptor, "Open file descriptor with the PIN")
            ->check(CLI::NonNegativeNumber);
    pinFile->excludes(pinVariable)->excludes(pinDescriptor);
    pinVariable->excludes(pinDescriptor);
    app.add_flag("--force", options.force, "Make a new card in place of the one that is there");
}

void defineIssue(CLI::App& app, IssueOptions& options)
{
    app.add_option("folder", options.folder, "Folder of the card whose authority issues")
        ->required();
    auto* days = app.add_option("--days", options.days, "Days of validity from now")
                     ->check(CLI::Range(1, 7300))
                     ->capture_default_str();
    app.add_option("--not-after", options.notAfter,
                   "End of validity, yyyyMMdd or yyyyMMddHHmmss in UTC")
        ->excludes(days);
    app.add_option("--policy", options.policy, "Certificate policy, a dotted identifier");
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Makes software cards with certificates of a demonstration authority.");
    app.require_subcommand(1);
    MakeOptions makeOptions;
    IssueOptions issueOptions;
    std::string shownFolder;
    CLI::App* makeVerb = app.add_subcommand("make", "Make a card; say what is there when one is");
    CLI::App* issueVerb = app.add_subcommand(
        "issue", "Certify the request on standard input; the certificate goes to standard output");
    CLI::App* showVerb = app.add_subcommand("show", "Say what a folder holds");
    defineMake(*makeVerb, makeOptions);
    defineIssue(*issueVerb, issueOptions);
    showVerb->add_option("folder", shownFolder, "Folder of the card")->required();
    CLI11_PARSE(app, argc, argv);
    try {
        if (makeVerb->parsed())
            return make(makeOptions);
        if (issueVerb->parsed())
            return issue(issueOptions);
        const CardFolder folder(shownFolder);
        if (!folder.holdsCard())
            throw std::runtime_error("there is no card in " + folder.root().string() +
                                     "; \"tarvelo-softcard make\" makes one");
        describe(folder);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "tarvelo-softcard: " << error.what() << '\n';
        return exitFailure;
    }
}
