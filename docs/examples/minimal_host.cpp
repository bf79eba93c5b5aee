// A complete host: shows the certificates on the card and renews the first that is due.
// Usage: minimal_host ATR-TABLE READER AUTHORITY (a command: request in, certificate out)
#include <QHash>
#include <QProcess>
#include <QTextStream>

#include <card_v_func.h>

#include <clocale>
#include <vector>

namespace keys = renew_context;

static QString firstDue(const RenewContext& context)
{
    QString certId;
    for (auto row = context.begin(); row != context.end(); ++row) {
        const QString mode = row->value(keys::renewalMode);
        if (row->contains(keys::renewalId))
            QTextStream(stdout) << row.key() << ": " << (mode.isEmpty() ? "due" : mode) << Qt::endl;
        if (mode.isEmpty() && certId.isEmpty())
            certId = row->value(keys::renewalId);
    }
    return certId;
}

static bool renew(RenewContext& context, const QString& certId, QStringList command)
{
    std::vector<char> request(requestBufferSize);
    if (certId.isEmpty() || Tarvelo_gen_p10_by_certid(&context, certId, request.data()) != 1)
        return false;
    QProcess authority;
    authority.start(command.takeFirst(), command);
    authority.write(request.data());
    authority.closeWriteChannel();
    if (!authority.waitForFinished() || authority.exitCode() != 0)
        return false;
    QByteArray certificate = authority.readAllStandardOutput();
    return Tarvelo_install_cert(&context, certId, certificate.data()) == 1;
}

int main(int argc, char* argv[])
{
    if (argc != 4)
        return 2;
    std::setlocale(LC_ALL, "");  // names are rarely ASCII
    qSetGlobalQHashSeed(0);      // lookups walk the dictionary in its own order
    RenewContext context;
    init_renew_system(&context);
    ATRini = QString::fromLocal8Bit(argv[1]);  // no ../p11 folder beside this program
    const bool ready = set_reader(&context, argv[2]) && set_pin(&context, {}) &&
                       context[keys::settingsRow][keys::pin].size() == 8 && verify_pin(&context) &&
                       verify_sc_and_reader(&context) == 0 && fill_sc_objects(&context) == 0;
    const bool renewed =
        ready && renew(context, firstDue(context), QProcess::splitCommand(QString(argv[3])));
    QTextStream(stdout) << (renewed ? "renewed" : "failed: " + ErrorMessage) << Qt::endl;
    free_renew_system(&context);
    return renewed ? 0 : 1;
}
