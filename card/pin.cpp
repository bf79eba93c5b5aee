#include "card/pin.h"

#include "card/integer_question.h"
#include "session/last_error.h"

namespace card {

namespace {

// PKCS#11 return values (PKCS#11 v2.40, section 5.1).
constexpr long pinIncorrect = 0xA0;  // CKR_PIN_INCORRECT
constexpr long pinInvalid = 0xA1;    // CKR_PIN_INVALID
constexpr long pinLocked = 0xA4;     // CKR_PIN_LOCKED

QString loginMessage(const session::CardError& error)
{
    switch (error.number) {
    case pinLocked:
        return QStringLiteral("Il PIN della Smart Card e' bloccato.\n\nUtilizzare la funzione "
                              "\"Sblocco PIN\" di Brisko per sbloccare il PIN");
    case pinIncorrect:
        return QStringLiteral("Il PIN digitato e' errato.\n\nAttenzione: tre tentativi errati "
                              "bloccano il PIN\n\n");
    case pinInvalid:
        return QStringLiteral("PIN SMARTCARD NON VALIDO");
    default:
        return error.latin1();
    }
}

}  // namespace

void setPin(RenewContext& context, const QString& pin)
{
    RenewRecord settings = context.value(renew_context::settingsRow);
    settings.insert(renew_context::pin, pin.isEmpty()
                                            ? ask({QStringLiteral("Inserire un PIN (8 cifre)\n"),
                                                   99'999'999, session::console::Echo::hidden})
                                            : pin);
    context.insert(renew_context::settingsRow, settings);
}

bool verifyPin(const RenewContext& context, const QString& atrTable, const CardFamily& family,
               session::Log& log)
{
    const RenewRecord settings = context.value(renew_context::settingsRow);
    const QString reader = settings.value(renew_context::reader);
    if (reader.isEmpty()) {
        log.line(QStringLiteral("Nessun lettore settato...\n"), session::LineEnd::none);
        return false;
    }
    const QString pin = settings.value(renew_context::pin);
    if (pin.isEmpty()) {
        log.line(QStringLiteral("Nessun PIN settato...\n"), session::LineEnd::none);
        return false;
    }
    CardAddress address = addressOf(reader, atrTable);
    if (openSession(address) != 0) {
        closeSession();
        return false;
    }
    noteFamily(family);
    const bool accepted = login(pin) == 0;
    if (!accepted) {
        const QString message = loginMessage(session::lastCardError());
        log.line(message, session::LineEnd::flush);
        log.line(QStringLiteral("Errore nella Login con la Smart Card: ") + message,
                 session::LineEnd::blankLine);
    }
    closeSession();
    return accepted;
}

}  // namespace card
