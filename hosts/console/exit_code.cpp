#include "hosts/console/exit_code.h"

#include <algorithm>
#include <utility>

namespace console {

const std::vector<ExitCodeEntry>& exitCodes()
{
    static const std::vector<ExitCodeEntry> entries = {
        {ExitCode::renewed, "renewed", "The certificate was renewed.", ""},
        {ExitCode::internalError, "internal-error", "The program itself failed.",
         "Please report it together with the log."},
        {ExitCode::usage, "usage", "The command line cannot be used.",
         "Read tarvelo-renew --help."},
        {ExitCode::noReader, "no-reader", "No card reader can be used.",
         "Plug in the reader and insert the card, or name the reader with --reader."},
        {ExitCode::pinUnusable, "pin-unusable", "The PIN cannot be used; the card has not seen it.",
         "Give the PIN of exactly eight characters."},
        {ExitCode::cardUnreachable, "card-unreachable", "No session with the card could be opened.",
         "Check that the card is in the reader and that no other program holds it, then try "
         "again."},
        {ExitCode::pinRefused, "pin-refused", "The card refused the PIN.",
         "Do not try at random: three wrong tries block the PIN."},
        {ExitCode::cardRefused, "card-refused", "This card cannot be renewed.",
         "Read the reason above; a registration office can replace the card."},
        {ExitCode::inventoryFailed, "inventory-failed",
         "The certificates on the card could not be read.",
         "Take the card out, insert it again and try once more."},
        {ExitCode::nothingToRenew, "nothing-to-renew",
         "No certificate on the card can be renewed now.",
         "The table above tells the reason for each certificate."},
        {ExitCode::choiceNeeded, "choice-needed", "It is not clear which certificate to renew.",
         "Name it with --certificate and its number in the table."},
        {ExitCode::declined, "declined", "Nothing was done, as you wished.", ""},
        {ExitCode::requestFailed, "request-failed",
         "The card could not make the key and the request.",
         "Nothing that was on the card has changed; mend the cause and try again."},
        {ExitCode::authorityFailed, "authority-failed",
         "The certification authority gave no certificate.",
         "The old certificate still works. Run the program again: the key that waits on the card "
         "is "
         "used again."},
        {ExitCode::certificateRefused, "certificate-refused",
         "The certificate is not the one for this request; it was not installed.",
         "The old certificate still works. Tell the authority; the key waits on the card for the "
         "next run."},
        {ExitCode::installationFailed, "installation-failed",
         "The new certificate could not be written onto the card.",
         "Run the program again with the same certificate: what is missing is then completed."},
        {ExitCode::notSeenOnCard, "not-seen-on-card",
         "The card accepted the new certificate but does not show it.",
         "Take the card out, insert it again and run the program again to look."},
        {ExitCode::comeBackLater, "come-back-later",
         "The request is made; its certificate is still to come.",
         "Run the program again with --issued and the certificate's file once you have it."},
        {ExitCode::fileFailed, "file-failed", "A file could not be read or written.",
         "Check the file's name and its permissions."},
    };
    return entries;
}

const ExitCodeEntry& entryOf(ExitCode code)
{
    const auto& entries = exitCodes();
    const auto found =
        std::find_if(entries.begin(), entries.end(),
                     [code](const ExitCodeEntry& entry) { return entry.code == code; });
    return found != entries.end() ? *found : entryOf(ExitCode::internalError);
}

Stop::Stop(ExitCode code, QString detail, QString nextStep)
    : m_code(code)
    , m_detail(std::move(detail))
    , m_nextStep(std::move(nextStep))
{
}

QString Stop::nextStep() const
{
    return m_nextStep.isEmpty() ? QString::fromUtf8(entryOf(m_code).nextStep) : m_nextStep;
}

const char* Stop::what() const noexcept
{
    return entryOf(m_code).meaning;
}

}  // namespace console
