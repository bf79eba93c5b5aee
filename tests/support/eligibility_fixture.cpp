#include "eligibility_fixture.h"

#include <algorithm>

namespace support {

namespace {

constexpr std::size_t bufferSize = 4096;

std::string line(const std::string& text)
{
    return "[*]: " + text + "\n";
}

}  // namespace

const std::string holder = "ABCDEF12G34H567I";

const Kind& aut()
{
    static const Kind kind{"AUT",
                           controllo_pending_AUT,
                           CertAUTStore,
                           4,
                           authenticationText,
                           {{"CERTIFICATO DA RINNOVARE", "Certificato di AUTENTICAZIONE"}},
                           {{"CERTIFICATO DA RINNOVARE", "Certificato di AUTENTICAZIONE"}},
                           "castelvane-norbelta",
                           "AUT non rinnovabile: CA non Castelvane/Norbelta. Certificato saltato",
                           "AUT non ancora in scadenza. Certificato saltato.",
                           "AUT scaduto. Certificato saltato.",
                           "Certificato AUT. IUT: "};
    return kind;
}

const Kind& pra()
{
    static const Kind kind{
        "PRA",
        controllo_pending_PRA,
        CertPRAStore,
        4,
        signatureText,
        {},
        {{"CERTIFICATO DA RINNOVARE", "certificato di SOTTOSCRIZIONE (FIRMA DIGITALE)"},
         {"Certificato", "Certificato di SOTTOSCRIZIONE"}},
        "castelvane-norbelta-pellaroux",
        "PRA non rinnovabile: CA non Castelvane/Norbelta. Certificato saltato",
        "PRA non ancora in scadenza. Certificato saltato",
        "PRA scaduto. Certificato saltato.",
        "Certificato PRA. IUT: "};
    return kind;
}

const Kind& cns()
{
    static const Kind kind{
        "CNS",
        [](RenewContext* context, int flag, int count, int* result) {
            return controllo_pending_CNS(context, 77, flag, count, result);
        },
        CertCNSStore,
        1,
        authenticationText,
        {},
        {{"CERTIFICATO DA RINNOVARE", "certificato CNS"}, {"Certificato", "Certificato CNS"}},
        "castelvane-norbelta-pellaroux",
        "CNS non rinnovabile: CA non Castelvane/Norbelta/Pellaroux. Certificato saltato",
        "CNS non ancora in scadenza. Certificato saltato",
        "CNS scaduto. Certificato saltato.",
        "Certificato CNS. IUT: "};
    return kind;
}

std::vector<Kind> allKinds()
{
    return {aut(), pra(), cns()};
}

void EligibilityTest::SetUp()
{
    LibraryTest::SetUp();
    startSession();
}

Descriptor EligibilityTest::renewable(const Kind& kind)
{
    Descriptor descriptor;
    descriptor.notAfter = inDays(30);
    if (kind.name == "PRA")
        descriptor.subject = "2.5.4.6=IT,2.5.4.5=IT:" + holder + ",2.5.4.3=Anna Verdi";
    return descriptor;
}

void EligibilityTest::run(const Kind& kind, int flag, int count)
{
    int result = 4711;
    EXPECT_TRUE(kind.check(&context, flag, count, &result));
    EXPECT_EQ(result, 4711);
}

void EligibilityTest::checkAll(const Kind& kind, const std::vector<std::string>& texts, int flag)
{
    ASSERT_LE(texts.size(), kind.capacity);
    std::fill(kind.store, kind.store + kind.capacity + 1, nullptr);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        m_buffers.emplace_back(bufferSize, '\0');
        write(m_buffers.back().data(), bufferSize, texts[i]);
        kind.store[i + 1] = m_buffers.back().data();
    }
    run(kind, flag, static_cast<int>(texts.size()));
}

void EligibilityTest::check(const Kind& kind, const Descriptor& descriptor)
{
    checkAll(kind, {kind.text(descriptor)});
}

std::string EligibilityTest::block(const Kind& kind, int index, const Descriptor& descriptor,
                                   const std::string& fiscalCodeShown)
{
    const std::string separator = line(std::string(67, '-'));
    return separator + line("Controllo pendig " + kind.name + ": " + std::to_string(index)) +
           line("subjectDN: " + descriptor.subject) + line("issuerDN: " + descriptor.issuer) +
           line("policy: " + descriptor.policy) + line("serialCert: " + descriptor.serial) +
           line("notBefore: " + descriptor.notBefore) + line("notAfter: " + descriptor.notAfter) +
           line("CkaidCert PRA: " + descriptor.ckaId) +
           (kind.name == "PRA" ? line("explicitTEXT: " + descriptor.explicitText) : "") +
           line("Fiscal Code: " + fiscalCodeShown) + separator;
}

std::string EligibilityTest::rowKey(const Kind& kind, int number)
{
    return kind.name + ": " + std::to_string(number);
}

PlainRecord EligibilityTest::record(const Kind& kind, int number)
{
    PlainContext all = plain(context);
    return all[rowKey(kind, number)];
}

PlainRecord EligibilityTest::renewableRecord(const Kind& kind, const Descriptor& descriptor,
                                             const std::string& fiscalCode)
{
    PlainRecord record = certificateRecord(descriptor, fiscalCode);
    record.insert(kind.renewableLabels.begin(), kind.renewableLabels.end());
    return record;
}

PlainRecord EligibilityTest::skippedRecord(const Kind& kind, const Descriptor& descriptor,
                                           const std::string& fiscalCode, const std::string& reason)
{
    PlainRecord record = certificateRecord(descriptor, fiscalCode);
    record.insert(kind.skippedLabels.begin(), kind.skippedLabels.end());
    record["MODALITA' RINNOVO"] = reason;
    if (reason == "Non rinnovabile")
        record["issuerDN"] = kind.acceptedAuthorities;
    return record;
}

std::string EligibilityTest::newLog()
{
    const std::string whole = log();
    std::string added = whole.substr(m_logSeen);
    m_logSeen = whole.size();
    return added;
}

}  // namespace support
