#include "card_v_func.h"

#include "card/pin.h"
#include "card/reader_choice.h"
#include "card/verification.h"
#include "eligibility/eligibility_check.h"
#include "eligibility/limitation_question.h"
#include "eligibility/marker_files.h"
#include "inventory/inventory.h"
#include "inventory/lookups.h"
#include "inventory/validity_dates.h"
#include "renewal/installation.h"
#include "renewal/request.h"
#include "session/last_error.h"
#include "session/lifecycle.h"

#include <cstring>
#include <optional>

// The process-wide variables. The file comes before the stream that writes into it, so that at exit
// the stream goes first.
QFile RENEWLOGFILE;
QTextStream outLogFile;
QString ATRini;
QString nomeLibreria = QStringLiteral("TarveloQT");
QString versioneLibreria = QStringLiteral("1.0.4");

QString ErrorMessage = QStringLiteral("");
int ErrorOccurred = 0;
int ErrorCode = 0;

char lib[64] = {};
char szSlotDescription[65] = {};
char szManufacturerID[33] = {};
char szModel[17] = {};
char szSerialNumber[17] = {};
bool isCNS = false;
bool isFerrolux = false;

char* CertCNSStore[2] = {};
char* CertPRAStore[5] = {};
char* CertAUTStore[5] = {};
int numCertCNS = 0;
int numCertsPRA = 0;
int numCertsAUT = 0;
int CertificateNumbers = 0;
int rows = 0;
int pending_CNS = 0;
int pendingKey_PRA = 0;
int pendingKey_AUT = 0;
char pendingLabel_PRA[32] = {};
char pendingLabel_AUT[32] = {};
char expiryCNSdate[9] = {};
QString fiscalCode = QStringLiteral("");

QString BriskoSettingFile;
QString userProxy = QStringLiteral("");
QString pwdProxy = QStringLiteral("");
QString nameProxy = QStringLiteral("");
QString portProxy = QStringLiteral("");
QByteArray signCertificate;
QByteArray signCkaid;
QDateTime date_time;
QString dateExpiryCNS = QStringLiteral("");
QString scadenzaCertCNS = QStringLiteral("");
QString URL_RINNOVO = QStringLiteral("");
qint32 numeroRiga = 0;

namespace {

session::LocalClock wallClock;
session::Log renewalLog(outLogFile, wallClock);

session::SessionVariables sessionVariables()
{
    return {outLogFile, RENEWLOGFILE, ATRini, nomeLibreria, versioneLibreria};
}

inventory::KeyLabels keyLabels()
{
    return {pendingLabel_PRA, pendingLabel_AUT};
}

renewal::RenewalVariables renewalVariables()
{
    return {keyLabels(), ErrorMessage};
}

bool copyRecord(const std::optional<RenewRecord>& found, QHash<QString, QString>* record)
{
    if (found) {
        *record = *found;
    }
    return found.has_value();
}

eligibility::Surroundings surroundings()
{
    return {[] { return wallClock.today(); },
            [] { return eligibility::isMarkerPresent(QStringLiteral("skipCheck.rnw")); },
            [] {
                return eligibility::isMarkerPresent(
                    QStringLiteral("CkSpace_") +
                    QString::fromLatin1(
                        szSerialNumber,
                        static_cast<int>(strnlen(szSerialNumber, sizeof szSerialNumber))));
            },
            eligibility::askToRemoveLimitation};
}

bool check(RenewContext* context, eligibility::CertificateKind kind,
           const eligibility::CheckInput& input)
{
    eligibility::checkEligibility(*context, eligibility::ruleOf(kind), input, surroundings(),
                                  {fiscalCode, ErrorMessage}, renewalLog);
    return true;
}

}  // namespace

// Strings by value are part of the exported names.
// NOLINTBEGIN(performance-unnecessary-value-param)

void init_renew_system(RenewContext* context)
{
    session::start(*context, sessionVariables(), renewalLog, wallClock);
}

void free_renew_system(RenewContext* context)
{
    session::finish(*context, sessionVariables(), renewalLog);
}

