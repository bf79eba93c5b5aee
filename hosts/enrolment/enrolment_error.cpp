#include "hosts/enrolment/enrolment_error.h"

#include "hosts/texts/language.h"

#include <utility>

namespace enrolment {

using texts::Text;

namespace {

struct CauseRow {
    Cause cause;
    const char* name;
    Text cure;
};

const CauseRow& rowOf(Cause cause)
{
    static const CauseRow rows[] = {
        {Cause::misconfigured, "misconfigured",
         Text("Correggere la descrizione dell'autorità, poi riprovare.",
              "Correct the description of the authority, then try again.")},
        {Cause::policyUnsupported, "policyUnsupported",
         Text("Chiedere all'autorità quale profilo serve e aggiungerlo alla configurazione.",
              "Ask the authority which profile is needed and add it to the configuration.")},
        {Cause::unreachable, "unreachable",
         Text("Controllare la rete e riprendere più tardi: la richiesta resta valida.",
              "Check the network and resume later: the request stays good.")},
        {Cause::untrusted, "untrusted",
         Text("Non insistere: controllare con l'autorità l'indirizzo e il certificato del server.",
              "Do not insist: check address and certificate of the server with the authority.")},
        {Cause::refused, "refused",
         Text("Rivolgersi all'autorità con il motivo qui sopra.",
              "Turn to the authority with the reason above.")},
        {Cause::unmetDemand, "unmetDemand",
         Text("Chiedere all'autorità un profilo adatto a questa carta.",
              "Ask the authority for a profile that suits this card.")},
        {Cause::badAnswer, "badAnswer",
         Text("Riprendere più tardi; se si ripete, segnalarlo all'autorità.",
              "Resume later; if it happens again, report it to the authority.")},
        {Cause::wrongCertificate, "wrongCertificate",
         Text("Segnalarlo all'autorità. La carta non è stata modificata.",
              "Report it to the authority. The card was not changed.")},
    };
    for (const CauseRow& row : rows) {
        if (row.cause == cause) {
            return row;
        }
    }
    std::terminate();
}

}  // namespace

QString nameOf(Cause cause)
{
    return QString::fromLatin1(rowOf(cause).name);
}

EnrolmentError::EnrolmentError(Cause cause, QString text, QString cure)
    : m_cause(cause)
    , m_text(std::move(text))
    , m_cure(cure.isEmpty() ? rowOf(cause).cure.string() : std::move(cure))
    , m_what((m_text + QLatin1Char(' ') + m_cure).toUtf8())
{
}

}  // namespace enrolment
