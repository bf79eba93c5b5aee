#include "inventory/inventory.h"

#include "session/last_error.h"

#include <algorithm>
#include <limits>

namespace inventory {

namespace {

using session::LineEnd;

constexpr int pinLength = 8;

int sumOf(int a, int b, int c)
{
    const qint64 sum = static_cast<qint64>(a) + b + c;
    return static_cast<int>(std::min<qint64>(sum, std::numeric_limits<int>::max()));
}

class Inventory {
public:
    Inventory(RenewContext& context, const CardContents& contents, const InventoryOutcome& outcome,
              const EligibilityChecks& checks, session::Log& log)
        : m_context(context)
        , m_contents(contents)
        , m_outcome(outcome)
        , m_checks(checks)
        , m_log(log)
    {
    }

    int run()
    {
        m_log.line(QStringLiteral("e' in corso la verifica dei certificati presenti nella Smart "
                                  "Card."),
                   LineEnd::flush);
        m_log.plain(QStringLiteral("L'operazione richiede alcuni secondi. Attendere..."),
                    LineEnd::flush);
        const RenewRecord settings = m_context.value(renew_context::settingsRow);
        const QString pin = settings.value(renew_context::pin);
        const QString reader = settings.value(renew_context::reader);
        if (pin.size() != pinLength) {
            m_log.line(QStringLiteral("Pin non settato correttamente"), LineEnd::flush);
            return inventory_result::pinLength;
        }
        const int read = readContents(reader, pin);
        if (read != inventory_result::completed) {
            return read;
        }
        if (m_contents.labels.praText().isEmpty() && !findLabels(reader, pin)) {
            return inventory_result::noFreeKeyLabel;
        }
        countCertificates();
        countRows();
        if (m_outcome.rows == 0) {
            fail(inventory_error::nothingOnCard);
            m_log.line(QStringLiteral("Nessuna riga nella Tabella Certificati"), LineEnd::newline);
            return inventory_result::nothingOnCard;
        }
        runChecks();
        return conclude();
    }

private:
    void fail(int code)
    {
        m_outcome.errorOccurred = 1;
        m_outcome.errorCode = code;
    }

    int readContents(const QString& reader, const QString& pin)
    {
        m_log.line(QStringLiteral("Inizio Funzione: rinnovo_Card_readCerts-- "), LineEnd::newline);
        const int result = readCard(m_contents, reader, pin);
        m_log.line(QStringLiteral("Fine Funzione: rinnovo_Card_readCerts-- "), LineEnd::newline);
        m_log.line(QStringLiteral("ReturnCode = ") + QString::number(result), LineEnd::blankLine);
        logContents();

        if (result == readCompleted || result == readCompletedToo) {
            return inventory_result::completed;
        }
        if (result == cardNotSupported) {
            m_outcome.errorMessage = QStringLiteral("Carta NON supportata");
            fail(inventory_error::cardNotSupported);
            return inventory_result::cardNotSupported;
        }
        m_outcome.errorMessage = session::lastCardError().utf8();
        fail(inventory_error::cardError);
        m_log.line(QStringLiteral("Si e' verificato il seguente errore: ") + m_outcome.errorMessage,
                   LineEnd::newline);
        return inventory_result::cardError;
    }

    void logContents()
    {
        m_log.line(QStringLiteral("Situazione oggetti nella SmartCard:"), LineEnd::newline);
        m_log.line(QStringLiteral("pending_CNS: ") + QString::number(m_contents.pendingCns),
                   LineEnd::newline);
        m_log.line(QStringLiteral("pendingKey_PRA: ") + QString::number(m_contents.pendingPra),
                   LineEnd::newline);
        m_log.line(QStringLiteral("pendingKey_AUT: ") + QString::number(m_contents.pendingAut),
                   LineEnd::newline);
        m_log.line(QStringLiteral("NUOVO CKAID PRA: ") + m_contents.labels.praText(),
                   LineEnd::newline);
        m_log.line(QStringLiteral("NUOVO CKAID AUT: ") + m_contents.labels.autText(),
                   LineEnd::blankLine);
        m_log.flush();
    }

