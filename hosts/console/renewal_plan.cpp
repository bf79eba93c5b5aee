#include "hosts/console/renewal_plan.h"

#include "hosts/console/authority_way.h"
#include "hosts/console/language.h"
#include "hosts/console/text_layout.h"

#include <QJsonArray>

#include <algorithm>

namespace console {

namespace {

struct StepRow {
    PlanStep step;
    const char* name;
    // %1: the authority's program.
    Text text;
};

const StepRow& rowOf(PlanStep step)
{
    static const std::vector<StepRow> rows = {
        {PlanStep::makeKeyPair, "make-key-pair",
         Text("sulla carta si genera una nuova coppia di chiavi",
              "a new key pair is made on the card")},
        {PlanStep::useWaitingKey, "use-waiting-key",
         Text("si usa la nuova chiave che attende sulla carta",
              "the new key that waits on the card is used")},
        {PlanStep::makeRequest, "make-request",
         Text("la carta firma la richiesta di certificato",
              "the card signs the certificate request")},
        {PlanStep::useKeptCertificate, "use-kept-certificate",
         Text("si usa il certificato che era già arrivato",
              "the certificate that came earlier is used")},
        {PlanStep::readIssuedFile, "read-issued-file",
         Text("il certificato si legge dal file di --issued",
              "the certificate is read from the file of --issued")},
        {PlanStep::askAuthority, "ask-authority",
         Text("la richiesta va all'autorità (%1)", "the request goes to the authority (%1)")},
        {PlanStep::fetchByHand, "fetch-by-hand",
         Text("il certificato lo si ottiene dall'autorità",
              "you fetch the certificate from the authority")},
        {PlanStep::writeCertificate, "write-certificate",
         Text("il nuovo certificato viene scritto sulla carta",
              "the new certificate is written onto the card")},
        {PlanStep::removeReplaced, "remove-replaced",
         Text("il vecchio certificato viene tolto, con le sue chiavi",
              "the old certificate is removed, with its keys")},
    };
    return *std::find_if(rows.begin(), rows.end(),
                         [step](const StepRow& row) { return row.step == step; });
}

PlanStep sourceOf(const Arguments& arguments)
{
    if (!arguments.issuedFile.isEmpty()) {
        return PlanStep::readIssuedFile;
    }
    return arguments.authority ? PlanStep::askAuthority : PlanStep::fetchByHand;
}

std::vector<PlanStep> stepsOf(const CertificateEntry& entry, bool isKept,
                              const Arguments& arguments)
{
    if (entry.verdict == Verdict::recovery) {
        // The certificate that belongs to the key exists: no authority is asked for another one.
        const bool isFile = !arguments.issuedFile.isEmpty();
        return {isKept   ? PlanStep::useKeptCertificate
                : isFile ? PlanStep::readIssuedFile
                         : PlanStep::fetchByHand,
                PlanStep::writeCertificate};
    }
    if (isKept) {
        return {PlanStep::useKeptCertificate, PlanStep::writeCertificate, PlanStep::removeReplaced};
    }
    std::vector<PlanStep> steps = {entry.pendingKey.isEmpty() ? PlanStep::makeKeyPair
                                                              : PlanStep::useWaitingKey,
                                   PlanStep::makeRequest};
    if (arguments.command != Command::request) {
        steps.insert(steps.end(),
                     {sourceOf(arguments), PlanStep::writeCertificate, PlanStep::removeReplaced});
    }
    return steps;
}

}  // namespace

RenewalPlan renewalPlan(const CertificateEntry& entry, bool isKept, const Arguments& arguments)
{
    return {entry, stepsOf(entry, isKept, arguments), authorityName(arguments)};
}

QString planScreen(const RenewalPlan& plan)
{
    const CertificateEntry& entry = plan.entry;
    QStringList lines = {
        entry.verdict == Verdict::recovery
            ? wrapped(Text("Per completare il numero %1 (%2):", "To finish number %1 (%2):")
                          .arg(QString::number(entry.number), entry.kindName))
            : wrapped(Text("Per rinnovare il numero %1 (%2, %3):", "To renew number %1 (%2, %3):")
                          .arg(QString::number(entry.number), entry.kindName, entry.holder))};
    for (const PlanStep step : plan.steps) {
        QString text = rowOf(step).text;
        text.replace(QLatin1String("%1"), printable(plan.authority));
        lines.append(wrapped(QStringLiteral("- ") + text, 2));
    }
    return lines.join(QLatin1Char('\n'));
}

QJsonObject planObject(const RenewalPlan& plan)
{
    QJsonArray steps;
    for (const PlanStep step : plan.steps) {
        steps.append(QString::fromLatin1(rowOf(step).name));
    }
    return {{QStringLiteral("certificate"), plan.entry.number}, {QStringLiteral("steps"), steps}};
}

}  // namespace console
