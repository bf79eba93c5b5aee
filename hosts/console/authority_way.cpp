#include "hosts/console/authority_way.h"

#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"
#include "hosts/enrolment/host_proxy.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

#include <card_v_func.h>

#include <utility>

namespace console {

namespace {

QString defaultFile()
{
    const QString own = QStandardPaths::locate(QStandardPaths::GenericConfigLocation,
                                               QStringLiteral("tarvelo/authorities.ini"));
    return own.isEmpty() ? QStringLiteral("/etc/tarvelo/authorities.ini") : own;
}

QString waitingTime(std::chrono::seconds seconds)
{
    const auto minutes = (seconds.count() + 59) / 60;
    return minutes < 120
               ? Text("Riprovare fra %1 min.", "Try again in %1 min.").arg(QString::number(minutes))
               : Text("Riprovare fra %1 ore.", "Try again in %1 hours.")
                     .arg(QString::number((minutes + 59) / 60));
}

void keep(const RecordStore& store, RenewalRecord& record, RecordState state)
{
    record.state = state;
    record.changedAt = QDateTime::currentDateTimeUtc();
    store.save(record);
}

// The checks have found it to be for the record's key.
IssuedCertificate certificateOf(const enrolment::Issued& issued)
{
    return readCertificates(issued.certificate).front();
}

[[noreturn]] void comeBack(const enrolment::Deferred& deferred)
{
    QString reason = deferred.reason;
    if (deferred.retryAfter) {
        reason += QLatin1Char(' ') + waitingTime(*deferred.retryAfter);
    }
    throw Stop(
        ExitCode::comeBackLater, reason,
        Text("Più tardi, eseguire tarvelo-renew resume.", "Run tarvelo-renew resume later."));
}

}  // namespace

std::optional<enrolment::Configuration> chosenAuthority(const QString& text, const QString& file)
{
    const QString path = file.isEmpty() ? defaultFile() : file;
    std::optional<enrolment::Configuration> chosen =
        text.isEmpty() ? enrolment::defaultConfiguration(path)
                       : std::make_optional(enrolment::configurationFrom(text, path));
    if (chosen) {
        // Found to be wrong before the card is asked for anything.
        enrolment::authority(*chosen);
    }
    return chosen;
}

std::unique_ptr<enrolment::Authority> authorityOf(const Arguments& arguments)
{
    if (!arguments.authority) {
        return nullptr;
    }
    enrolment::Configuration configuration = *arguments.authority;
    configuration.hostProxy = enrolment::hostProxy(nameProxy, portProxy, userProxy, pwdProxy);
    return enrolment::authority(configuration);
}

QString authorityName(const Arguments& arguments)
{
    if (!arguments.authority) {
        return {};
    }
    const enrolment::Configuration& authority = *arguments.authority;
    const QString value = authority.name.section(QLatin1Char(':'), 1);
    if (value.isEmpty()) {
        return authority.name;
    }
    if (authority.way == QLatin1String("command")) {
        return QFileInfo(QProcess::splitCommand(value).value(0)).fileName();
    }
    const QString host = QUrl(value).host();
    return host.isEmpty() ? value : host;
}

IssuedCertificate enrolled(const enrolment::Authority& authority, const QString& name,
                           const RecordStore& store, RenewalRecord& record)
{
    enrolment::Request request;
    request.pkcs10 = record.request;
    request.policy = record.policy;
    request.expectedEnd = record.expectedEnd;
    // What one authority left behind means nothing to another.
    if (record.authority.name == name) {
        request.state = record.authority.state;
    }
    record.authority = {name, request.state};
    // A certificate that came earlier stays until there is word of another one.
    if (record.state != RecordState::issued) {
        keep(store, record,
             record.state == RecordState::deferred ? RecordState::deferred
                                                   : RecordState::submitted);
    }
    say(Text("Si chiede il certificato all'autorità di certificazione.",
             "The certification authority is asked."));
    try {
        const enrolment::Answer answer = authority.enrol(request);
        if (const auto* issued = std::get_if<enrolment::Issued>(&answer)) {
            return certificateOf(*issued);
        }
        const auto& deferred = std::get<enrolment::Deferred>(answer);
        record.authority.state = deferred.state;
        record.certificate.clear();
        keep(store, record, RecordState::deferred);
        comeBack(deferred);
    } catch (const enrolment::EnrolmentError& error) {
        throw stopOf(error);
    }
}

Stop stopOf(const enrolment::EnrolmentError& error)
{
    ExitCode code = ExitCode::authorityFailed;
    switch (error.cause()) {
    case enrolment::Cause::misconfigured:
        code = ExitCode::usage;
        break;
    case enrolment::Cause::unreachable:
        code = ExitCode::authorityUnreachable;
        break;
    case enrolment::Cause::policyUnsupported:
    case enrolment::Cause::refused:
    case enrolment::Cause::unmetDemand:
        code = ExitCode::authorityRefused;
        break;
    case enrolment::Cause::wrongCertificate:
        code = ExitCode::certificateRefused;
        break;
    case enrolment::Cause::untrusted:
    case enrolment::Cause::badAnswer:
        break;
    }
    return Stop(code, error.text(), error.cure());
}

}  // namespace console
