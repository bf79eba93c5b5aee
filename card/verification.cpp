#include "card/verification.h"

#include "session/last_error.h"

#include <QStringList>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace card {

namespace {

using session::LineEnd;

constexpr int atrNotInTable = 0xBFC;
constexpr int notActivatedState = 1;
constexpr int unknownState = -1;

struct LogLine {
    QString text;
    LineEnd end;
    bool stamped;
};

// What is said of serial numbers with a certain beginning, and what follows from it.
struct SerialNumberRule {
    QString prefix;
    std::vector<LogLine> lines;
    int result;
    // Whether the card session is closed before the lines are written.
    bool closesFirst;
};

const std::vector<SerialNumberRule>& serialNumberRules()
{
    static const QString newCard =
        QStringLiteral("Si prega di rivolgersi al piu' vicino ufficio di Registrazione per "
                       "richiedere una nuova Smart Card.");
    static const std::vector<SerialNumberRule> rules{
        {QStringLiteral("1201"),
         {{QStringLiteral("N.B: le Smart Card con il numero di serie che comincia con 1201...non "
                          "sono piu' supportate"),
           LineEnd::flush, true},
          {newCard, LineEnd::flush, false}},
         card_verification::noLongerSupported,
         true},
        {QStringLiteral("1202"),
         {{QStringLiteral("N.B: le Smart Card con il numero di serie che comincia con 1202..."),
           LineEnd::flush, true},
          {QStringLiteral("non sono piu' rinnovabili") + newCard, LineEnd::flush, false}},
         card_verification::noLongerRenewable,
         true},
        {QStringLiteral("1205"),
         {{QStringLiteral(
               "N.B: Per le Smart Card con il numero di serie che comincia con 1205...") +
               QStringLiteral("Il rinnovo deve necessariamente rinnovare chiavi a 2048 bit"),
           LineEnd::none, true}},
         card_verification::accepted,
         false},
    };
    return rules;
}

template <std::size_t size>
void clear(char (&text)[size])
{
    std::memset(text, 0, size);
}

template <std::size_t size>
QString textOf(const char (&text)[size])
{
    return QString::fromLatin1(text, static_cast<int>(strnlen(text, size)));
}

class Verification {
public:
    Verification(CardAddress address, const CardIdentity& identity, const CardFamily& family,
                 session::Log& log)
        : m_address(std::move(address))
        , m_identity(identity)
        , m_family(family)
        , m_log(log)
    {
    }

    int run()
    {
        const int found = identifyModule();
        if (found != card_verification::accepted) {
            return found;
        }
        noteFamily(m_family);
        if (!open()) {
            return card_verification::noSession;
        }
        const int active = checkActivation();
        return active == card_verification::accepted ? checkIdentity() : active;
    }

private:
    int identifyModule()
    {
        m_log.line(QStringLiteral("Tentativo di comunicazione con la Smart Card..."),
                   LineEnd::none);
        if (findModule(m_address, m_identity.module) != 0) {
            m_log.line(QStringLiteral("Fallito"), LineEnd::flush);
            return lastErrorNumber() == atrNotInTable ? card_verification::unknownAtr
                                                      : card_verification::noModule;
        }
        m_log.line(QStringLiteral("OK"), LineEnd::flush);
        return card_verification::accepted;
    }

    // A card that was just inserted may need a second try.
    bool open()
    {
        if (openSession(m_address) == 0) {
            return true;
        }
        closeSession();
        if (openSession(m_address) == 0) {
            return true;
        }
        m_log.line(
            QStringLiteral("Errore nell'Inizializzazione di una sessione con la Smart Card "),
            LineEnd::flush);
        m_log.line(QStringLiteral("Ricordiamo che per Smart Card o Token USB con numero di serie "
                                  "1401.., 1402.., 1501..."),
                   LineEnd::flush);
        m_log.line(QStringLiteral("e' necessario installare il software \"CardOS API\" (versione "
                                  "2.4.1.5 o superiore)."),
                   LineEnd::flush);
        m_log.line(
            QStringLiteral("Errore nell'Inizializzazione di una sessione con la Smart Card."),
            LineEnd::blankLine);
        return false;
    }

