#include "cardlibs/state/card_error.h"

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <cstdio>

namespace cardlibs::state {
namespace {

const CatalogueEntry* findEntry(unsigned long number)
{
    const std::vector<CatalogueEntry>& catalogue = errorCatalogue();
    const auto found = std::lower_bound(
        catalogue.begin(), catalogue.end(), number,
        [](const CatalogueEntry& entry, unsigned long sought) { return entry.number < sought; });
    if (found == catalogue.end() || found->number != number)
        return nullptr;
    return &*found;
}

std::string unlistedText(unsigned long number)
{
    char text[80] = {};
    const int written = std::snprintf(text, sizeof text,
                                      "Errore 0x%lX della carta: reinserirla e riprovare.", number);
    return written > 0 ? text : "Errore della carta: reinserirla e riprovare.";
}

std::string printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
    return text;
}

}  // namespace

const std::vector<CatalogueEntry>& errorCatalogue()
{
    static const std::vector<CatalogueEntry> catalogue = {
        {CKR_HOST_MEMORY, "CKR_HOST_MEMORY",
         "Memoria del computer insufficiente: chiudere altri programmi e riprovare."},
        {CKR_SLOT_ID_INVALID, "CKR_SLOT_ID_INVALID",
         "Il lettore non e' piu' disponibile: ricollegarlo e riprovare."},
        {CKR_GENERAL_ERROR, "CKR_GENERAL_ERROR",
         "Il modulo PKCS#11 non risponde come dovrebbe: reinserire la carta, verificare la "
         "configurazione del modulo e riprovare."},
        {CKR_FUNCTION_FAILED, "CKR_FUNCTION_FAILED",
         "La carta non ha eseguito il comando: reinserirla e riprovare."},
        {CKR_ATTRIBUTE_TYPE_INVALID, "CKR_ATTRIBUTE_TYPE_INVALID",
         "La carta non conosce un dato della nuova chiave o del certificato: rivolgersi "
         "all'assistenza."},
        {CKR_ATTRIBUTE_VALUE_INVALID, "CKR_ATTRIBUTE_VALUE_INVALID",
         "La carta rifiuta un dato della nuova chiave o del certificato: rivolgersi "
         "all'assistenza."},
        {CKR_DEVICE_ERROR, "CKR_DEVICE_ERROR",
         "Errore di comunicazione con la carta: pulire il chip, reinserirla e riprovare."},
        {CKR_DEVICE_MEMORY, "CKR_DEVICE_MEMORY",
         "Memoria della carta insufficiente: eliminare certificati non piu' usati oppure chiedere "
         "una nuova carta. Nulla e' stato modificato."},
        {CKR_DEVICE_REMOVED, "CKR_DEVICE_REMOVED",
         "La carta e' stata estratta: reinserirla e riprovare."},
        {CKR_FUNCTION_NOT_SUPPORTED, "CKR_FUNCTION_NOT_SUPPORTED",
         "Il modulo PKCS#11 non offre questa funzione con la carta inserita: rivolgersi "
         "all'assistenza."},
        {CKR_KEY_SIZE_RANGE, "CKR_KEY_SIZE_RANGE",
         "La carta non genera chiavi della lunghezza richiesta: chiedere una nuova carta."},
        {CKR_MECHANISM_INVALID, "CKR_MECHANISM_INVALID",
         "La carta non offre l'algoritmo necessario: chiedere una nuova carta."},
        {CKR_PIN_INCORRECT, "CKR_PIN_INCORRECT",
         "PIN errato: ridigitarlo con attenzione, dopo pochi tentativi errati la carta si blocca."},
        {CKR_PIN_INVALID, "CKR_PIN_INVALID",
         "Il PIN contiene caratteri non ammessi: digitare le sole cifre del PIN."},
        {CKR_PIN_LEN_RANGE, "CKR_PIN_LEN_RANGE",
         "Lunghezza del PIN non ammessa: digitare tutte le cifre del PIN."},
        {CKR_PIN_EXPIRED, "CKR_PIN_EXPIRED",
         "Il PIN e' scaduto: cambiarlo con il programma della carta e riprovare."},
        {CKR_PIN_LOCKED, "CKR_PIN_LOCKED",
         "Il PIN e' bloccato: sbloccarlo con il codice PUK e riprovare."},
        {CKR_SESSION_HANDLE_INVALID, "CKR_SESSION_HANDLE_INVALID",
         "La sessione con la carta si e' interrotta: reinserire la carta e riprovare."},
        {CKR_SESSION_READ_ONLY, "CKR_SESSION_READ_ONLY",
         "La carta ammette la sola lettura: usare un altro lettore o un'altra carta."},
        {CKR_TEMPLATE_INCOMPLETE, "CKR_TEMPLATE_INCOMPLETE",
         "La carta richiede altri dati per la nuova chiave o il certificato: rivolgersi "
         "all'assistenza."},
        {CKR_TEMPLATE_INCONSISTENT, "CKR_TEMPLATE_INCONSISTENT",
         "La carta rifiuta l'insieme dei dati della nuova chiave o del certificato: rivolgersi "
         "all'assistenza."},
        {CKR_TOKEN_NOT_PRESENT, "CKR_TOKEN_NOT_PRESENT",
         "Nessuna carta nel lettore: inserirla e riprovare."},
        {CKR_TOKEN_NOT_RECOGNIZED, "CKR_TOKEN_NOT_RECOGNIZED",
         "Carta non riconosciuta: verificare che sia inserita nel verso giusto e riprovare."},
        {CKR_TOKEN_WRITE_PROTECTED, "CKR_TOKEN_WRITE_PROTECTED",
         "La carta e' protetta da scrittura: togliere la protezione o usare un'altra carta."},
        {CKR_USER_ALREADY_LOGGED_IN, "CKR_USER_ALREADY_LOGGED_IN",
         "Un altro accesso alla carta e' gia' aperto e il PIN non e' stato verificato: chiudere "
         "gli "
         "altri programmi che usano la carta e riprovare."},
        {CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN",
         "La carta ha chiuso l'accesso: ridigitare il PIN e riprovare."},
        {CKR_USER_PIN_NOT_INITIALIZED, "CKR_USER_PIN_NOT_INITIALIZED",
         "Il PIN della carta non e' ancora attivo: attivare la carta e riprovare."},
        {CKR_USER_ANOTHER_ALREADY_LOGGED_IN, "CKR_USER_ANOTHER_ALREADY_LOGGED_IN",
         "Un altro utente ha gia' accesso alla carta: chiudere gli altri programmi e riprovare."},
        {CKR_CRYPTOKI_NOT_INITIALIZED, "CKR_CRYPTOKI_NOT_INITIALIZED",
         "Il modulo PKCS#11 e' stato chiuso da un altro programma: riprovare."},
        {fault::unknownCard, "unknownCard",
         "Carta non presente nella tabella ATR-renew.ini: aggiungere la voce per questa carta o "
         "usarne un'altra."},
        {fault::noReader, "noReader",
         "Nessun lettore trovato: collegare il lettore, inserire la carta e riprovare."},
        {fault::readerNotFound, "readerNotFound",
         "Lettore non trovato: ricollegarlo, oppure sceglierne un altro dall'elenco."},
        {fault::readerAmbiguous, "readerAmbiguous",
         "Piu' lettori hanno lo stesso nome: lasciarne collegato uno solo e riprovare."},
        {fault::tableUnreadable, "tableUnreadable",
         "Tabella delle carte non leggibile: ripristinare il file ATR-renew.ini."},
        {fault::moduleNotLoaded, "moduleNotLoaded",
         "Modulo PKCS#11 della carta non caricato: installarlo o correggere la tabella "
         "ATR-renew.ini."},
        {fault::noOpenSession, "noOpenSession",
         "Nessuna sessione aperta con la carta: scegliere il lettore e riprovare."},
        {fault::invalidArgument, "invalidArgument",
         "Dato mancante o non valido nella chiamata: correggere il programma chiamante."},
        {fault::noReaderChosen, "noReaderChosen",
         "Nessun lettore scelto: cercare prima le etichette libere sulla carta."},
        {fault::certificateNotOnCard, "certificateNotOnCard",
         "Il certificato da rinnovare non e' sulla carta: rileggere i certificati e sceglierne uno "
         "dall'elenco."},
        {fault::certificateAmbiguous, "certificateAmbiguous",
         "Piu' certificati della carta hanno lo stesso identificativo: rivolgersi all'assistenza."},
        {fault::certificateOfOtherKind, "certificateOfOtherKind",
         "Il certificato scelto e' di un altro tipo: rileggere i certificati e ripetere la "
         "scelta."},
        {fault::subjectDiffers, "subjectDiffers",
         "Il titolare indicato non e' quello del certificato sulla carta: rileggere i certificati "
         "e "
         "riprovare."},
        {fault::keyNotSupported, "keyNotSupported",
         "Tipo o lunghezza della chiave non previsti (RSA da 2048 bit, EC P-256 e P-384): chiedere "
         "una nuova carta."},
        {fault::requestNotValid, "requestNotValid",
         "La richiesta firmata dalla carta non supera la verifica: reinserire la carta e "
         "riprovare."},
        {fault::requestTooLong, "requestTooLong",
         "La richiesta supera la lunghezza prevista: rivolgersi all'assistenza."},
        {fault::issuedUnreadable, "issuedUnreadable",
         "Il certificato ricevuto non e' leggibile: scaricarlo di nuovo (PEM, DER o PKCS#7)."},
        {fault::issuedForOtherKey, "issuedForOtherKey",
         "Il certificato ricevuto non corrisponde a una chiave in attesa su questa carta: "
         "verificare "
         "la carta inserita o ripetere la richiesta. Nulla e' stato modificato."},
        {fault::issuedForOtherHolder, "issuedForOtherHolder",
         "Il certificato ricevuto e' intestato a un altro titolare: rivolgersi all'ente emittente. "
         "Nulla e' stato modificato."},
        {fault::issuedExpired, "issuedExpired",
         "Il certificato ricevuto e' scaduto: verificare la data del computer o chiederne un "
         "altro."},
        {fault::issuedNotYetValid, "issuedNotYetValid",
         "Il certificato ricevuto non e' ancora valido: verificare la data del computer o "
         "riprovare "
         "piu' tardi."},
        {fault::issuedTooLarge, "issuedTooLarge",
         "Il nuovo certificato non entra nella carta: chiedere una nuova carta. Nulla e' stato "
         "modificato."},
        {fault::issuedOfOtherKind, "issuedOfOtherKind",
         "Il certificato ricevuto non ha l'uso previsto per questa chiave: rivolgersi all'ente "
         "emittente. Nulla e' stato modificato."},
        {fault::replacesOther, "replacesOther",
         "Il certificato ricevuto ne sostituisce un altro, non quello scelto: scegliere il "
         "certificato giusto e ripetere. Nulla e' stato modificato."},
        {fault::linkAmbiguous, "linkAmbiguous",
         "Non si puo' stabilire quale certificato viene sostituito: rivolgersi all'assistenza. "
         "Nulla "
         "e' stato modificato."},
        {fault::writtenDiffers, "writtenDiffers",
         "Il certificato riletto dalla carta differisce da quello scritto: ripetere "
         "l'installazione. Quanto era sulla carta e' ancora al suo posto."},
        {fault::keyDoesNotSign, "keyDoesNotSign",
         "La nuova chiave non supera la prova di firma: ripetere l'installazione. Quanto era sulla "
         "carta e' ancora al suo posto."},
        {fault::certificatesLeftOut, "certificatesLeftOut",
         "Certificati non mostrati, per spazio o perche' la chiave non si riconosce: rinnovare "
         "prima gli altri."},
        {fault::serviceStopped, "serviceStopped",
         "Il servizio delle smart card (pcscd) non e' attivo: avviarlo, collegare il lettore e "
         "riprovare."},
        {fault::serviceRefused, "serviceRefused",
         "Il servizio delle smart card (pcscd) nega l'accesso a questo utente: farsi autorizzare "
         "dall'amministratore e riprovare."},
        {fault::serviceFailed, "serviceFailed",
         "Il servizio delle smart card (pcscd) non risponde come dovrebbe: riavviarlo e "
         "riprovare."},
        {fault::slotNotFound, "slotNotFound",
         "Il modulo PKCS#11 non vede questo lettore o non riconosce la carta: reinserirla, "
         "ricollegare il lettore e riprovare."},
        {fault::slotAmbiguous, "slotAmbiguous",
         "La carta ha piu' PIN, ciascuno con la sua etichetta: scegliere quella giusta con la "
         "chiave "
         "token_label nella tabella ATR-renew.ini."},
        {fault::issuedSeveral, "issuedSeveral",
         "Il file contiene piu' certificati per chiavi in attesa su questa carta: installarli uno "
         "alla volta, ciascuno dal suo file. Nulla e' stato modificato."},
        {fault::moduleNameTooLong, "moduleNameTooLong",
         "Il nome del file del modulo PKCS#11 supera 63 caratteri: indicare nella tabella "
         "ATR-renew.ini un collegamento con un nome piu' corto."},
        {fault::internal, "internal",
         "Errore interno delle librerie della carta: riprovare, poi rivolgersi all'assistenza."},
    };
    return catalogue;
}

