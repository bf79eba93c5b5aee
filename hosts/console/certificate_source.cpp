#include "hosts/console/certificate_source.h"

#include "hosts/console/certificate_files.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <algorithm>
#include <optional>

namespace console {

namespace {

// The bytes of the file that the user names; reason: why there is no other way.
QByteArray askForIssuedFile(const Arguments& arguments, const QString& reason)
{
    if (arguments.yes || !mayAsk()) {
        throw Stop(ExitCode::comeBackLater, reason);
    }
    ask(Text("File con il certificato emesso, o una riga vuota per tornare più tardi: ",
             "File with the issued certificate, or an empty line to come back later: "));
    const std::optional<QString> answer = readAnswer();
    if (!answer || answer->trimmed().isEmpty()) {
        throw Stop(ExitCode::comeBackLater, reason);
    }
    return readWhole(answer->trimmed());
}

QByteArray answerTo(const RenewalRecord& record, const Arguments& arguments)
{
    if (!arguments.issuedFile.isEmpty()) {
        return readWhole(arguments.issuedFile);
    }
    if (arguments.saveRequestFile.isEmpty()) {
        say(Text("\nConsegnare questa richiesta all'autorità di certificazione:\n\n%1",
                 "\nGive this request to the certification authority:\n\n%1")
                .arg(QString::fromLatin1(record.request)));
    }
    return askForIssuedFile(arguments, {});
}

std::vector<IssuedCertificate> certificatesIn(const QByteArray& answer)
{
    std::vector<IssuedCertificate> certificates = readCertificates(answer);
    if (certificates.empty()) {
        throw Stop(ExitCode::certificateRefused, Text("Non contiene un certificato leggibile.",
                                                      "It holds no certificate that can be read."));
    }
    return certificates;
}

}  // namespace

IssuedCertificate handedCertificate(const Arguments& arguments, const RenewalRecord& record)
{
    const std::vector<IssuedCertificate> certificates = certificatesIn(answerTo(record, arguments));
    const auto certificate = std::find_if(
        certificates.begin(), certificates.end(), [&record](const IssuedCertificate& candidate) {
            return keyDigest(candidate.publicKey) == record.publicKeyDigest;
        });
    if (certificate == certificates.end()) {
        throw Stop(ExitCode::certificateRefused,
                   Text("La sua chiave pubblica non è quella della richiesta. È intestato a %1.",
                        "Its public key is not the one in the request. It is made out to %1.")
                       .arg(printable(certificates.front().subject)));
    }
    return *certificate;
}

IssuedCertificate recoveredCertificate(const Arguments& arguments)
{
    // The request can be made again only beside the certificate that it renews.
    const QByteArray bytes =
        arguments.issuedFile.isEmpty()
            ? askForIssuedFile(
                  arguments,
                  Text("Solo il certificato emesso allora va bene per la chiave in attesa.",
                       "Only the certificate that was issued before fits "
                       "the waiting key."))
            : readWhole(arguments.issuedFile);
    const std::vector<IssuedCertificate> certificates = certificatesIn(bytes);
    const auto own =
        std::find_if(certificates.begin(), certificates.end(),
                     [](const IssuedCertificate& certificate) { return !certificate.isAuthority; });
    if (own == certificates.end()) {
        throw Stop(ExitCode::certificateRefused,
                   Text("Contiene solo certificati di autorità.",
                        "It holds only certificates of authorities."));
    }
    return *own;
}

}  // namespace console
