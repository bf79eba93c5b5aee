#include "card_v_func.h"

// The reference is part of the exported name.  NOLINTNEXTLINE(modernize-pass-by-value)
Exception::Exception(Exception::Code givenCode, const QString& givenDetail)
    : code(givenCode)
    , detail(givenDetail)
    , messages{
          {Ok, QStringLiteral("OK: ")},
          {Generic, QStringLiteral("generico: ")},
          {InitFileRead, QStringLiteral("Errore nella lettura del file di inizializzazione")},
          {DeviceConnection,
           QStringLiteral("ERRORE NELLA CONNESSIONE CON IL DISPOSITIVO DI FIRMA")},
          {FirefoxConfigAccess,
           QStringLiteral("Errore nell'accesso al file di configurazione del browser Firefox")},
          {PasswordCipher,
           QStringLiteral("Errore nell'operazione di cifratura/decifratura della password")},
          {TempFileOpen, QStringLiteral("Errore nell'apertura del file temporaneo")},
          {AtrRead, QStringLiteral("Errore nella lettura del codice ATR del Dispositivo di Firma")},
          {Pkcs11Load, QStringLiteral("Errore nel caricamento della libreria PKCS#11")},
          {CertificateRead,
           QStringLiteral("Errore nella lettura dei certificati dal Dispositivo di Firma")},
          {VerifyLibraryInit,
           QStringLiteral("Errore nell'inizializzazione della libreria di verifica")},
          {VerifyResultRead, QStringLiteral("Errore nella lettura dell'esito della verifica")},
          {NoSignCertificate,
           QStringLiteral("Nessun certificato di firma presente sul Dispositivo di Firma")},
          {SlotRead, QStringLiteral("Errore nella lettura dello slot")},
          {ClamWinInitFileRead,
           QStringLiteral("Errore nella lettura del file di inizializzazione di ClamWin")},
          {ProgramRun, QStringLiteral("Errore nell'esecuzione del programma")},
          {InternetConnection, QStringLiteral("Errore nella connessione internet")},
          {TempFileAccess, QStringLiteral("Errore nell'accesso a un file temporaneo")},
          {Base64Decode, QStringLiteral("Errore nella decodifica del file da base 64")},
      }
{
}

Exception::~Exception() = default;

QString Exception::getMessage() const
{
    const QString message = messages.value(code, QStringLiteral("undefined exception "));
    return detail.isNull() ? message : message + QLatin1Char('\n') + detail;
}

Exception::Code Exception::getCode() const
{
    return code;
}
