#include "hosts/console/card_work.h"

#include "hosts/console/log_excerpt.h"
#include "hosts/console/pin_source.h"
#include "hosts/console/pin_tries.h"
#include "hosts/console/progress.h"
#include "hosts/console/reader_choice.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <algorithm>
#include <array>
#include <iterator>

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

// The library's own words on a failure: its message for the user, else what it logged.
QString causeOf(const LogExcerpt& excerpt)
{
    return printable(ErrorMessage.isEmpty() ? excerpt.lines().join(QLatin1Char(' '))
                                            : ErrorMessage.simplified());
}

}  // namespace

CardWork::CardWork(const Arguments& arguments)
    : m_arguments(arguments)
{
    noteLogPlace();
}

QString CardWork::chooseReader()
{
    const QString reader = console::chooseReader(
        m_arguments.reader.isEmpty() ? m_session.setting(keys::reader) : m_arguments.reader);
    bool isListed = false;
    {
        const LibraryStreams streams(libraryOutput(), libraryInput());
        isListed = set_reader(m_session.context(), reader);
    }
    if (!isListed) {
        throw Stop(ExitCode::noReader, Text("Nessun lettore trovato.", "No reader was found."));
    }
    QString chosen = m_session.setting(keys::reader);
    if (chosen.isEmpty()) {
        throw Stop(ExitCode::noReader,
                   Text("Nessun lettore è stato scelto.", "No reader was chosen."));
    }
    return chosen;
}

QString CardWork::givenPin() const
{
    if (!m_arguments.pinFile.isEmpty()) {
        return pinFromFile(m_arguments.pinFile);
    }
    if (m_arguments.pinDescriptor) {
        return pinFromDescriptor(*m_arguments.pinDescriptor);
    }
    return pinFromEnvironment(m_arguments.pinVariable);
}

void CardWork::askForPin()
{
    RenewContext* context = m_session.context();
    for (int question = 0; question < pinQuestions; ++question) {
        {
            const LibraryStreams streams(libraryOutput(), libraryInput());
            set_pin(context, QString());
        }
        const int length = context->value(keys::settingsRow).value(keys::pin).size();
        if (length == pinLength || !isTerminal()) {
            return;
        }
        wipe((*context)[keys::settingsRow][keys::pin]);
        say(Text("Il PIN ha otto caratteri esatti.", "The PIN has exactly eight characters."));
    }
}

void CardWork::givePin()
{
    RenewContext* context = m_session.context();
    if (!m_arguments.namesPinSource() && !mayAsk()) {
        throw Stop(ExitCode::pinUnusable,
                   Text("Il PIN manca, e senza terminale non viene chiesto.",
                        "There is no PIN, and without a terminal it is not asked for."),
                   Text("Darlo con --pin-file, --pin-fd o --pin-env; con --ask viene letto dallo "
                        "standard input.",
                        "Give it with --pin-file, --pin-fd or --pin-env; with --ask it is read "
                        "from standard input."));
    }
    checkPinTries(m_session.setting(keys::reader), m_arguments.lastTry);
    if (m_arguments.namesPinSource()) {
        QString pin = givenPin();
        if (pin.size() != pinLength) {
            wipe(pin);
            throw Stop(ExitCode::pinUnusable, Text("Il PIN dato non ha otto caratteri esatti.",
                                                   "The PIN given has not exactly eight "
                                                   "characters."));
        }
        set_pin(context, pin);
    } else {
        askForPin();
    }
    if (m_session.setting(keys::pin).size() != pinLength) {
        throw Stop(ExitCode::pinUnusable, Text("Il PIN scritto non ha otto caratteri esatti.",
                                               "The PIN typed has not exactly eight characters."));
    }

    const LogExcerpt excerpt;
    bool isAccepted = false;
    {
        const LibraryStreams streams(libraryOutput(), libraryInput());
        isAccepted = verify_pin(context);
    }
    if (!isAccepted) {
        // The library logs a refusal of the PIN and is silent when no session could be opened.
        // Where its log cannot be read, the worse of the two is assumed.
        const QString cause = excerpt.lines().join(QLatin1Char(' '));
        const bool silent = cause.isEmpty() && isLogReadable();
        throw Stop(silent ? ExitCode::cardUnreachable : ExitCode::pinRefused, printable(cause));
    }
}

CardIdentity CardWork::checkCard()
{
    int result = 0;
    {
        const LibraryStreams streams(libraryOutput(), libraryInput());
        result = verify_sc_and_reader(m_session.context());
    }
    if (result == card_verification::noSession || result == card_verification::noReader) {
        throw Stop(ExitCode::cardUnreachable, cardCheckSentence(result));
    }
    if (result != card_verification::accepted) {
        throw Stop(ExitCode::cardRefused, cardCheckSentence(result));
    }
    return {cardText(szManufacturerID), cardText(szModel), cardText(szSerialNumber), cardText(lib),
            isCNS};
}

std::vector<CertificateEntry> CardWork::readCertificates()
{
    const LogExcerpt excerpt;
    ErrorMessage.clear();
    m_session.dropInventory();
    int result = 0;
    {
        const LibraryStreams streams(libraryOutput(), libraryInput());
        result = fill_sc_objects(m_session.context());
    }
    if (result == inventory_result::nothingOnCard) {
        return {};
    }
    if (result != inventory_result::completed && result != inventory_result::nothingRenewable) {
        throw Stop(ExitCode::inventoryFailed,
                   inventorySentence(result) + QLatin1Char(' ') + causeOf(excerpt));
    }
    return certificateEntries(*m_session.context(),
                              {QDate::currentDate(), descriptorOnCard, [](RenewRecord& record) {
                                   return addRemainingDaysToNotAfter(record);
                               }});
}

QByteArray CardWork::makeRequest(const CertificateEntry& entry)
{
    std::array<char, requestBufferSize> buffer{};
    const LogExcerpt excerpt;
    ErrorMessage.clear();
    int result = 0;
    {
        const Progress progress;
        const LibraryStreams streams(libraryOutput(), libraryInput());
        result = Tarvelo_gen_p10_by_certid(m_session.context(), entry.renewalId, buffer.data());
    }
    if (result != 1) {
        throw Stop(ExitCode::requestFailed, causeOf(excerpt));
    }
    const auto* end = std::find(buffer.begin(), buffer.end(), '\0');
    return {buffer.data(), static_cast<int>(end - buffer.begin())};
}

void CardWork::install(const CertificateEntry& entry, const QByteArray& pem)
{
    QByteArray text = pem;
    const LogExcerpt excerpt;
    ErrorMessage.clear();
    int result = 0;
    {
        const Progress progress;
        const LibraryStreams streams(libraryOutput(), libraryInput());
        if (entry.verdict == Verdict::recovery) {
            RenewContext context = m_session.recoveryContext(entry.row);
            result = Tarvelo_install_cert(&context, entry.row, text.data());
        } else {
            result = Tarvelo_install_cert(m_session.context(), entry.renewalId, text.data());
        }
    }
    if (result != 1) {
        throw Stop(ExitCode::installationFailed, causeOf(excerpt));
    }
}

}  // namespace console
