#include "bench/renewal/process.h"
#include "bench/renewal/renewal.h"
#include "bench/renewal/text_file.h"
#include "tools/softcard/subject.h"

#include <stdexcept>

namespace bench {

namespace {

// What a user would choose for the new pair.
constexpr char newLabel[] = "AUT1";
constexpr char newId[] = "0a0b";
constexpr char newIdInUrl[] = "%0a%0b";

constexpr char tokenUrl[] = "pkcs11:token=CartaCosto";

bool isRsa(const BenchCard& card)
{
    return card.keyType() == softcard::KeyType::rsa2048;
}

// "%0A%0B" for "0A0B" (RFC 7512).
std::string idInUrl(const std::string& hexadecimal)
{
    std::string escaped;
    for (std::size_t i = 0; i + 1 < hexadecimal.size(); i += 2) {
        escaped += "%" + hexadecimal.substr(i, 2);
    }
    return escaped;
}

std::string objectUrl(const std::string& id, const std::string& type)
{
    return std::string(tokenUrl) + ";id=" + id + ";type=" + type;
}

// The subject as the user reads it in the old certificate and types it again.
std::string nameWith(const std::string& before, const std::string& between)
{
    const softcard::Holder holder;
    return before + "C=IT" + between + "O=" + holder.organisation + between +
           "SN=" + holder.surname + between + "GN=" + holder.givenName + between +
           "serialNumber=" + holder.fiscalCode + between + "dnQualifier=" + holder.identifier +
           between + "CN=" + holder.surname + " " + holder.givenName;
}

// GnuTLS writes the attributes of a template in the order of the text, and knows these names.
std::string gnuTlsTemplate()
{
    std::string name = nameWith("", ",");
    for (const auto& [mine, theirs] :
         {std::pair<std::string, std::string>{",SN=", ",surName="}, {",GN=", ",givenName="}}) {
        name.replace(name.find(mine), mine.size(), theirs);
    }
    return "dn = \"" + name + "\"\nsigning_key\n";
}

// A pipeline under way: adds up what its programs cost.
class Pipeline {
public:
    Pipeline(const BenchCard& card, const CounterFile& counters)
        : m_card(card)
        , m_counters(counters)
    {
        m_card.restore();
    }

    void run(const std::vector<std::string>& arguments)
    {
        const Tally before = m_counters.now();
        Process process(arguments, Process::ErrorOutput::withOutput);
        const std::string output = process.readAll();
        const ProcessEnd end = process.end();
        if (end.exitCode == 127) {
            throw std::runtime_error(arguments.front() + " is not installed");
        }
        if (end.exitCode != 0) {
            throw std::runtime_error(arguments.front() + " failed:\n" + output);
        }
        const Tally tally = m_counters.now() - before;
        const auto wall = end.wall - tally.keyGenerationWall;
        m_renewal.operations.push_back({arguments.front(), tally, wall});
        m_renewal.wall += wall;
        m_renewal.cpu += end.cpu - tally.keyGenerationCpu;
        ++m_renewal.processes;
    }

    std::string file(const std::string& name) const { return m_card.workFolder() / name; }

    void askAuthority()
    {
        m_issued = m_card.issue(readText(file("request.pem")));
        writeText(file("new.pem"), m_issued);
    }

    Renewal finish() const
    {
        m_renewal.requireCounted();
        m_card.expectRenewed(m_issued);
        return m_renewal;
    }

private:
    const BenchCard& m_card;
    const CounterFile& m_counters;
    Renewal m_renewal;
    std::string m_issued;
};

}  // namespace

Renewal renewWithOpenScAndOpenSsl(const BenchCard& card, const CounterFile& counters)
{
    Pipeline pipeline(card, counters);
    const auto tool = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"pkcs11-tool", "--module", COUNTING_MODULE});
        pipeline.run(arguments);
    };
    const auto onToken = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--token-label", tokenLabel});
        tool(arguments);
    };
    const auto loggedIn = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--login", "--pin", "env:RENEWAL_COST_PIN"});
        onToken(arguments);
    };

    tool({"--list-token-slots"});
    loggedIn({"--list-objects"});
    onToken({"--read-object", "--type", "cert", "--id", card.oldId(), "--output-file",
             pipeline.file("old.der")});
    pipeline.run({"openssl", "x509", "-inform", "DER", "-in", pipeline.file("old.der"), "-noout",
                  "-subject", "-enddate"});
    loggedIn({"--keypairgen", "--key-type", isRsa(card) ? "rsa:2048" : "EC:prime256v1", "--id",
              newId, "--label", newLabel});
    pipeline.run({"openssl", "req", "-new", "-engine", "pkcs11", "-keyform", "engine", "-key",
                  objectUrl(newIdInUrl, "private"), "-passin", "env:RENEWAL_COST_PIN", "-utf8",
                  "-subj", nameWith("/", "/"), "-out", pipeline.file("request.pem")});
    pipeline.askAuthority();
    pipeline.run({"openssl", "x509", "-in", pipeline.file("new.pem"), "-outform", "DER", "-out",
                  pipeline.file("new.der")});
    loggedIn({"--write-object", pipeline.file("new.der"), "--type", "cert", "--id", newId,
              "--label", newLabel});
    for (const char* type : {"privkey", "pubkey", "cert"}) {
        loggedIn({"--delete-object", "--type", type, "--id", card.oldId()});
    }
    loggedIn({"--list-objects"});
    return pipeline.finish();
}

Renewal renewWithGnuTls(const BenchCard& card, const CounterFile& counters)
{
    Pipeline pipeline(card, counters);
    const auto tool = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"p11tool", "--batch", "--provider", COUNTING_MODULE});
        pipeline.run(arguments);
    };
    const auto loggedIn = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "--login");
        tool(arguments);
    };
    const std::string oldId = idInUrl(card.oldId());
    writeText(pipeline.file("template.cfg"), gnuTlsTemplate());

    tool({"--list-tokens"});
    loggedIn({"--list-all", tokenUrl});
    tool({"--export", objectUrl(oldId, "cert"), "--outfile", pipeline.file("old.pem")});
    pipeline.run({"certtool", "--certificate-info", "--infile", pipeline.file("old.pem")});
    std::vector<std::string> generation = {"--generate-privkey", "rsa", "--bits", "2048"};
    if (!isRsa(card)) {
        generation = {"--generate-privkey", "ecdsa", "--curve", "secp256r1"};
    }
    generation.insert(generation.end(), {"--id", newId, "--label", newLabel, tokenUrl});
    loggedIn(generation);
    pipeline.run({"certtool", "--provider", COUNTING_MODULE, "--generate-request", "--load-privkey",
                  objectUrl(newIdInUrl, "private"), "--template", pipeline.file("template.cfg"),
                  "--outfile", pipeline.file("request.pem")});
    pipeline.askAuthority();
    loggedIn({"--write", "--load-certificate", pipeline.file("new.pem"), "--id", newId, "--label",
              newLabel, tokenUrl});
    for (const char* type : {"private", "public", "cert"}) {
        loggedIn({"--delete", objectUrl(oldId, type)});
    }
    loggedIn({"--list-all-certs", tokenUrl});
    return pipeline.finish();
}

}  // namespace bench
