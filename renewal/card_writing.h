#ifndef TARVELOQT_RENEWAL_CARD_WRITING_H
#define TARVELOQT_RENEWAL_CARD_WRITING_H

#include <QByteArray>
#include <QString>

// The one place from which this folder has the card-renewal library write on the card. Each returns
// that library's result, 0 on success.
namespace renewal {

// Functions of the library for signature keys, and those for all other keys.
enum class KeyUse { signature, authentication };

// label: NUL-terminated, at most 31 characters.
int createRequest(KeyUse use, char* requestBuffer, char* label, const QString& pin,
                  const QString& certificateCkaId, const QString& subject);
int saveCertificate(KeyUse use, const QString& pin, const QString& certificateCkaId, char* label,
                    char* certificate);

}  // namespace renewal

#endif
