#include "hosts/console/renewal_flow.h"

#include "hosts/console/certificate_choice.h"
#include "hosts/console/certificate_files.h"
#include "hosts/console/certificate_source.h"
#include "hosts/console/log_excerpt.h"
#include "hosts/console/pin_source.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <QFileInfo>

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <utility>

namespace console {

namespace keys = renew_context;

namespace {

// A person who mistypes is asked again; more often would be a keyboard that answers by itself.
constexpr int pinQuestions = 3;

QString cardText(const char* text)
{
    return printable(QString::fromUtf8(text).trimmed());
}

QString descriptorOnCard(Kind kind, int number)
{
    const auto element = [number](const auto& store) {
        const bool inside = number > 0 && number < static_cast<int>(std::size(store));
        return inside && store[number] != nullptr ? QString::fromUtf8(store[number]) : QString();
    };
    switch (kind) {
    case Kind::authentication:
        return element(CertAUTStore);
    case Kind::signature:
        return element(CertPRAStore);
    case Kind::cns:
        return element(CertCNSStore);
    }
    return {};
}

std::vector<CertificateEntry> entriesOf(const RenewContext& context)
{
    return certificateEntries(
        context, {QDate::currentDate(), descriptorOnCard,
                  [](RenewRecord& record) { return addRemainingDaysToNotAfter(record); }});
}

// The library's own words on a failure: its message for the user, else what it logged.
QString causeOf(const LogExcerpt& excerpt)
{
    return printable(ErrorMessage.isEmpty() ? excerpt.lines().join(QLatin1Char(' '))
                                            : ErrorMessage.simplified());
}

void askForPin(RenewContext* context)
{
    for (int question = 0; question < pinQuestions; ++question) {
        set_pin(context, QString());
        const int length = context->value(keys::settingsRow).value(keys::pin).size();
        if (length == pinLength || !isInteractive()) {
            return;
        }
        wipe((*context)[keys::settingsRow][keys::pin]);
        say(QStringLiteral("The PIN has exactly eight characters."));
    }
}

}  // namespace

RenewalFlow::RenewalFlow(Arguments arguments)
    : m_arguments(std::move(arguments))
{
}

void RenewalFlow::run()
{
    say(QStringLiteral("%1 %2: renewal of the certificates on a signature card\n")
            .arg(nomeLibreria, versioneLibreria));
    chooseReader();
    givePin();
    checkCard();

    const std::vector<CertificateEntry> entries = readInventory();
    say(QStringLiteral("\nCertificates on the card:\n\n") +
        certificateTable(entries, QDate::currentDate()) + QLatin1Char('\n'));
    const CertificateEntry entry =
        chooseCertificate(entries, m_arguments.certificate, !m_arguments.yes);
    say(renewalPlan(entry, QFileInfo(m_arguments.authorityCommand.value(0)).fileName()));
    if (!m_arguments.yes && !confirmed(QStringLiteral("Go on?"))) {
        throw Stop(ExitCode::declined);
    }

    const IssuedCertificate certificate =
        entry.verdict == Verdict::recovery
            ? recoveredCertificate(m_arguments)
            : obtainCertificate(m_arguments, entry, makeRequest(entry));
    install(entry, certificate);
    showResult(entry, certificate, entries);
}

void RenewalFlow::chooseReader()
{
    QString reader = m_arguments.reader;
    if (reader.isEmpty()) {
        reader = m_session.setting(keys::reader);
    }
    if (!set_reader(m_session.context(), reader)) {
        throw Stop(ExitCode::noReader, QStringLiteral("No reader was found."));
    }
    const QString chosen = m_session.setting(keys::reader);
    if (chosen.isEmpty()) {
        throw Stop(ExitCode::noReader, QStringLiteral("No reader was chosen."));
    }
    say(QStringLiteral("Reader:  ") + printable(chosen));
}

void RenewalFlow::givePin()
{
    RenewContext* context = m_session.context();
    QString pin;
    if (!m_arguments.pinFile.isEmpty()) {
        pin = pinFromFile(m_arguments.pinFile);
    } else if (!m_arguments.pinVariable.isEmpty()) {
        pin = pinFromEnvironment(m_arguments.pinVariable);
    }
    const bool given = !m_arguments.pinFile.isEmpty() || !m_arguments.pinVariable.isEmpty();
    if (given && pin.size() != pinLength) {
        wipe(pin);
        throw Stop(ExitCode::pinUnusable, QStringLiteral("The PIN given has not exactly eight "
                                                         "characters."));
    }
    if (given) {
        set_pin(context, pin);
    } else {
        askForPin(context);
    }
    if (m_session.setting(keys::pin).size() != pinLength) {
        throw Stop(ExitCode::pinUnusable,
                   QStringLiteral("The PIN typed has not exactly eight characters."));
    }

    const LogExcerpt excerpt;
    if (!verify_pin(context)) {
        // The library logs a refusal of the PIN and is silent when no session could be opened.
        // Where its log cannot be read, the worse of the two is assumed.
        const QString cause = excerpt.lines().join(QLatin1Char(' '));
        const bool silent = cause.isEmpty() && isLogReadable();
        throw Stop(silent ? ExitCode::cardUnreachable : ExitCode::pinRefused, printable(cause));
    }
    say(QStringLiteral("PIN:     accepted"));
}

void RenewalFlow::checkCard()
{
    const int result = verify_sc_and_reader(m_session.context());
    if (result == card_verification::noSession || result == card_verification::noReader) {
        throw Stop(ExitCode::cardUnreachable, cardCheckSentence(result));
    }
    if (result != card_verification::accepted) {
        throw Stop(ExitCode::cardRefused, cardCheckSentence(result));
    }
    say(QStringLiteral("Card:    %1 %2, serial number %3")
            .arg(cardText(szManufacturerID), cardText(szModel), cardText(szSerialNumber)));
}

std::vector<CertificateEntry> RenewalFlow::readInventory()
{
    const LogExcerpt excerpt;
    ErrorMessage.clear();
    m_session.dropInventory();
    const int result = fill_sc_objects(m_session.context());
    if (result == inventory_result::nothingOnCard || result == inventory_result::nothingRenewable) {
        throw Stop(ExitCode::nothingToRenew, inventorySentence(result));
    }
    if (result != inventory_result::completed) {
        throw Stop(ExitCode::inventoryFailed,
                   inventorySentence(result) + QLatin1Char(' ') + causeOf(excerpt));
    }
    return entriesOf(*m_session.context());
}

QByteArray RenewalFlow::makeRequest(const CertificateEntry& entry)
{
    if (!m_arguments.issuedFile.isEmpty() && entry.pendingKey.isEmpty()) {
        throw Stop(ExitCode::certificateRefused,
                   QStringLiteral("No key on the card waits for this certificate."),
                   QStringLiteral("Renew without --issued, or choose with --certificate the one "
                                  "that the file is for."));
    }
    say(QStringLiteral("The card makes the key and the request; this can take some seconds."));
    std::array<char, requestBufferSize> buffer{};
    const LogExcerpt excerpt;
    ErrorMessage.clear();
    if (Tarvelo_gen_p10_by_certid(m_session.context(), entry.renewalId, buffer.data()) != 1) {
        throw Stop(ExitCode::requestFailed, causeOf(excerpt));
    }
    const auto* end = std::find(buffer.begin(), buffer.end(), '\0');
    QByteArray request(buffer.data(), static_cast<int>(end - buffer.begin()));
    if (!m_arguments.saveRequestFile.isEmpty()) {
        writeWhole(m_arguments.saveRequestFile, request);
        say(QStringLiteral("The request is in ") + m_arguments.saveRequestFile);
    }
    return request;
}

void RenewalFlow::install(const CertificateEntry& entry, const IssuedCertificate& certificate)
{
    const auto keepOnScreen = [&certificate] {
        say(QStringLiteral("Keep this certificate:\n\n") + QString::fromLatin1(certificate.pem));
    };
    if (!m_arguments.saveCertificateFile.isEmpty()) {
        try {
            writeWhole(m_arguments.saveCertificateFile, certificate.pem);
        } catch (const Stop&) {
            keepOnScreen();
            throw;
        }
        say(QStringLiteral("The certificate is in ") + m_arguments.saveCertificateFile);
    }
    say(QStringLiteral("The card writes the certificate."));
    QByteArray text = certificate.pem;
    const LogExcerpt excerpt;
    ErrorMessage.clear();
    int result = 0;
    if (entry.verdict == Verdict::recovery) {
        RenewContext context = m_session.recoveryContext(entry.row);
        result = Tarvelo_install_cert(&context, entry.row, text.data());
    } else {
        result = Tarvelo_install_cert(m_session.context(), entry.renewalId, text.data());
    }
    if (result != 1) {
        if (m_arguments.saveCertificateFile.isEmpty() && m_arguments.issuedFile.isEmpty()) {
            keepOnScreen();
        }
        throw Stop(ExitCode::installationFailed, causeOf(excerpt));
    }
}

void RenewalFlow::showResult(const CertificateEntry& before, const IssuedCertificate& certificate,
                             const std::vector<CertificateEntry>& earlier)
{
    const std::vector<CertificateEntry> entries = readInventory();
    say(QStringLiteral("\nCertificates on the card now:\n\n") +
        certificateTable(entries, QDate::currentDate()) + QLatin1Char('\n'));
    const auto wasThere = [&earlier](const CertificateEntry& entry) {
        return std::any_of(earlier.begin(), earlier.end(), [&entry](const CertificateEntry& old) {
            return old.kind == entry.kind && old.serialNumber == entry.serialNumber;
        });
    };
    const auto renewed =
        std::find_if(entries.begin(), entries.end(), [&](const CertificateEntry& entry) {
            return entry.kind == before.kind && entry.validUntil == certificate.notAfter &&
                   entry.verdict != Verdict::recovery && !wasThere(entry);
        });
    if (renewed == entries.end()) {
        throw Stop(ExitCode::notSeenOnCard);
    }
    say(renewalResult(before, *renewed));
}

ExitCode renew(const Arguments& arguments)
{
    QString log;
    const auto ended = [&log](const Stop& stop) {
        complain(QLatin1Char('\n') + stopMessage(stop, log));
        return stop.code();
    };
    try {
        RenewalFlow flow(arguments);
        log = logPlace();
        flow.run();
        return ExitCode::renewed;
    } catch (const Stop& stop) {
        return ended(stop);
    } catch (const std::exception& error) {
        return ended(Stop(ExitCode::internalError, QString::fromLocal8Bit(error.what())));
    }
}

}  // namespace console