    bool findLabels(const QString& reader, const QString& pin)
    {
        m_log.line(QStringLiteral("--Ricalcolo dei FREE CKAID:"), LineEnd::newline);
        m_log.line(QStringLiteral("Reader = ") + reader, LineEnd::newline);
        m_log.line(QStringLiteral("Funzione rinnovo_Card_findFreeCKAID: INIZIO"), LineEnd::newline);
        const int result = findFreeLabels(m_contents.labels, reader, pin);
        m_log.line(QStringLiteral("--NUOVO CKAID PRA--: ") + m_contents.labels.praText(),
                   LineEnd::newline);
        m_log.line(QStringLiteral("--NUOVO CKAID AUT--: ") + m_contents.labels.autText(),
                   LineEnd::blankLine);
        m_log.line(QStringLiteral("Funzione rinnovo_Card_findFreeCKAID: FINE - ReturnCode= ") +
                       QString::number(result),
                   LineEnd::newline);
        if (result == 0 && !m_contents.labels.praText().isEmpty()) {
            return true;
        }
        m_log.line(QStringLiteral("Un momentaneo problema tecnico impedisce il rinnovo del "
                                  "certificato."),
                   LineEnd::flush);
        m_log.plain(QStringLiteral("Attendere qualche istante, quindi riavviarla per riprendere il "
                                   "rinnovo."),
                    LineEnd::none);
        return false;
    }

    void countCertificates()
    {
        m_outcome.certificatesCns = statedCount(m_contents.cnsStore[0]);
        m_outcome.certificatesPra = statedCount(m_contents.praStore[0]);
        m_outcome.certificatesAut = statedCount(m_contents.autStore[0]);
        m_outcome.certificates =
            sumOf(m_outcome.certificatesCns, m_outcome.certificatesPra, m_outcome.certificatesAut);
        m_log.line(QStringLiteral("Certificati Letti:"), LineEnd::newline);
        m_log.line(QStringLiteral("CNS: ") + QString::number(m_outcome.certificatesCns),
                   LineEnd::newline);
        m_log.line(QStringLiteral("PRA: ") + QString::number(m_outcome.certificatesPra),
                   LineEnd::newline);
        m_log.line(QStringLiteral("AUT: ") + QString::number(m_outcome.certificatesAut),
                   LineEnd::newline);
        m_log.line(QStringLiteral("Totale Certificati letti dalla SC: ") +
                       QString::number(m_outcome.certificates),
                   LineEnd::blankLine);
    }

    // One row more for all the keys that wait without any certificate of their kind.
    void countRows()
    {
        const bool keyWithoutCertificate =
            (m_contents.pendingCns != 0 && m_outcome.certificatesCns == 0) ||
            (m_contents.pendingPra != 0 && m_outcome.certificatesPra == 0) ||
            (m_contents.pendingAut != 0 && m_outcome.certificatesAut == 0);
        m_outcome.rows = sumOf(m_outcome.certificates, keyWithoutCertificate ? 1 : 0, 0);
        m_log.line(QStringLiteral("Numero di righe nella Tabella Certificati: ") +
                       QString::number(m_outcome.rows),
                   LineEnd::blankLine);
    }

    void runChecks()
    {
        int unused = 0;
        m_checks.cns(&m_context, 0, m_contents.pendingCns, m_outcome.certificatesCns, &unused);
        m_checks.pra(&m_context, m_contents.pendingPra, m_outcome.certificatesPra, &unused);
        m_checks.aut(&m_context, m_contents.pendingAut, m_outcome.certificatesAut, &unused);
    }

    int conclude()
    {
        // A host may have reset the rows while the question of a signature certificate was shown.
        if (m_outcome.rows == 0) {
            if (m_outcome.errorMessage.isEmpty()) {
                m_outcome.errorMessage = session::lastCardError().utf8();
            }
            fail(inventory_error::nothingRenewable);
            m_log.line(QStringLiteral("Nessun certificato rinnovabile: ") + m_outcome.errorMessage,
                       LineEnd::blankLine);
            return inventory_result::nothingRenewable;
        }
        m_outcome.errorOccurred = 0;
        m_outcome.errorCode = inventory_error::none;
        m_outcome.errorMessage = QStringLiteral("");
        m_log.line(QStringLiteral("Lettura certificati e riempimento Tabella Certificati "
                                  "completate."),
                   LineEnd::blankLine);
        return inventory_result::completed;
    }

    RenewContext& m_context;
    const CardContents& m_contents;
    const InventoryOutcome& m_outcome;
    const EligibilityChecks& m_checks;
    session::Log& m_log;
};

}  // namespace

int takeInventory(RenewContext& context, const CardContents& contents,
                  const InventoryOutcome& outcome, const EligibilityChecks& checks,
                  session::Log& log)
{
    return Inventory(context, contents, outcome, checks, log).run();
}

}  // namespace inventory
