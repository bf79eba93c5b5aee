#include "hosts/console/pin_tries.h"

#include "hosts/console/certificate_choice.h"
#include "hosts/console/exit_code.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

namespace console {

namespace {

std::optional<PinTries> triesOf(const QString& reader)
{
    const Diagnosis diagnosis = diagnoseReaders();
    const ReaderDiagnosis* told = diagnosis.find(reader);
    return told != nullptr ? told->token.pinTries : std::nullopt;
}

// The warning is part of the question: standard error may be out of the person's sight.
void requireClearYes(const QString& warning)
{
    const QString question = Text("Usare l'ultimo tentativo?", "Use the last try?");
    if (!mayAsk() || !confirmed(warning + QLatin1Char('\n') + question)) {
        throw Stop(ExitCode::lastTry);
    }
}

}  // namespace

QString pinTriesSentence(std::optional<PinTries> tries)
{
    if (!tries) {
        return Text("I tentativi rimasti per il PIN non sono noti.",
                    "How many tries are left for the PIN is not known.");
    }
    switch (*tries) {
    case PinTries::low:
        return Text("È già stato dato un PIN sbagliato: restano pochi tentativi.",
                    "A wrong PIN was given before: few tries are left.");
    case PinTries::last:
        return Text("Resta un solo tentativo per il PIN: se è sbagliato, la carta si blocca.",
                    "One try is left for the PIN: a wrong one blocks the card.");
    case PinTries::locked:
        return Text("Il PIN è bloccato.", "The PIN is blocked.");
    case PinTries::notLow:
        break;
    }
    return Text("La carta non segnala PIN sbagliati.", "The card reports no wrong PIN.");
}

void checkPinTries(const QString& reader, bool mayUseLastTry)
{
    const std::optional<PinTries> tries = triesOf(reader);
    if (!tries || *tries == PinTries::notLow) {
        return;
    }
    if (*tries == PinTries::locked) {
        throw Stop(ExitCode::pinBlocked);
    }
    const QString warning = wrapped(pinTriesSentence(tries));
    if (*tries == PinTries::last && !mayUseLastTry) {
        requireClearYes(warning);
    } else {
        complain(warning);
    }
}

}  // namespace console