    int checkActivation()
    {
        const int state = activationState();
        if (state == notActivatedState) {
            closeSession();
            m_log.line(QStringLiteral("Smart Card NON ATTIVA"), LineEnd::flush);
            m_log.plain(QStringLiteral("e' necessario attivare la Smart Card prima di procedere "
                                       "con il rinnovo"),
                        LineEnd::flush);
            m_log.line(QStringLiteral("Controllo attivazione: Smart Card NON ATTIVA."),
                       LineEnd::blankLine);
            return card_verification::notActivated;
        }
        if (state == unknownState) {
            const QString text = session::lastCardError().latin1();
            closeSession();
            m_log.line(QStringLiteral("Impossibile effettuare l'operazione Verifica Smart Card! ") +
                           text,
                       LineEnd::none);
            m_log.line(QStringLiteral("mvCNSToBeActivatedLite (controllo attivazione) errore: ") +
                           text,
                       LineEnd::blankLine);
            return card_verification::activationUnknown;
        }
        return card_verification::accepted;
    }

    int checkIdentity()
    {
        const int result = readIdentity(m_identity.slotDescription, m_identity.manufacturerId,
                                        m_identity.model, m_identity.serialNumber);
        if (result != 0) {
            closeSession();
            logUnsupported();
            return card_verification::noLongerRenewable;
        }
        const QString serialNumber = textOf(m_identity.serialNumber);
        if (serialNumber.isEmpty()) {
            closeSession();
            m_log.line(
                QStringLiteral("Non e' stato possibile determinare il seriale della Smart Card "
                               "inserita.\nRiprovare la procedura di rinnovo scollegando e "
                               "ricollegando successivamente il lettore di Smart Card."),
                LineEnd::flush);
            return card_verification::serialNumberUnknown;
        }
        return judge(serialNumber);
    }

    int judge(const QString& serialNumber)
    {
        const auto& rules = serialNumberRules();
        const auto rule =
            std::find_if(rules.cbegin(), rules.cend(), [&](const SerialNumberRule& r) {
                return serialNumber.startsWith(r.prefix);
            });
        if (rule == rules.cend()) {
            closeSession();
            return card_verification::accepted;
        }
        if (rule->closesFirst) {
            closeSession();
        }
        for (const LogLine& line : rule->lines) {
            line.stamped ? m_log.line(line.text, line.end) : m_log.plain(line.text, line.end);
        }
        if (!rule->closesFirst) {
            closeSession();
        }
        return rule->result;
    }

    void logUnsupported()
    {
        const QString message =
            QStringLiteral("Funzionalita' di Rinnovo non supportata per la SmartCard inserita");
        m_log.line(message + QStringLiteral(".\n"), LineEnd::none);
        m_log.line(message + QStringLiteral(": "), LineEnd::newline);
        m_log.line(QStringLiteral("Slot Description: ") + textOf(m_identity.slotDescription),
                   LineEnd::newline);
        m_log.line(QStringLiteral("Manufacturer ID: ") + textOf(m_identity.manufacturerId),
                   LineEnd::newline);
        m_log.line(QStringLiteral("Model: ") + textOf(m_identity.model), LineEnd::newline);
        m_log.line(QStringLiteral("Serial Number: ") + textOf(m_identity.serialNumber),
                   LineEnd::blankLine);
    }

    CardAddress m_address;
    const CardIdentity& m_identity;
    const CardFamily& m_family;
    session::Log& m_log;
};

}  // namespace

int verifyCard(const RenewContext& context, const QString& atrTable, const CardIdentity& identity,
               const CardFamily& family, session::Log& log)
{
    clear(identity.module);
    clear(identity.serialNumber);
    clear(identity.slotDescription);
    clear(identity.manufacturerId);
    clear(identity.model);

    const QString reader = context.value(renew_context::settingsRow).value(renew_context::reader);
    if (reader.isEmpty()) {
        log.line(QStringLiteral("Nessun lettore settato...\n"), LineEnd::none);
        return card_verification::noReader;
    }
    return Verification(addressOf(reader, atrTable), identity, family, log).run();
}

}  // namespace card
