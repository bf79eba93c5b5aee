// Cards as other programs, or an installation that was cut short, leave them.

#ifndef TARVELOQT_TESTS_CARDLIBS_CRAFTED_CARD_H
#define TARVELOQT_TESTS_CARDLIBS_CRAFTED_CARD_H

#include "tests/cardlibs/proxy_fixture.h"
#include "tests/cardlibs/run_counts.h"
#include "tests/cardlibs/token_look.h"

#include <string>
#include <vector>

namespace cardlibs_test {

// Orders with a P-256 key unless said otherwise, 30 days before expiry.
softcard::CertifiedKeyOrder orderOf(const std::string& kind, int number,
                                    softcard::KeyType keyType = softcard::KeyType::p256);
// The old key may still be needed to decrypt.
softcard::CertifiedKeyOrder decryptingOrderOf(const std::string& kind, int number);

std::string pemOf(const cardlibs::Bytes& der);

class CraftedCard : public ProxyFixture {
protected:
    // A certificate over the public key of the private key with this label.
    cardlibs::Bytes certify(const std::string& keyLabel, const softcard::CertifiedKeyOrder& order);
    // A certificate object with any value, and the CKA_SUBJECT given.
    void addCertificateObject(const std::string& label, const cardlibs::Bytes& id,
                              const cardlibs::Bytes& value, const cardlibs::Bytes& subject);
    // Destroys the objects of this class and label; there must be some.
    void destroy(CK_OBJECT_CLASS objectClass, const std::string& label);
    std::size_t count(CK_OBJECT_CLASS objectClass, const std::string& label);

    // The n-th C_DestroyObject from now on fails once.
    void failDestroy(std::size_t number, Fault fault = Fault::instead,
                     CK_RV failure = CKR_DEVICE_ERROR);
    void failNothing();

    // Requests a certificate for the only one of its kind and has it issued.
    std::string issueFor(const std::string& kind, const std::vector<std::string>& descriptor);
    // Saves and expects success.
    void install(const std::string& kind, const std::vector<std::string>& descriptor,
                 const std::string& issued);

    static std::string serialOf(const std::string& issuedPem);
    static std::vector<std::string> serials(const std::vector<std::vector<std::string>>& store);
};

}  // namespace cardlibs_test

#endif
