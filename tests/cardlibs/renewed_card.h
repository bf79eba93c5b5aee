// Cards with foreign objects on which certificates of any kind are renewed.

#ifndef TARVELOQT_TESTS_CARDLIBS_RENEWED_CARD_H
#define TARVELOQT_TESTS_CARDLIBS_RENEWED_CARD_H

#include "tests/cardlibs/foreign_objects.h"
#include "tests/cardlibs/renewal_steps.h"
#include "tests/cardlibs/run_counts.h"
#include "tests/cardlibs/token_look.h"

#include <string>
#include <vector>

namespace cardlibs_test {

// A certificate under renewal.
struct Due {
    std::string kind;
    softcard::KeyType keyType = softcard::KeyType::p256;
    cardlibs::Bytes certificate;
    // Of its pair and itself.
    ObjectFiles files;
    std::vector<std::string> descriptor;
    std::string request;
    std::string issued;
};

class RenewedCard : public RenewalFixture {
protected:
    // A card with foreign objects alone.
    void makeCardOfOthers();

    Due addDue(const softcard::CertifiedKeyOrder& order, const std::string& kind);
    Due addDue(const std::string& kind, softcard::KeyType keyType, int number = 0);
    // Makes the request and has it answered.
    void requestFor(Due& due);
    using RenewalFixture::requestFor;
    // named: whether the certificate to replace is.
    int install(const Due& due, bool named = true);
    // Removes certificate and keys.
    void remove(const Due& due);

    // The new certificate works, is in its kind's store with the old one's subject, bears one
    // identifier with its key, and the old one is gone; counted as a renewal.
    void expectRenewed(const Due& due, const char* way);
    void expectForeignObjectsUntouched();
    // Whether the old certificate, or the new one, is there and works.
    bool isUsable(const Due& due);

    static const std::vector<std::vector<std::string>>& storeOf(const ReadResult& stores,
                                                                const std::string& kind);
    static int pendingOf(const ReadResult& stores, const std::string& kind);

private:
    ObjectFiles m_foreign;
};

// "cnslike_RSA": for names of tests.
std::string rowName(std::string kind, softcard::KeyType keyType);

}  // namespace cardlibs_test

#endif
