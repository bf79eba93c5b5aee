// A software card in a folder of its own, made anew for each test, and what lies on it seen from
// outside the card libraries' functions.

#ifndef TARVELOQT_TESTS_CARDLIBS_CARD_FIXTURE_H
#define TARVELOQT_TESTS_CARDLIBS_CARD_FIXTURE_H

#include "cardlibs/contents/card_contents.h"
#include "cardlibs/token/session.h"
#include "tools/softcard/card_folder.h"
#include "tools/softcard/card_making.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace cardlibs_test {

inline constexpr char cardPin[] = "27182818";
inline constexpr char wrongPin[] = "31415926";

// A folder that vanishes with the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

// A pair that nobody has asked a certificate for: pending under one of our labels, somebody else's
// under any other. number: below 256, for its CKA_ID.
softcard::CertifiedKeyOrder pairWithoutCertificate(const std::string& label, int number);

class CardFixture : public ::testing::Test {
protected:
    // The readers of another test's PC/SC service must not show here; fixtures that mean a service
    // have a SetUpTestSuite of their own.
    static void SetUpTestSuite();

    CardFixture();

    // Makes a card with these kinds of certificate; EC keys, because they are made in no time.
    void makeCard(const std::vector<std::string>& kinds,
                  softcard::KeyType keyType = softcard::KeyType::p256, int daysToExpiry = 30);

    // A session of the test's own, closed before the card libraries are called again.
    void onCard(const std::function<void(cardlibs::token::Session&)>& work);
    // Adds a certificate of the demonstration authority with its key; gives its DER.
    cardlibs::Bytes addCertificate(const softcard::CertifiedKeyOrder& order);
    cardlibs::Bytes addCertificate(const std::string& kind, int number, int daysToExpiry = 30);
    // Adds a key pair without certificate.
    void addKey(const softcard::CertifiedKeyOrder& order);

    // Name and value of what the card holds: "private AUT0 <ID>", "public ...", "certificate ...".
    std::vector<std::string> objectNames();
    std::vector<cardlibs::contents::CertificateObject> certificates();
    // Private keys that have a certificate on the card and sign with it.
    std::size_t workingPairs();

    const softcard::CardFolder& folder() const { return m_folder; }
    std::string reader();
    std::string tablePath() const;
    void writeTable(const std::string& text) const;

private:
    CK_SLOT_ID slot();

    TemporaryFolder m_temporary;
    softcard::CardFolder m_folder;
};

}  // namespace cardlibs_test

#endif
