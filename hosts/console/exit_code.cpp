#include "hosts/console/exit_code.h"

#include <algorithm>
#include <utility>

namespace console {

const std::vector<ExitCodeEntry>& exitCodes()
{
    static const std::vector<ExitCodeEntry> entries = {
        {ExitCode::done, "done", Text("Fatto.", "Done."), std::nullopt},
        {ExitCode::internalError, "internal-error",
         Text("Errore interno del programma.", "The program itself failed."),
         Text("Segnalare l'errore insieme al registro (tarvelo-renew log).",
              "Please report it together with the log (tarvelo-renew log).")},
        {ExitCode::usage, "usage",
         Text("La riga di comando non è utilizzabile.", "The command line cannot be used."),
         Text("Leggere tarvelo-renew --help.", "Read tarvelo-renew --help.")},
        {ExitCode::noReader, "no-reader",
         Text("Nessun lettore di carte è utilizzabile.", "No card reader can be used."),
         Text("Collegare il lettore e inserire la carta, oppure indicare il lettore con --reader. "
              "tarvelo-renew doctor dice che cosa non va.",
              "Plug in the reader and insert the card, or name the reader with --reader. "
              "tarvelo-renew doctor tells what is wrong.")},
        {ExitCode::pinUnusable, "pin-unusable",
         Text("Il PIN non è utilizzabile; la carta non l'ha visto.",
              "The PIN cannot be used; the card has not seen it."),
         Text("Dare il PIN di otto caratteri esatti.",
              "Give the PIN of exactly eight characters.")},
        {ExitCode::cardUnreachable, "card-unreachable",
         Text("Impossibile aprire una sessione con la carta.",
              "No session with the card could be opened."),
         Text("Controllare che la carta sia nel lettore e che nessun altro programma la tenga "
              "occupata, poi riprovare. tarvelo-renew doctor dice che cosa non va.",
              "Check that the card is in the reader and that no other program holds it, then try "
              "again. tarvelo-renew doctor tells what is wrong.")},
        {ExitCode::pinRefused, "pin-refused",
         Text("La carta ha rifiutato il PIN.", "The card refused the PIN."),
         Text("Non provare a caso: tre PIN sbagliati bloccano la carta.",
              "Do not try at random: three wrong tries block the PIN.")},
        {ExitCode::cardRefused, "card-refused",
         Text("Questa carta non può essere rinnovata.", "This card cannot be renewed."),
         Text("Leggere il motivo qui sopra; un ufficio di registrazione può sostituire la carta.",
              "Read the reason above; a registration office can replace the card.")},
        {ExitCode::inventoryFailed, "inventory-failed",
         Text("Impossibile leggere i certificati sulla carta.",
              "The certificates on the card could not be read."),
         Text("Estrarre la carta, inserirla di nuovo e riprovare.",
              "Take the card out, insert it again and try once more.")},
        {ExitCode::nothingToRenew, "nothing-to-renew",
         Text("Nessun certificato sulla carta può essere rinnovato ora.",
              "No certificate on the card can be renewed now."),
         Text("La tabella qui sopra dice il motivo per ogni certificato.",
              "The table above tells the reason for each certificate.")},
        {ExitCode::choiceNeeded, "choice-needed",
         Text("Non è chiaro quale certificato rinnovare.",
              "It is not clear which certificate to renew."),
         Text("Indicarlo con --certificate e il suo numero nella tabella, oppure usare --all.",
              "Name it with --certificate and its number in the table, or use --all.")},
        {ExitCode::declined, "declined",
         Text("Non è stato fatto nulla, come richiesto.", "Nothing was done, as you wished."),
         std::nullopt},
        {ExitCode::requestFailed, "request-failed",
         Text("La carta non ha potuto generare la chiave e la richiesta.",
              "The card could not make the key and the request."),
         Text("Quello che era sulla carta non è cambiato; eliminare la causa e riprovare.",
              "Nothing that was on the card has changed; mend the cause and try again.")},
        {ExitCode::authorityFailed, "authority-failed",
         Text("L'autorità di certificazione non ha dato un certificato.",
              "The certification authority gave no certificate."),
         Text("Il vecchio certificato funziona ancora. Riprovare con tarvelo-renew resume: la "
              "chiave "
              "in attesa sulla carta viene usata di nuovo.",
              "The old certificate still works. Try again with tarvelo-renew resume: the key that "
              "waits on the card is used again.")},
        {ExitCode::certificateRefused, "certificate-refused",
         Text("Il certificato non è quello di questa richiesta; non è stato installato.",
              "The certificate is not the one for this request; it was not installed."),
         Text("Il vecchio certificato funziona ancora. Avvisare l'autorità; la chiave resta in "
              "attesa sulla carta per la prossima volta.",
              "The old certificate still works. Tell the authority; the key waits on the card for "
              "the next run.")},
        {ExitCode::installationFailed, "installation-failed",
         Text("Impossibile scrivere il nuovo certificato sulla carta.",
              "The new certificate could not be written onto the card."),
         Text("Eseguire tarvelo-renew resume, o di nuovo il programma con lo stesso certificato: "
              "quello che manca viene completato.",
              "Run tarvelo-renew resume, or the program again with the same certificate: what is "
              "missing is then completed.")},
        {ExitCode::notSeenOnCard, "not-seen-on-card",
         Text("La carta ha accettato il nuovo certificato ma non lo mostra.",
              "The card accepted the new certificate but does not show it."),
         Text("Estrarre la carta, inserirla di nuovo ed eseguire tarvelo-renew list.",
              "Take the card out, insert it again and run tarvelo-renew list.")},
        {ExitCode::comeBackLater, "come-back-later",
         Text("La richiesta è fatta; il certificato deve ancora arrivare.",
              "The request is made; its certificate is still to come."),
         Text("Quando il certificato c'è, eseguire di nuovo il programma con --issued e il suo "
              "file, "
              "oppure tarvelo-renew resume.",
              "Run the program again with --issued and the certificate's file once you have it, or "
              "tarvelo-renew resume.")},
        {ExitCode::fileFailed, "file-failed",
         Text("Impossibile leggere o scrivere un file.", "A file could not be read or written."),
         Text("Controllare il nome del file e i suoi permessi.",
              "Check the file's name and its permissions.")},
        {ExitCode::confirmationNeeded, "confirmation-needed",
         Text("Non è stato fatto nulla: serve una conferma e nessuno può darla.",
              "Nothing was done: it needs a confirmation, and nobody is there to give it."),
         Text(
             "Usare --yes negli script, oppure --ask se le risposte arrivano dallo standard input.",
             "Use --yes in scripts, or --ask where standard input holds the answers.")},
        {ExitCode::lastTry, "last-try",
         Text("Resta un solo tentativo per il PIN; non è stato usato.",
              "One try is left for the PIN; it was not used."),
         Text(
             "Solo se il PIN è certamente giusto, confermare al terminale o con --last-try. Un PIN "
             "sbagliato bloccherebbe la carta.",
             "Only when the PIN is certainly right, confirm at a terminal or with --last-try. A "
             "wrong PIN would block the card.")},
        {ExitCode::pinBlocked, "pin-blocked",
         Text("Il PIN della carta è bloccato.", "The card's PIN is blocked."),
         Text("Sbloccarlo con il PUK, o rivolgersi all'ufficio di registrazione.",
              "Unblock it with the PUK, or ask the registration office.")},
        {ExitCode::nothingPending, "nothing-pending",
         Text("Nessun rinnovo è rimasto a metà.", "No renewal waits to be finished."),
         Text("Per iniziarne uno, eseguire tarvelo-renew.", "To begin one, run tarvelo-renew.")},
        {ExitCode::someFailed, "some-failed",
         Text("Non tutti i certificati sono stati rinnovati.",
              "Not every certificate was renewed."),
         Text(
             "Leggere il motivo di ciascuno qui sopra; tarvelo-renew resume completa quelli "
             "iniziati.",
             "Read each one's reason above; tarvelo-renew resume finishes those that were begun.")},
        {ExitCode::problemsFound, "problems-found",
         Text("Qualcosa impedisce il rinnovo.", "Something stands in the way of a renewal."),
         Text("Ogni problema qui sopra dice come rimediare.",
              "Each problem above says how to mend it.")},
        {ExitCode::unknownAtr, "unknown-atr",
         Text("Nessuna voce della tabella serve questa carta.",
              "No entry of the table serves this card."),
         Text(
             "Aggiungere una voce ad ATR-renew.ini, se il modulo PKCS#11 della carta è installato.",
             "Add an entry to ATR-renew.ini if the card's PKCS#11 module is installed.")},
        {ExitCode::authorityUnreachable, "authority-unreachable",
         Text("L'autorità di certificazione non è raggiungibile.",
              "The certification authority cannot be reached."),
         Text("Il vecchio certificato funziona ancora. Riprovare più tardi con tarvelo-renew "
              "resume: la chiave in attesa sulla carta viene usata di nuovo.",
              "The old certificate still works. Try again later with tarvelo-renew resume: the "
              "key that waits on the card is used again.")},
        {ExitCode::authorityRefused, "authority-refused",
         Text("L'autorità di certificazione rifiuta la richiesta.",
              "The certification authority refuses the request."),
         Text("Il vecchio certificato funziona ancora. Chiarire il motivo con l'autorità, poi "
              "eseguire tarvelo-renew resume.",
              "The old certificate still works. Settle the reason with the authority, then run "
              "tarvelo-renew resume.")},
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
    const std::optional<Text>& step = entryOf(m_code).nextStep;
    return m_nextStep.isEmpty() && step ? step->string() : m_nextStep;
}

const char* Stop::what() const noexcept
{
    return entryOf(m_code).name;
}

}  // namespace console