bool set_reader(RenewContext* context, QString reader)
{
    return card::chooseReader(*context, reader, renewalLog);
}

bool set_pin(RenewContext* context, QString pin)
{
    card::setPin(*context, pin);
    return true;
}

bool verify_pin(RenewContext* context)
{
    return card::verifyPin(*context, ATRini, {isCNS, isFerrolux}, renewalLog);
}

int verify_sc_and_reader(RenewContext* context)
{
    return card::verifyCard(*context, ATRini,
                            {lib, szSlotDescription, szManufacturerID, szModel, szSerialNumber},
                            {isCNS, isFerrolux}, renewalLog);
}

int fill_sc_objects(RenewContext* context)
{
    return inventory::takeInventory(
        *context,
        {CertCNSStore, CertPRAStore, CertAUTStore, pending_CNS, pendingKey_PRA, pendingKey_AUT,
         keyLabels(), expiryCNSdate},
        {numCertCNS, numCertsPRA, numCertsAUT, CertificateNumbers, rows, ErrorMessage,
         ErrorOccurred, ErrorCode},
        {controllo_pending_CNS, controllo_pending_PRA, controllo_pending_AUT}, renewalLog);
}

bool controllo_pending_AUT(RenewContext* context, int pendingKeyFlag, int count, int* /*result*/)
{
    return check(context, eligibility::CertificateKind::aut,
                 {CertAUTStore, pendingKeyFlag, count, keyLabels().autText()});
}

bool controllo_pending_PRA(RenewContext* context, int pendingKeyFlag, int count, int* /*result*/)
{
    return check(context, eligibility::CertificateKind::pra,
                 {CertPRAStore, pendingKeyFlag, count, keyLabels().praText()});
}

bool controllo_pending_CNS(RenewContext* context, int /*reserved*/, int pendingKeyFlag, int count,
                           int* /*result*/)
{
    // A CNS key has no label of its own among the process-wide variables.
    return check(context, eligibility::CertificateKind::cns,
                 {CertCNSStore, pendingKeyFlag, count, QString()});
}

QString addRemainingDaysToNotAfter(QHash<QString, QString>& record)
{
    const auto refuse = [](const QString& reason) {
        renewalLog.line(QStringLiteral("addRemainingDaysToNotAfter"), session::LineEnd::newline);
        renewalLog.line(reason, session::LineEnd::newline);
        return QString();
    };
    const QDate notAfter = inventory::validityDate(record.value(renew_context::notAfter));
    if (!notAfter.isValid()) {
        return refuse(QStringLiteral("Errore nella conversione della data"));
    }
    const QDate today = wallClock.today();
    if (today > notAfter) {
        return refuse(QStringLiteral("Attenzione! il certificato e' scaduto!"));
    }
    return inventory::renewedNotAfter(notAfter, today);
}

bool find_certid_in_conf(RenewContext* context, QString certId, QHash<QString, QString>* record)
{
    return copyRecord(inventory::findRecord(*context, renew_context::renewalId, certId), record);
}

bool find_ckaid_in_conf(RenewContext* context, QString pendingKeyId,
                        QHash<QString, QString>* record)
{
    return copyRecord(inventory::findRecord(*context, renew_context::pendingKey, pendingKeyId),
                      record);
}

bool find_pending_cert_dict(RenewContext* context, QHash<QString, QString>* record)
{
    return copyRecord(
        inventory::findRecord(*context, renew_context::action, renew_context::recoverCertificate),
        record);
}

int Tarvelo_gen_p10_by_certid(RenewContext* context, QString certId, char* p10Buffer)
{
    return renewal::requestCertificate(*context, certId, p10Buffer, renewalVariables(), renewalLog);
}

int Tarvelo_install_cert(RenewContext* context, QString certId, char* certBuffer)
{
    return renewal::installCertificate(*context, certId, certBuffer, renewalVariables(),
                                       renewalLog);
}

// NOLINTEND(performance-unnecessary-value-param)

void getError(QByteArray& text, long& errorNumber)
{
    const session::CardError error = session::lastCardError();
    text = error.text;
    errorNumber = error.number;
}
