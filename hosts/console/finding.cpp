#include "hosts/console/finding.h"

#include "hosts/console/text_layout.h"

#include <algorithm>
#include <utility>

namespace console {

namespace {

// Not QString::arg: subject and detail come from anywhere and may look like places themselves.
QString filled(const QString& text, const Finding& finding)
{
    QString result;
    for (int i = 0; i < text.size(); ++i) {
        const QStringRef place = text.midRef(i, 2);
        const bool isSubject = place == QLatin1String("%1");
        const bool isDetail = place == QLatin1String("%2");
        if (isSubject || isDetail) {
            result += printable(isSubject ? finding.subject : finding.detail);
            ++i;
        } else {
            result += text.at(i);
        }
    }
    return result;
}

std::vector<FindingRow> serviceRows()
{
    return {
        {FindingId::serviceRunning, "pcsc-running", Severity::ok,
         Text("Il servizio delle smart card (pcscd) è attivo.",
              "The smart card service (pcscd) is running."),
         std::nullopt},
        {FindingId::serviceMissing, "pcsc-missing", Severity::problem,
         Text("Il servizio delle smart card (pcscd) non è installato.",
              "The smart card service (pcscd) is not installed."),
         Text("Installarlo: sudo apt install pcscd", "Install it: sudo apt install pcscd")},
        {FindingId::serviceStopped, "pcsc-stopped", Severity::problem,
         Text("Il servizio delle smart card (pcscd) non è attivo.",
              "The smart card service (pcscd) is not running."),
         Text("Avviarlo: sudo systemctl start pcscd.socket",
              "Start it: sudo systemctl start pcscd.socket")},
        {FindingId::serviceRefusing, "pcsc-refused", Severity::problem,
         Text("Il servizio delle smart card (pcscd) nega l'accesso a questo utente.",
              "The smart card service (pcscd) refuses this user."),
         Text("Chiedere all'amministratore di permettere org.debian.pcsc-lite.access_pcsc e "
              "org.debian.pcsc-lite.access_card a questo utente (polkit); usare il programma alla "
              "scrivania e non da un altro computer.",
              "Ask the administrator to allow org.debian.pcsc-lite.access_pcsc and "
              "org.debian.pcsc-lite.access_card to this user (polkit); use the program at the "
              "desk and not from another computer.")},
        {FindingId::serviceFailing, "pcsc-failing", Severity::problem,
         Text("Il servizio delle smart card (pcscd) non risponde come dovrebbe.",
              "The smart card service (pcscd) does not answer as it should."),
         Text("Riavviarlo: sudo systemctl restart pcscd",
              "Start it anew: sudo systemctl restart pcscd")},
        {FindingId::diagnosisUnavailable, "diagnosis-unavailable", Severity::warning,
         Text("Le librerie della carta installate non descrivono lettori e carte: qui si vede solo "
              "quello che dice la libreria di rinnovo.",
              "The card libraries in place do not describe readers and cards: only what the "
              "renewal library tells is shown here."),
         Text("Per la diagnosi completa installare il pacchetto tarvelo-cardlibs.",
              "For the whole diagnosis install the package tarvelo-cardlibs.")},
        {FindingId::cardLibraryFault, "card-library-fault", Severity::problem,
         Text("Le librerie della carta segnalano un errore: %2",
              "The card libraries report an error: %2"),
         Text("Riprovare; se si ripete, rivolgersi all'assistenza con questo testo.",
              "Try again; if it comes back, show this text to the support.")},
    };
}

std::vector<FindingRow> tableAndModuleRows()
{
    return {
        {FindingId::tableUsable, "table-usable", Severity::ok,
         Text("La tabella delle carte è leggibile: %1", "The table of cards can be read: %1"),
         std::nullopt},
        {FindingId::tableUnreadable, "table-unreadable", Severity::problem,
         Text("La tabella delle carte manca o non contiene voci utilizzabili: %1",
              "The table of cards is missing or holds no entry that can be used: %1"),
         Text("Ripristinare il file, per esempio reinstallando il programma.",
              "Restore the file, for example by installing the program again.")},
        {FindingId::tableMistake, "table-mistake", Severity::warning,
         Text("Nella tabella delle carte una voce è sbagliata e viene ignorata: %1",
              "An entry in the table of cards has a mistake and is left out: %1"),
         Text("Correggere la riga indicata.", "Correct that line.")},
        {FindingId::moduleMissing, "module-missing", Severity::problem,
         Text("Il modulo PKCS#11 della carta non c'è: %1",
              "The card's PKCS#11 module is missing: %1"),
         Text("Installare il software della carta, oppure correggere la riga \"module\" nella "
              "tabella delle carte.",
              "Install the card's software, or correct the line \"module\" in the table of "
              "cards.")},
        {FindingId::moduleBroken, "module-broken", Severity::problem,
         Text("Questo file non è un modulo PKCS#11 utilizzabile: %1 (%2)",
              "This file is no PKCS#11 module that can be used: %1 (%2)"),
         Text("Reinstallare il software della carta, oppure correggere la riga \"module\" nella "
              "tabella delle carte.",
              "Install the card's software again, or correct the line \"module\" in the table of "
              "cards.")},
        {FindingId::moduleNotLoaded, "module-not-loaded", Severity::problem,
         Text("Il modulo PKCS#11 %1 non si carica: %2",
              "The PKCS#11 module %1 cannot be loaded: %2"),
         Text("Installare il software della carta, oppure correggere la riga \"module\" nella "
              "tabella delle carte.",
              "Install the card's software, or correct the line \"module\" in the table of "
              "cards.")},
        {FindingId::moduleFailing, "module-failing", Severity::problem,
         Text("Il modulo PKCS#11 %1 non si avvia: %2", "The PKCS#11 module %1 does not start: %2"),
         Text("Controllare la configurazione del modulo e reinserire la carta.",
              "Check the module's configuration and insert the card again.")},
        {FindingId::softHsmConfigurationMissing, "softhsm-configuration-missing", Severity::problem,
         Text("La configurazione di SoftHSM2 non c'è o non è leggibile: %1",
              "The configuration of SoftHSM2 is missing or cannot be read: %1"),
         Text("Indicare il file giusto nella variabile d'ambiente SOFTHSM2_CONF, o ripristinarlo.",
              "Name the right file in the environment variable SOFTHSM2_CONF, or restore it.")},
        {FindingId::softHsmTokensUnreadable, "softhsm-tokens-unreadable", Severity::problem,
         Text("La cartella delle carte di SoftHSM2 non c'è o non è accessibile: %1",
              "The folder of SoftHSM2's cards is missing or cannot be used: %1"),
         Text("Correggere la riga \"directories.tokendir\" nella configurazione di SoftHSM2, o i "
              "permessi della cartella.",
              "Correct the line \"directories.tokendir\" in the configuration of SoftHSM2, or the "
              "folder's permissions.")},
    };
}

std::vector<FindingRow> readerRows()
{
    return {
        {FindingId::noReader, "no-reader", Severity::problem,
         Text("Nessun lettore trovato.", "No reader was found."),
         Text("Collegare il lettore; se è collegato, provare un'altra presa e controllare che il "
              "suo driver sia installato (per molti: sudo apt install libccid).",
              "Plug in the reader; if it is, try another socket and check that its driver is "
              "installed (for many: sudo apt install libccid).")},
        {FindingId::readerNotFound, "reader-not-found", Severity::problem,
         Text("Il lettore indicato non c'è: %1", "The reader that was named is not there: %1"),
         Text(
             "Collegarlo, oppure indicarne un altro con --reader; tarvelo-renew readers li elenca.",
             "Plug it in, or name another with --reader; tarvelo-renew readers lists them.")},
        {FindingId::readerAmbiguous, "reader-ambiguous", Severity::problem,
         Text("%1: un altro lettore con una carta ha lo stesso nome.",
              "%1: another reader with a card has the same name."),
         Text("Lasciarne collegato uno solo.", "Leave only one of them plugged in.")},
        {FindingId::noCard, "no-card", Severity::problem,
         Text("%1: nel lettore non c'è una carta.", "%1: there is no card in the reader."),
         Text("Inserire la carta.", "Insert the card.")},
        {FindingId::cardMute, "card-mute", Severity::problem,
         Text("%1: la carta nel lettore non risponde.",
              "%1: the card in the reader does not answer."),
         Text("Inserirla nel verso giusto; se non basta, pulire il chip.",
              "Insert it the right way round; if that does not help, clean the chip.")},
        {FindingId::cardInUse, "card-in-use", Severity::problem,
         Text("%1: un altro programma tiene la carta per sé.",
              "%1: another program keeps the card to itself."),
         Text("Chiudere gli altri programmi che usano la carta e riprovare.",
              "Close the other programs that use the card and try again.")},
        {FindingId::cardUnknown, "card-unknown", Severity::problem,
         Text("%1: la carta non è nella tabella delle carte (ATR %2).",
              "%1: the card is not in the table of cards (ATR %2)."),
         Text("Usare un'altra carta, oppure aggiungere una voce con questo ATR alla tabella "
              "ATR-renew.ini, se il modulo PKCS#11 della carta è installato.",
              "Use another card, or add an entry with this ATR to the table ATR-renew.ini if the "
              "card's PKCS#11 module is installed.")},
        {FindingId::slotNotFound, "slot-not-found", Severity::problem,
         Text("%1: il modulo PKCS#11 della carta non vede questo lettore.",
              "%1: the card's PKCS#11 module does not see this reader."),
         Text("Ricollegare il lettore; se non basta, reinstallare il software della carta.",
              "Plug the reader in again; if that does not help, install the card's software "
              "again.")},
        {FindingId::slotAmbiguous, "slot-ambiguous", Severity::problem,
         Text("%1: la carta ha più PIN e la tabella delle carte non dice quale usare.",
              "%1: the card has several PINs and the table of cards does not tell which to use."),
         Text("Indicare l'etichetta giusta con la chiave token_label nella tabella ATR-renew.ini.",
              "Name the right label with the key token_label in the table ATR-renew.ini.")},
        {FindingId::cardUnusable, "card-unusable", Severity::problem,
         Text("%1: la carta non è utilizzabile: %2", "%1: the card cannot be used: %2"),
         Text("Estrarre la carta, inserirla di nuovo e riprovare.",
              "Take the card out, insert it again and try once more.")},
        {FindingId::readerReady, "reader-ready", Severity::ok,
         Text("%1: la carta è utilizzabile.", "%1: the card can be used."), std::nullopt},
    };
}

std::vector<FindingRow> tokenRows()
{
    return {
        {FindingId::tokenNotInitialised, "token-not-initialised", Severity::problem,
         Text("%1: la carta non è inizializzata.", "%1: the card is not initialised."),
         Text("È vuota: rivolgersi a chi l'ha rilasciata.", "It is empty: turn to who issued it.")},
        {FindingId::writeProtected, "card-write-protected", Severity::problem,
         Text("%1: la carta è protetta dalla scrittura.",
              "%1: the card is protected from writing."),
         Text("Non può ricevere certificati: rivolgersi all'ufficio di registrazione.",
              "It takes no certificates: ask the registration office.")},
        {FindingId::notActivated, "not-activated", Severity::problem,
         Text("%1: la carta non è ancora attivata.", "%1: the card is not activated yet."),
         Text("Attivarla come scritto nella busta dei codici, con il programma della carta.",
              "Activate it as the letter with its codes says, with the card's own program.")},
        {FindingId::pinToBeChanged, "pin-to-be-changed", Severity::problem,
         Text("%1: il PIN va cambiato prima di usare la carta.",
              "%1: the PIN has to be changed before the card can be used."),
         Text("Cambiarlo con il programma della carta.", "Change it with the card's own program.")},
        {FindingId::pinBlocked, "pin-blocked", Severity::problem,
         Text("%1: il PIN della carta è bloccato.", "%1: the card's PIN is blocked."),
         Text("Sbloccarlo con il PUK, o rivolgersi all'ufficio di registrazione.",
              "Unblock it with the PUK, or ask the registration office.")},
        {FindingId::pinLastTry, "pin-last-try", Severity::problem,
         Text("%1: resta un solo tentativo per il PIN.", "%1: one try is left for the PIN."),
         Text("Usarlo solo se il PIN è certamente giusto (--last-try); un PIN giusto ridà tutti i "
              "tentativi.",
              "Use it only when the PIN is certainly right (--last-try); a right PIN gives all "
              "tries back.")},
        {FindingId::pinTriesLow, "pin-tries-low", Severity::warning,
         Text("%1: è già stato dato un PIN sbagliato.", "%1: a wrong PIN was given before."),
         Text("Digitare il PIN con attenzione; un PIN giusto ridà tutti i tentativi.",
              "Type the PIN with care; a right PIN gives all tries back.")},
    };
}

std::vector<FindingRow> machineRows()
{
    return {
        {FindingId::homeUsable, "home-usable", Severity::ok,
         Text("La cartella per il registro e i rinnovi iniziati è utilizzabile: %1",
              "The folder for the log and the renewals that were begun can be used: %1"),
         std::nullopt},
        {FindingId::homeUnwritable, "home-unwritable", Severity::problem,
         Text("Non si può scrivere in %1, dove vanno il registro e i rinnovi iniziati.",
              "%1 cannot be written, where the log and the renewals that were begun belong."),
         Text("Controllare proprietario e permessi della cartella, e la variabile d'ambiente HOME.",
              "Check the folder's owner and permissions, and the environment variable HOME.")},
        {FindingId::logUnwritable, "log-unwritable", Severity::warning,
         Text("Il registro non può essere scritto: %1", "The log cannot be written: %1"),
         Text("Controllarne proprietario e permessi, oppure spostare il file altrove.",
              "Check its owner and permissions, or move the file away.")},
        {FindingId::recordsUnsafe, "records-unsafe", Severity::problem,
         Text("I rinnovi iniziati non possono essere annotati: %2",
              "Renewals that are begun cannot be noted: %2"),
         Text("Guardare che cosa contiene quella cartella, poi correggerne il proprietario e "
              "togliere agli altri il permesso di scrittura (chmod go-w).",
              "Look at what is in that folder, then correct its owner and take away others' "
              "permission to write (chmod go-w).")},
        {FindingId::recordUnreadable, "record-unreadable", Severity::warning,
         Text("L'annotazione di un rinnovo iniziato non è utilizzabile: %2",
              "The record of a renewal that was begun cannot be used: %2"),
         Text("Spostare quel file altrove; tarvelo-renew resume completa il rinnovo anche dalla "
              "sola "
              "carta.",
              "Move that file away; tarvelo-renew resume can finish the renewal from the card "
              "alone, too.")},
        {FindingId::clockPlausible, "clock-plausible", Severity::ok,
         Text("L'orologio del computer è plausibile: %1", "The computer's clock is plausible: %1"),
         std::nullopt},
        {FindingId::clockBehind, "clock-behind", Severity::problem,
         Text("L'orologio del computer segna il %1, ma questo programma è del %2.",
              "The computer's clock says %1, but this program is of %2."),
         Text("Regolare la data: sudo timedatectl set-ntp true",
              "Set the date: sudo timedatectl set-ntp true")},
        {FindingId::clockAhead, "clock-ahead", Severity::problem,
         Text("L'orologio del computer segna il %1, troppo lontano nel futuro per questo programma "
              "del %2.",
              "The computer's clock says %1, too far in the future for this program of %2."),
         Text("Regolare la data: sudo timedatectl set-ntp true",
              "Set the date: sudo timedatectl set-ntp true")},
        {FindingId::authorityReachable, "authority-reachable", Severity::ok,
         Text("L'autorità di certificazione è raggiungibile: %1",
              "The certification authority can be reached: %1"),
         std::nullopt},
        {FindingId::authorityMisconfigured, "authority-misconfigured", Severity::problem,
         Text("L'autorità %1 non è indicata bene. %2",
              "The authority %1 is not described well. %2"),
         Text("Correggere --ca o il file delle autorità.",
              "Correct --ca or the file of authorities.")},
        {FindingId::authorityUnreachable, "authority-unreachable", Severity::problem,
         Text("L'autorità %1 non è raggiungibile. %2", "The authority %1 cannot be reached. %2"),
         Text("Controllare l'indirizzo, la rete e il proxy, poi riprovare.",
              "Check the address, the network and the proxy, then try again.")},
        {FindingId::authorityUntrusted, "authority-untrusted", Severity::problem,
         Text("Il server dell'autorità %1 non dimostra di essere il suo. %2",
              "The server of the authority %1 does not prove to be hers. %2"),
         Text("Chiedere all'autorità il certificato radice giusto e indicarlo con \"anchors\"; non "
              "aggirare il controllo.",
              "Get the right root certificate from the authority and name it with \"anchors\"; do "
              "not go around the check.")},
    };
}

}  // namespace

const std::vector<FindingRow>& findingRows()
{
    static const std::vector<FindingRow> rows = [] {
        std::vector<FindingRow> all;
        for (const auto& part :
             {serviceRows(), tableAndModuleRows(), readerRows(), tokenRows(), machineRows()}) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }();
    return rows;
}

const FindingRow& rowOf(FindingId id)
{
    const std::vector<FindingRow>& rows = findingRows();
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [id](const FindingRow& row) { return row.id == id; });
    return found != rows.end() ? *found : rowOf(FindingId::cardLibraryFault);
}

Finding::Finding(FindingId finding, QString about, QString more)
    : id(finding)
    , severity(rowOf(finding).severity)
    , subject(std::move(about))
    , detail(std::move(more))
{
}

QString Finding::what() const
{
    return filled(rowOf(id).what, *this);
}

QString Finding::whatOfSubject() const
{
    QString text = rowOf(id).what;
    const QString subjectFirst = QStringLiteral("%1: ");
    if (text.startsWith(subjectFirst)) {
        text.remove(0, subjectFirst.size());
        text[0] = text.at(0).toUpper();
    }
    return filled(text, *this);
}

QString Finding::cure() const
{
    const std::optional<Text>& cure = rowOf(id).cure;
    return cure ? filled(*cure, *this) : QString();
}

}  // namespace console
