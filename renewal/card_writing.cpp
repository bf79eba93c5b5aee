#include "renewal/card_writing.h"

#include "imports/tarvelo.h"
#include "session/secret_bytes.h"

namespace renewal {

int createRequest(KeyUse use, char* requestBuffer, char* label, const QString& pin,
                  const QString& certificateCkaId, const QString& subject)
{
    const auto create = use == KeyUse::signature ? rinnovo_Card_createCertRequestPRA
                                                 : rinnovo_Card_createCertRequestAUT;
    QByteArray ckaId = certificateCkaId.toUtf8();
    QByteArray name = subject.toUtf8();
    return create(requestBuffer, label, session::secretUtf8(pin).data(), ckaId.data(), name.data(),
                  false);
}

int saveCertificate(KeyUse use, const QString& pin, const QString& certificateCkaId, char* label,
                    char* certificate)
{
    const auto save =
        use == KeyUse::signature ? rinnovo_Card_saveCertPRA : rinnovo_Card_saveCertAUT;
    QByteArray ckaId = certificateCkaId.toUtf8();
    return save(session::secretUtf8(pin).data(), ckaId.data(), label, certificate, false);
}

}  // namespace renewal
