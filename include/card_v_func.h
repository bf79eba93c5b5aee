// The renewal library's exported operations, process-wide variables and error class.
//
// Order of calls in a session: init_renew_system, set_reader, set_pin, verify_pin,
// verify_sc_and_reader, fill_sc_objects, then for each certificate Tarvelo_gen_p10_by_certid and,
// with the certificate that the authority issued, Tarvelo_install_cert; free_renew_system last.
// The library does no network work.
//
// Threads: none of this is guarded. Call one operation at a time, always from the same thread; in a
// program with widgets that is the user-interface thread, because fill_sc_objects may show a
// message box. set_reader and set_pin may wait for standard input.
//
// Errors: no operation throws. What went wrong is told by the result, by the renewal log and, where
// said below, by ErrorMessage. Every context pointer must point to a live dictionary owned by the
// host; the library keeps no pointer after a call.

#ifndef TARVELOQT_CARD_V_FUNC_H
#define TARVELOQT_CARD_V_FUNC_H

#include "renew_context.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QMap>
#include <QString>
#include <QTextStream>
#include <QtGlobal>

#ifdef TARVELOQT_LIBRARY
#define TARVELOQT_EXPORT Q_DECL_EXPORT
#else
#define TARVELOQT_EXPORT Q_DECL_IMPORT
#endif

// Session ----------------------------------------------------------------------------------------

// Starts a session; call it first. Opens (and above 1,000,000 bytes empties) the renewal log
// ~/.brisko/TarveloQT.log, or standard output when it cannot be opened; writes the banner; sets
// ATRini; replaces the settings row of the context, with the reader of ~/.brisko/brisko-r.conf when
// that file names one. May be called again to start over: a PIN set before is then gone.
TARVELOQT_EXPORT void init_renew_system(RenewContext* context);

// Ends the session: removes every row of the context, the PIN with them, and closes the log. The
// process-wide variables keep their values.
TARVELOQT_EXPORT void free_renew_system(RenewContext* context);

// Card access ------------------------------------------------------------------------------------

// Stores the reader's name in the settings row. A name that is not empty is taken as it is. With an
// empty one the connected readers are listed: a single one is taken, otherwise standard output asks
// and one line of standard input answers.
// False when no reader list can be had; the context is then unchanged.
TARVELOQT_EXPORT bool set_reader(RenewContext* context, QString reader);

// Stores the PIN in the settings row. With an empty one standard output asks and one line of
// standard input answers, without echo when it is a terminal. Eight digits are asked for; up to
// eight, none included, are taken. Always true. The PIN reaches no log and no file.
TARVELOQT_EXPORT bool set_pin(RenewContext* context, QString pin);

// Verifies the stored PIN on the card in the stored reader: one login attempt, session closed
// again. Sets isCNS and isFerrolux where the card says so. False when the settings lack the reader
// or the PIN, no session can be opened, or the PIN is refused (the log tells which).
TARVELOQT_EXPORT bool verify_pin(RenewContext* context);

// Checks, without a PIN, that the card in the stored reader can be renewed. Fills lib,
// szSlotDescription, szManufacturerID, szModel and szSerialNumber (zeroed first), isCNS and
// isFerrolux. Returns one of card_verification; the log tells the details of a refusal.
TARVELOQT_EXPORT int verify_sc_and_reader(RenewContext* context);

// Inventory --------------------------------------------------------------------------------------

// Reads the card's certificates, pending keys and key labels into the card variables below, then
// runs the three eligibility checks, which write the certificate and recovery records into the
// context. Rows of an earlier inventory that are not written again stay. Logs in with the stored
// PIN, which must have exactly eight characters. Returns one of inventory_result; sets
// ErrorOccurred, ErrorCode and ErrorMessage except on pinLength and noFreeKeyLabel.
TARVELOQT_EXPORT int fill_sc_objects(RenewContext* context);

// The eligibility checks that fill_sc_objects runs, for one kind each. They read the kind's store
// and label, write records "AUT: k" (or "PRA: k", "CNS: k"), and set fiscalCode and ErrorMessage.
// A non-zero flag with no certificate gives the recovery record number 0. count: certificates of
// the kind; records are written for at most as many as the store can hold. result and reserved are
// never used. Always true.
TARVELOQT_EXPORT bool controllo_pending_AUT(RenewContext* context, int pendingKeyFlag, int count,
                                            int* result);
