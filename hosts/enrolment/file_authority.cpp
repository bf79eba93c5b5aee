#include "hosts/enrolment/file_authority.h"

#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/enrolment/configured_file.h"
#include "hosts/enrolment/issued_check.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <QCryptographicHash>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

constexpr int digitsInName = 16;

void write(const QString& path, const QByteArray& bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        throw EnrolmentError(Cause::misconfigured,
                             Text("Impossibile scrivere %1: %2.", "%1 cannot be written: %2.")
                                 .arg(printable(path), file.errorString()),
                             Text("Controllare i permessi della cartella e lo spazio libero.",
                                  "Check the permissions of the folder and the free space."));
    }
}

QByteArray companionOf(const Request& request)
{
    QJsonObject companion;
    companion.insert(QStringLiteral("policy"), request.policy);
    companion.insert(QStringLiteral("notAfter"), request.expectedEnd.toString(Qt::ISODate));
    companion.insert(QStringLiteral("isRenewal"), request.isRenewal);
    return QJsonDocument(companion).toJson();
}

class FileAuthority : public Authority {
public:
    explicit FileAuthority(const Configuration& configuration)
        : m_folder(pathOf(configuration, QStringLiteral("folder")))
        , m_anchors(issuerAnchorsOf(configuration))
    {
    }

    QString name() const override { return QStringLiteral("file"); }

    Answer enrol(const Request& request) const override
    {
        probe();
        const QString base = baseOf(request);
        write(base + QStringLiteral(".p10.pem"), request.pkcs10);
        write(base + QStringLiteral(".json"), companionOf(request));
        for (const char* ending : {".crt", ".cer", ".pem", ".der", ".p7b", ".p7c"}) {
            const QString path = base + QLatin1String(ending);
            if (QFileInfo::exists(path)) {
                return issuedIn(path, request);
            }
        }
        return Deferred{
            {},
            std::nullopt,
            Text("Consegnare %1 all'autorità e mettere il certificato in %2, poi riprendere.",
                 "Give %1 to the authority and put the certificate into %2, then resume.")
                .arg(printable(base + QStringLiteral(".p10.pem")),
                     printable(base + QStringLiteral(".crt")))};
    }

    void probe() const override
    {
        const QFileInfo folder(m_folder);
        if (!folder.isDir() || !folder.isWritable()) {
            throw EnrolmentError(
                Cause::misconfigured,
                Text("La cartella %1 non c'è o non è scrivibile.",
                     "The folder %1 is not there or cannot be written to.")
                    .arg(printable(m_folder)),
                Text("Crearla o indicarne un'altra.", "Make it or name another one."));
        }
    }

private:
    QString baseOf(const Request& request) const
    {
        const Owned<X509_REQ> pkcs10 = checkedRequest(request);
        const QByteArray digest =
            QCryptographicHash::hash(derOf(X509_REQ_get_X509_PUBKEY(pkcs10.get())),
                                     QCryptographicHash::Sha256)
                .toHex()
                .left(digitsInName);
        return m_folder + QStringLiteral("/tarvelo-") + QString::fromLatin1(digest);
    }

    Issued issuedIn(const QString& path, const Request& request) const
    {
        const std::vector<QByteArray> certificates = certificatesIn(contentOf(path));
        if (certificates.empty()) {
            throw EnrolmentError(Cause::badAnswer,
                                 Text("%1 non contiene un certificato leggibile.",
                                      "%1 holds no certificate that can be read.")
                                     .arg(printable(path)),
                                 Text("Scaricarlo di nuovo (PEM, DER o PKCS#7), poi riprendere.",
                                      "Download it again (PEM, DER or PKCS#7), then resume."));
        }
        return checkedIssue(request, certificates, m_anchors);
    }

    QString m_folder;
    std::vector<QByteArray> m_anchors;
};

}  // namespace

std::unique_ptr<Authority> fileAuthority(const Configuration& configuration)
{
    requireKnownKeys(configuration, {QStringLiteral("folder"), QStringLiteral("issuer-anchors")},
                     false);
    static_cast<void>(requiredValueOf(configuration, QStringLiteral("folder")));
    return std::make_unique<FileAuthority>(configuration);
}

}  // namespace enrolment
