#include "eligibility/signature_certificate.h"

namespace eligibility {

namespace {

namespace names = renew_context;

// Fields of a descriptor that has its own field for the pending key, and of one in which the fiscal
// code may stand in its place.
constexpr int completeFieldCount = 11;
constexpr int shortFieldCount = 10;

// The registration office within an IUT: six digits from position 4.
QString officeOf(const QString& iut)
{
    return iut.mid(4, 6);
}

}  // namespace

QString signaturePendingKey(const Candidate& candidate)
{
    const int fields = candidate.descriptor.fieldCount();
    if (fields < completeFieldCount && candidate.surroundings.spaceMarkerPresent()) {
        return candidate.pendingLabel;
    }
    return fields >= shortFieldCount ? candidate.descriptor.field(signaturePendingKeyField)
                                     : QString();
}

QString usableSignaturePendingKey(const Candidate& candidate)
{
    const QString label = signaturePendingKey(candidate);
    return label.contains(QStringLiteral("DS"), Qt::CaseInsensitive) ? label : QString();
}

void decideLimitationOfUse(Candidate& candidate)
{
    const auto& descriptor = candidate.descriptor;
    const bool signature = descriptor.policy() == names::signaturePolicy ||
                           descriptor.policy() == names::limitedSignaturePolicy;
    const bool limited = descriptor.field(signatureExplicitTextField)
                             .contains(QStringLiteral("Uso limitato alla firma di documenti "
                                                      "informatici dell'Organizzazione indicata "
                                                      "nel campo Organization del certificato per "
                                                      "l'esercizio delle funzioni relative al "
                                                      "ruolo ricoperto dal Titolare"),
                                       Qt::CaseInsensitive);
    if (!signature || !limited) {
        return;
    }
    const bool removed = officeOf(descriptor.iut()) == QStringLiteral("500129") &&
                         candidate.surroundings.limitationRemoved();
    candidate.policy = removed ? names::signaturePolicy : names::limitedSignaturePolicy;
}

QString withOrganization(const QString& subject, const QString& organization)
{
    const QString type = QStringLiteral("2.5.4.10=");
    const int found = subject.indexOf(type);
    if (found < 0) {
        return subject;
    }
    const int start = found + type.size();
    const int end = subject.indexOf(QStringLiteral("2."), start);
    return end < 0 ? subject : subject.left(start) + organization + subject.mid(end);
}

Classification classifySignature(Candidate& candidate)
{
    const QString iut = candidate.descriptor.iut();
    if (!candidate.descriptor.subject().contains(QStringLiteral("2.5.4.12="))) {
        return {names::signatureCertificate,
                names::signatureLabel,
                {QStringLiteral("Certificato PRA. IUT: ") + iut}};
    }
    // A title makes it a role certificate, though one authority shows it as a personal one.
    const bool personal =
        candidate.descriptor.issuer().contains(QStringLiteral("norbelta"), Qt::CaseInsensitive);
    Classification role{personal ? names::signatureCertificate : names::roleCertificate,
                        names::signatureLabel,
                        {QStringLiteral("Certificato RUOLO. IUT: ") + iut}};
    if (officeOf(iut) == QStringLiteral("130170")) {
        role.logLines.push_back(QStringLiteral("Certificato FIPAV. Rinnovo abilitato."));
        candidate.subject =
            withOrganization(candidate.subject, QStringLiteral("GRATAX/01382321006"));
    }
    return role;
}

}  // namespace eligibility