// May ask, in a message box or on the console, whether a limitation of use is to be removed.
TARVELOQT_EXPORT bool controllo_pending_PRA(RenewContext* context, int pendingKeyFlag, int count,
                                            int* result);
TARVELOQT_EXPORT bool controllo_pending_CNS(RenewContext* context, int reserved, int pendingKeyFlag,
                                            int count, int* result);

// The end of validity that the renewed certificate of this record will have: "yyyyMMdd000000",
// three years and the days still left after the record's notAfter. Empty when the date cannot be
// read or has passed. The record is not changed.
TARVELOQT_EXPORT QString addRemainingDaysToNotAfter(QHash<QString, QString>& record);

// Lookups ----------------------------------------------------------------------------------------

// Each copies the first row, in the dictionary's own order, whose key renew_context::renewalId
// (pendingKey; action = recoverCertificate) has exactly the value sought, adds the row key under
// renew_context::recordRow, assigns the copy to *record and returns true. Without a match: false,
// *record unchanged. Hosts that want the same order in every run set Qt's hash seed.
TARVELOQT_EXPORT bool find_certid_in_conf(RenewContext* context, QString certId,
                                          QHash<QString, QString>* record);
TARVELOQT_EXPORT bool find_ckaid_in_conf(RenewContext* context, QString pendingKeyId,
                                         QHash<QString, QString>* record);
TARVELOQT_EXPORT bool find_pending_cert_dict(RenewContext* context,
                                             QHash<QString, QString>* record);

// Renewal ----------------------------------------------------------------------------------------

// Has the card make a key pair and the certificate request (PKCS#10, RFC 2986) for the record with
// this renewal identifier. p10Buffer: at least requestBufferSize writable bytes of the host; on
// success it holds the request as NUL-terminated text (PEM, RFC 7468, with the card libraries of
// this project). 1 on success, 0 on failure; when the card itself failed, ErrorMessage tells why.
// Writes pendingLabel_PRA and pendingLabel_AUT; the context is only read.
TARVELOQT_EXPORT int Tarvelo_gen_p10_by_certid(RenewContext* context, QString certId,
                                               char* p10Buffer);

// Writes the issued certificate onto the card, beside its key. certBuffer: NUL-terminated text,
// handed to the card library as it is, never read, logged or changed here. The card libraries of
// this project take PEM (RFC 7468), and binary DER too; that has no end but the length in its own
// header, so hand over DER only when the host has checked that it is whole, else PEM: of a cut one
// they would read past the buffer. An identifier that no record has completes an interrupted
// renewal instead: the recovery record is used. Results, ErrorMessage and labels as above.
TARVELOQT_EXPORT int Tarvelo_install_cert(RenewContext* context, QString certId, char* certBuffer);

// Errors -----------------------------------------------------------------------------------------

// An error with a code and an Italian message, for the host's own use: no operation throws it.
class TARVELOQT_EXPORT Exception {
public:
    enum Code : int {
        Ok = 0,
        Generic = 1,
        InitFileRead = 2,
        DeviceConnection = 3,
        FirefoxConfigAccess = 4,
        PasswordCipher = 5,
        TempFileOpen = 6,
        AtrRead = 7,
        Pkcs11Load = 8,
        CertificateRead = 9,
        VerifyLibraryInit = 10,
        VerifyResultRead = 11,
        NoSignCertificate = 12,
        SlotRead = 13,
        ClamWinInitFileRead = 14,
        ProgramRun = 15,
        InternetConnection = 16,
        TempFileAccess = 17,
        Base64Decode = 18
    };

    Exception(Exception::Code code, const QString& detail);
    virtual ~Exception();

    // The code's message, then, unless the detail is null, a newline and the detail. For a code
    // outside the enumeration the message is "undefined exception ".
    QString getMessage() const;
    Exception::Code getCode() const;

private:
    Code code;
    QString detail;
    QMap<Code, QString> messages;
};

// The card-access library's last error: its text as that library wrote it, without NUL (empty when
// there is none), and its number, a PKCS#11 return value (CKR_...) or one of the library's own.
TARVELOQT_EXPORT void getError(QByteArray& text, long& errorNumber);

