#include "tests/cardlibs/crafted_card.h"

#include "cardlibs/x509/certificate.h"

#include <algorithm>
#include <stdexcept>

namespace cardlibs_test {

using cardlibs::Bytes;
using cardlibs::token::Session;
namespace x509 = cardlibs::x509;

softcard::CertifiedKeyOrder orderOf(const std::string& kind, int number, softcard::KeyType keyType)
{
    return softcard::orderFor(softcard::findKind(kind), number, keyType, 30);
}

softcard::CertifiedKeyOrder decryptingOrderOf(const std::string& kind, int number)
{
    auto order = orderOf(kind, number, softcard::KeyType::rsa2048);
    order.profile.keyUsage += ",keyEncipherment";
    return order;
}

std::string pemOf(const Bytes& der)
{
    const auto certificate = x509::Certificate::parse(der);
    const x509::BioPointer memory(BIO_new(BIO_s_mem()));
    if (!certificate || !memory || PEM_write_bio_X509(memory.get(), certificate->get()) != 1)
        throw std::runtime_error("this is no certificate");
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

Bytes CraftedCard::certify(const std::string& keyLabel, const softcard::CertifiedKeyOrder& order)
{
    Bytes der;
    onCard([&](Session& session) {
        const auto objects = cardlibs::contents::readObjects(session);
        const auto key =
            std::find_if(objects.publicKeys.begin(), objects.publicKeys.end(),
                         [&](const auto& candidate) { return candidate.label == keyLabel; });
        if (key == objects.publicKeys.end() || !key->publicKey)
            throw std::runtime_error("no public key " + keyLabel);
        der = softcard::DemoAuthority::open(folder().authority())
                  .certify(softcard::nameOf(order.subject).get(),
                           x509::evpKey(*key->publicKey).get(), order.validity, order.profile);
    });
    return der;
}

void CraftedCard::addCertificateObject(const std::string& label, const Bytes& id,
                                       const Bytes& value, const Bytes& subject)
{
    onCard([&](Session& session) {
        cardlibs::token::Template object;
        object.number(CKA_CLASS, CKO_CERTIFICATE)
            .number(CKA_CERTIFICATE_TYPE, CKC_X_509)
            .flag(CKA_TOKEN, true)
            .flag(CKA_PRIVATE, false)
            .text(CKA_LABEL, label)
            .bytes(CKA_ID, id)
            .bytes(CKA_SUBJECT, subject)
            .bytes(CKA_VALUE, value);
        session.create(object);
    });
}

void CraftedCard::destroy(CK_OBJECT_CLASS objectClass, const std::string& label)
{
    onCard([&](Session& session) {
        cardlibs::token::Template sought;
        sought.number(CKA_CLASS, objectClass).text(CKA_LABEL, label);
        const auto found = session.find(sought);
        ASSERT_FALSE(found.empty());
        for (const CK_OBJECT_HANDLE handle : found)
            session.destroy(handle);
    });
}

std::size_t CraftedCard::count(CK_OBJECT_CLASS objectClass, const std::string& label)
{
    std::size_t number = 0;
    onCard([&](Session& session) {
        cardlibs::token::Template sought;
        sought.number(CKA_CLASS, objectClass).text(CKA_LABEL, label);
        number = session.find(sought).size();
    });
    return number;
}

void CraftedCard::failDestroy(std::size_t number, Fault fault, CK_RV failure)
{
    proxy().failingName = "C_DestroyObject";
    proxy().failingCall = proxy().count("C_DestroyObject") + number;
    proxy().fault = fault;
    proxy().failure = failure;
}

void CraftedCard::failNothing()
{
    proxy().failingCall = 0;
    proxy().failingName.clear();
}

std::string CraftedCard::issueFor(const std::string& kind,
                                  const std::vector<std::string>& descriptor)
{
    const RequestResult made = requestFor(kind, descriptor);
    EXPECT_EQ(made.result, 0) << lastError().text;
    return made.result == 0 ? issue(made.pem) : std::string();
}

void CraftedCard::install(const std::string& kind, const std::vector<std::string>& descriptor,
                          const std::string& issued)
{
    ASSERT_EQ(save(functionFor(kind), descriptor.at(ckaIdField), issued), 0) << lastError().text;
}

std::string CraftedCard::serialOf(const std::string& issuedPem)
{
    return x509::Certificate::parse(certificateBytes(issuedPem)).value().serialNumber();
}

std::vector<std::string> CraftedCard::serials(const std::vector<std::vector<std::string>>& store)
{
    std::vector<std::string> numbers;
    numbers.reserve(store.size());
    for (const auto& descriptor : store)
        numbers.push_back(descriptor.at(serialField));
    return numbers;
}

}  // namespace cardlibs_test
