#include "tests/cardlibs/outside_judges.h"

#include "tests/cardlibs/card_fixture.h"
#include "tests/cardlibs/outside_tools.h"
#include "tests/cardlibs/token_look.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <sstream>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;

namespace fs = std::filesystem;

// A program that must succeed; gives what it wrote.
std::string expectDone(const std::vector<std::string>& command)
{
    const ToolRun run = runTool(command);
    EXPECT_EQ(run.exitCode, 0) << ::testing::PrintToString(command) << '\n' << run.output;
    return run.output;
}

// Offset of the n-th sequence, counted from 1, at this depth of "openssl asn1parse"'s output.
std::string offsetOf(const std::string& structure, const std::string& depth, int sequence)
{
    std::istringstream lines(structure);
    for (std::string line; std::getline(lines, line);)
        if (line.find(":d=" + depth + " ") != std::string::npos &&
            line.find("SEQUENCE") != std::string::npos && --sequence == 0)
            return line.substr(0, line.find(':'));
    ADD_FAILURE() << "no such sequence in\n" << structure;
    return "0";
}

void expectSubject(const std::string& pem, int sequence, const cardlibs::Bytes& subject)
{
    const TemporaryFolder scratch;
    const fs::path file = scratch.path() / "in.pem";
    const fs::path cut = scratch.path() / "cut.der";
    writeText(file, pem);
    const std::string structure = expectDone({"openssl", "asn1parse", "-in", file});
    expectDone({"openssl", "asn1parse", "-in", file, "-strparse",
                offsetOf(structure, "2", sequence), "-noout", "-out", cut});
    EXPECT_EQ(readText(cut), std::string(subject.begin(), subject.end()));
}

// The bytes of an identifier as PKCS #11 URIs have them (RFC 7512).
std::string uriBytes(const std::string& hexadecimal)
{
    std::string text;
    for (std::size_t i = 0; i + 1 < hexadecimal.size(); i += 2)
        text += "%" + hexadecimal.substr(i, 2);
    return text;
}

}  // namespace

void expectRequestJudgedGood(const std::string& requestPem, const cardlibs::Bytes& subject)
{
    const TemporaryFolder scratch;
    writeText(scratch.path() / "request.pem", requestPem);
    expectDone({"openssl", "req", "-in", scratch.path() / "request.pem", "-noout", "-verify"});
    // In a request's information the subject is the first sequence.
    expectSubject(requestPem, 1, subject);
}

void expectCertificateJudgedGood(const std::string& certificatePem,
                                 const fs::path& authorityCertificate,
                                 const cardlibs::Bytes& subject)
{
    const TemporaryFolder scratch;
    writeText(scratch.path() / "issued.pem", certificatePem);
    expectDone(
        {"openssl", "verify", "-CAfile", authorityCertificate, scratch.path() / "issued.pem"});
    // Before it: signature algorithm, issuer, validity.
    expectSubject(certificatePem, 4, subject);
}

void expectCardUsable(const std::string& id, const std::string& certificatePem,
                      const std::string& pin)
{
    const TemporaryFolder scratch;
    const auto file = [&](const char* name) { return (scratch.path() / name).string(); };
    setenv("TEST_PIN", pin.c_str(), 1);
    setenv("GNUTLS_PIN", pin.c_str(), 1);
    expectDone({"pkcs11-tool", "--module", softhsmModule(), "--read-object", "--type", "cert",
                "--id", id, "--output-file", file("fetched.der")});
    const cardlibs::Bytes der = certificateBytes(certificatePem);
    EXPECT_EQ(readText(file("fetched.der")), std::string(der.begin(), der.end()));

    writeText(file("issued.pem"), certificatePem);
    expectDone({"openssl", "x509", "-in", file("issued.pem"), "-noout", "-pubkey", "-out",
                file("public.pem")});
    const bool isRsa =
        expectDone({"openssl", "pkey", "-pubin", "-in", file("public.pem"), "-noout", "-text_pub"})
            .find("Modulus") != std::string::npos;
    writeText(file("data"), "da firmare");
    expectDone({"openssl", "dgst", "-sha256", "-binary", "-out", file("digest"), file("data")});
    std::vector<std::string> sign = {"pkcs11-tool",   "--module",       softhsmModule(),
                                     "--login",       "--pin",          "env:TEST_PIN",
                                     "--sign",        "--id",           id,
                                     "--output-file", file("signature")};
    for (const std::string& argument :
         isRsa ? std::vector<std::string>{"--mechanism", "SHA256-RSA-PKCS", "--input-file",
                                          file("data")}
               : std::vector<std::string>{"--mechanism", "ECDSA", "--signature-format", "openssl",
                                          "--input-file", file("digest")})
        sign.push_back(argument);
    expectDone(sign);
    expectDone({"openssl", "dgst", "-sha256", "-verify", file("public.pem"), "-signature",
                file("signature"), file("data")});

    const std::string uri = "pkcs11:id=" + uriBytes(id);
    const std::string listed = expectDone({"p11tool", "--provider", softhsmModule(), "--batch",
                                           "--login", "--export", uri + ";type=cert"});
    EXPECT_THAT(listed, HasSubstr("-----BEGIN CERTIFICATE-----"));
    if (listed.find("-----BEGIN") != std::string::npos) {
        EXPECT_EQ(certificateBytes(listed), der);
    }
    expectDone({"p11tool", "--provider", softhsmModule(), "--batch", "--login", "--test-sign",
                uri + ";type=private"});
    unsetenv("GNUTLS_PIN");
    unsetenv("TEST_PIN");
}

}  // namespace cardlibs_test
