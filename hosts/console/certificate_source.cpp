#include "hosts/console/certificate_source.h"

#include "hosts/console/certificate_files.h"
#include "hosts/console/enrolment_command.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <algorithm>
#include <optional>

namespace console {

namespace {

// The bytes of the file that the user names; reason: why there is no other way.
QByteArray askForIssuedFile(const Arguments& arguments, const QString& reason)
{
    if (arguments.yes) {
        throw Stop(ExitCode::comeBackLater, reason);
    }
    ask(QStringLiteral("File with the issued certificate, or an empty line to come back later: "));
    const std::optional<QString> answer = readAnswer();
    if (!answer || answer->trimmed().isEmpty()) {
        throw Stop(ExitCode::comeBackLater, reason);
    }
    return readWhole(answer->trimmed());
}

QByteArray answerTo(const QByteArray& requestPem, const Arguments& arguments,
                    const CertificateEntry& entry)
{
    if (!arguments.issuedFile.isEmpty()) {
        return readWhole(arguments.issuedFile);
    }
    if (!arguments.authorityCommand.isEmpty()) {
        say(QStringLiteral("The certification authority is asked."));
        const QStringList command = withPlaceholders(
            arguments.authorityCommand, {{QStringLiteral("not-after"), entry.expectedEnd},
                                         {QStringLiteral("policy"), entry.policy}});
        return enrolByCommand(command, requestPem, arguments.authorityTimeoutSeconds);
    }
    if (arguments.saveRequestFile.isEmpty()) {
        say(QStringLiteral("\nGive this request to the certification authority:\n\n") +
            QString::fromLatin1(requestPem));
    }
    return askForIssuedFile(arguments, {});
}

std::vector<IssuedCertificate> certificatesIn(const QByteArray& answer)
{
    std::vector<IssuedCertificate> certificates = readCertificates(answer);
    if (certificates.empty()) {
        throw Stop(ExitCode::certificateRefused,
                   QStringLiteral("It holds no certificate that can be read."));
    }
    return certificates;
}

}  // namespace

IssuedCertificate obtainCertificate(const Arguments& arguments, const CertificateEntry& entry,
                                    const QByteArray& requestPem)
{
    const std::optional<QByteArray> publicKey = requestPublicKey(requestPem);
    if (!publicKey) {
        throw Stop(ExitCode::requestFailed,
                   QStringLiteral("What the card gave is no valid certificate request."));
    }
    const std::vector<IssuedCertificate> certificates =
        certificatesIn(answerTo(requestPem, arguments, entry));
    const auto certificate = certificateFor(*publicKey, certificates);
    if (!certificate) {
        throw Stop(
            ExitCode::certificateRefused,
            QStringLiteral("Its public key is not the one in the request. It is made out to %1.")
                .arg(printable(certificates.front().subject)));
    }
    say(wrapped(
        QStringLiteral("The certificate is there, issued by %1, valid until %2.")
            .arg(printable(certificate->issuer), certificate->notAfter.toString(Qt::ISODate))));
    return *certificate;
}

IssuedCertificate recoveredCertificate(const Arguments& arguments)
{
    // The request can be made again only beside the certificate that it renews.
    const QByteArray bytes =
        arguments.issuedFile.isEmpty()
            ? askForIssuedFile(arguments, QStringLiteral("Only the certificate that was issued "
                                                         "before fits the waiting key."))
            : readWhole(arguments.issuedFile);
    const std::vector<IssuedCertificate> certificates = certificatesIn(bytes);
    const auto own =
        std::find_if(certificates.begin(), certificates.end(),
                     [](const IssuedCertificate& certificate) { return !certificate.isAuthority; });
    if (own == certificates.end()) {
        throw Stop(ExitCode::certificateRefused,
                   QStringLiteral("It holds only certificates of authorities."));
    }
    return *own;
}

}  // namespace console
