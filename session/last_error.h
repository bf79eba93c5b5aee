#ifndef TARVELOQT_SESSION_LAST_ERROR_H
#define TARVELOQT_SESSION_LAST_ERROR_H

#include <QByteArray>
#include <QString>

namespace session {

struct CardError {
    QByteArray text;  // as the card-access library wrote it, without NUL; empty when it has none
    long number;      // a PKCS#11 return value (CKR_...) or one of that library's own

    // The text for the log: one byte, one character.
    QString latin1() const;
    // The text for the user.
    QString utf8() const;
};

// The card-access library's last error.
CardError lastCardError();

}  // namespace session

#endif
