// The software card that every contender renews a certificate on: made once, brought back to what
// it was before each renewal, and looked at afterwards without the counting module.

#ifndef TARVELOQT_BENCH_RENEWAL_BENCH_CARD_H
#define TARVELOQT_BENCH_RENEWAL_BENCH_CARD_H

#include "cardlibs/contents/card_objects.h"
#include "tools/softcard/card_folder.h"
#include "tools/softcard/certified_key.h"

#include <filesystem>
#include <string>

namespace bench {

inline constexpr char cardPin[] = "27182818";
inline constexpr char tokenLabel[] = "CartaCosto";

// The most key pairs that a card can be made with.
inline constexpr int mostPairs = 10;

class BenchCard {
public:
    // A card in a new folder, with so many key pairs: the first bears an authentication certificate
    // with 30 days left, the others are certified, pending or somebody else's. Throws
    // std::exception, as all of these functions do.
    BenchCard(const std::filesystem::path& folder, softcard::KeyType keyType, int pairs);

    // The card as it was made; processes started from now on use it.
    void restore() const;

    // For a folder of files that a renewal leaves.
    std::filesystem::path workFolder() const { return m_folder.root() / "work"; }

    softcard::KeyType keyType() const { return m_keyType; }
    int pairs() const { return m_pairs; }
    // CKA_ID of the first pair: upper-case hexadecimal.
    const std::string& oldId() const { return m_oldId; }

    // The authority's certificate for the request, three years from now; PEM.
    std::string issue(const std::string& requestPem) const;

    // Throws std::runtime_error unless the certificate is on the card beside its private key and
    // another one has gone, and nothing else has changed in number.
    void expectRenewed(const std::string& issuedPem) const;

private:
    cardlibs::contents::CardObjects objects() const;

    softcard::CardFolder m_folder;
    softcard::KeyType m_keyType;
    int m_pairs;
    std::string m_oldId;
};

}  // namespace bench

#endif