CardError::CardError(unsigned long number, const std::string& detail)
    : m_number(number)
{
    const CatalogueEntry* entry = findEntry(number);
    m_text = entry != nullptr ? entry->text : unlistedText(number);
    // Shorter than three characters a detail tells nothing.
    constexpr std::size_t frame = 3;
    if (!detail.empty() && m_text.size() + frame + 3 <= longestErrorText) {
        const std::size_t room = longestErrorText - frame - m_text.size();
        m_text += " (" + printable(detail.substr(0, room)) + ")";
    }
}

CardError::~CardError() = default;

const char* CardError::what() const noexcept
{
    return m_text.c_str();
}

CardError CardError::withNames(unsigned long number, const std::vector<std::string>& names)
{
    for (std::size_t shown = names.size(); shown > 0; --shown) {
        std::string detail;
        for (std::size_t i = 0; i < shown; ++i)
            detail += (i == 0 ? "" : ", ") + names[i];
        if (shown < names.size())
            detail += " e altri " + std::to_string(names.size() - shown);
        CardError error(number, detail);
        if (error.m_text.find(printable(detail) + ")") != std::string::npos)
            return error;
    }
    return CardError(number);
}

CardError CardError::withText(unsigned long number, const std::string& text)
{
    CardError error(number);
    error.m_text = printable(text.substr(0, longestErrorText));
    return error;
}

}  // namespace cardlibs::state
