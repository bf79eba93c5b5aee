// The folder of one software card and its demonstration authority.

#ifndef TARVELOQT_TOOLS_SOFTCARD_CARD_FOLDER_H
#define TARVELOQT_TOOLS_SOFTCARD_CARD_FOLDER_H

#include <filesystem>

namespace softcard {

class CardFolder {
public:
    // Made absolute: SoftHSM2 reads the paths from wherever a program runs.
    explicit CardFolder(const std::filesystem::path& path);

    std::filesystem::path root() const { return m_path; }
    std::filesystem::path configuration() const { return m_path / "softhsm2.conf"; }
    std::filesystem::path tokens() const { return m_path / "tokens"; }
    std::filesystem::path pin() const { return m_path / "pin"; }
    std::filesystem::path securityOfficerPin() const { return m_path / "so-pin"; }
    std::filesystem::path authority() const { return m_path / "ca"; }

    // True when a card was made here and finished.
    bool holdsCard() const;
    // True when anything of a card is here, finished or not.
    bool holdsRemains() const;
    void markFinished() const;

    // Makes the folder, its token folder and softhsm2.conf, readable by their owner alone, and
    // points SOFTHSM2_CONF of this process there.
    void prepare() const;
    void useConfiguration() const;

    // Removes what this program makes, nothing else.
    void clear() const;

private:
    std::filesystem::path finishedMark() const { return m_path / "card-made"; }

    std::filesystem::path m_path;
};

}  // namespace softcard

#endif