// Process-wide variables -------------------------------------------------------------------------

// The renewal log. Without a device, as at start, what is written to it goes nowhere.
TARVELOQT_EXPORT extern QTextStream outLogFile;
// The file that outLogFile writes into.
TARVELOQT_EXPORT extern QFile RENEWLOGFILE;
// The folder of the running executable + "/../p11/ATR-renew.ini", set by init_renew_system. Set it
// after that call to use another table.
TARVELOQT_EXPORT extern QString ATRini;
// "TarveloQT" and "1.0.4", as the log's banner shows them.
TARVELOQT_EXPORT extern QString nomeLibreria;
TARVELOQT_EXPORT extern QString versioneLibreria;

// The last error text for the user; empty after a successful inventory.
TARVELOQT_EXPORT extern QString ErrorMessage;
// 1 after an inventory that failed, else 0; and one of inventory_error.
TARVELOQT_EXPORT extern int ErrorOccurred;
TARVELOQT_EXPORT extern int ErrorCode;

// The card, from verify_sc_and_reader: NUL-terminated, sizes with the NUL.
TARVELOQT_EXPORT extern char lib[64];
TARVELOQT_EXPORT extern char szSlotDescription[65];
TARVELOQT_EXPORT extern char szManufacturerID[33];
TARVELOQT_EXPORT extern char szModel[17];
TARVELOQT_EXPORT extern char szSerialNumber[17];
// Set to true by verify_pin and verify_sc_and_reader, never to false.
TARVELOQT_EXPORT extern bool isCNS;
TARVELOQT_EXPORT extern bool isFerrolux;

// The card stores of the last inventory: element 0 the count as decimal text, the others one
// certificate descriptor each. Elements are null before the first inventory. The buffers of 4,096
// bytes belong to the library and stay valid for the life of the process.
TARVELOQT_EXPORT extern char* CertCNSStore[2];
TARVELOQT_EXPORT extern char* CertPRAStore[5];
TARVELOQT_EXPORT extern char* CertAUTStore[5];
// Certificates of each kind as the card reported them, their sum, and the rows of a host's table:
// the sum, and one more when a key waits whose kind has no certificate.
TARVELOQT_EXPORT extern int numCertCNS;
TARVELOQT_EXPORT extern int numCertsPRA;
TARVELOQT_EXPORT extern int numCertsAUT;
TARVELOQT_EXPORT extern int CertificateNumbers;
TARVELOQT_EXPORT extern int rows;
// Non-zero when a key of the kind waits for its certificate.
TARVELOQT_EXPORT extern int pending_CNS;
TARVELOQT_EXPORT extern int pendingKey_PRA;
TARVELOQT_EXPORT extern int pendingKey_AUT;
// Label of the pending or free key of the kind, at most 31 characters; "CNS0" after a CNS renewal.
TARVELOQT_EXPORT extern char pendingLabel_PRA[32];
TARVELOQT_EXPORT extern char pendingLabel_AUT[32];
// The CNS certificate's end of validity as the card library gave it, at most eight characters.
TARVELOQT_EXPORT extern char expiryCNSdate[9];
// Fiscal code of the last certificate whose subject carried one (attribute 2.5.4.5).
TARVELOQT_EXPORT extern QString fiscalCode;

// For the host alone; the library never reads or writes them.
TARVELOQT_EXPORT extern QString BriskoSettingFile;
TARVELOQT_EXPORT extern QString userProxy;
TARVELOQT_EXPORT extern QString pwdProxy;
TARVELOQT_EXPORT extern QString nameProxy;
TARVELOQT_EXPORT extern QString portProxy;
TARVELOQT_EXPORT extern QByteArray signCertificate;
TARVELOQT_EXPORT extern QByteArray signCkaid;
TARVELOQT_EXPORT extern QDateTime date_time;
TARVELOQT_EXPORT extern QString dateExpiryCNS;
TARVELOQT_EXPORT extern QString scadenzaCertCNS;
TARVELOQT_EXPORT extern QString URL_RINNOVO;
TARVELOQT_EXPORT extern qint32 numeroRiga;

#endif
