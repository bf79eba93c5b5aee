#include "hosts/enrolment/configuration.h"

#include "hosts/enrolment/configured_file.h"
#include "hosts/enrolment/enrolment_error.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <QDir>
#include <QFileInfo>

#include <ini.h>

#include <cstring>
#include <optional>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

const QString wayKey = QStringLiteral("way");
const QString profileKey = QStringLiteral("profile");
const QString profilePrefix = QStringLiteral("profile.");

[[noreturn]] void failInFile(const QString& path, const QString& what)
{
    throw EnrolmentError(Cause::misconfigured, QStringLiteral("%1: %2").arg(printable(path), what));
}

// What inih is told while it reads.
struct Reading {
    QList<QByteArray> lines;
    int line = 0;
    QString wanted;
    // Set when the section was seen.
    std::optional<QMap<QString, QString>> values;
    QString complaint;
};

QString onLine(int line, const QString& what)
{
    return Text("riga %1: %2", "line %1: %2").arg(QString::number(line), what);
}

char* nextLine(char* buffer, int size, void* stream)
{
    Reading& reading = *static_cast<Reading*>(stream);
    if (reading.line >= reading.lines.size()) {
        return nullptr;
    }
    QByteArray line = reading.lines.at(reading.line);
    ++reading.line;
    // With the line end and a NUL; inih would go on with the rest as with a line of its own.
    if (line.size() + 2 > size) {
        reading.complaint = onLine(
            reading.line, Text("supera %1 byte", "it is longer than %1 bytes").arg(size - 2));
        return nullptr;
    }
    line.append('\n');
    std::memcpy(buffer, line.constData(), static_cast<std::size_t>(line.size()) + 1);
    return buffer;
}

int takeLine(void* user, const char* section, const char* key, const char* value)
{
    Reading& reading = *static_cast<Reading*>(user);
    if (QString::fromUtf8(section) != reading.wanted) {
        return 1;
    }
    if (!reading.values) {
        reading.values.emplace();
    }
    const QString name = QString::fromUtf8(key);
    if (reading.values->contains(name)) {
        if (reading.complaint.isEmpty()) {
            reading.complaint = onLine(reading.line, Text("\"%1\" c'è già in questa sezione",
                                                          "\"%1\" is there already in this section")
                                                         .arg(printable(name)));
        }
        return 0;
    }
    reading.values->insert(name, QString::fromUtf8(value));
    return 1;
}

std::optional<Configuration> sectionOf(const QString& name, const QString& path)
{
    Reading reading;
    reading.wanted = name;
    reading.lines = contentOf(path).split('\n');
    const int brokenLine = ini_parse_stream(nextLine, &reading, takeLine, &reading);
    if (!reading.complaint.isEmpty()) {
        failInFile(path, reading.complaint);
    }
    if (brokenLine != 0) {
        failInFile(path, onLine(brokenLine, Text("non è né [SEZIONE] né chiave = valore",
                                                 "it is neither [SECTION] nor key = value")));
    }
    if (!reading.values) {
        return std::nullopt;
    }
    Configuration configuration;
    configuration.name = name;
    configuration.way = reading.values->take(wayKey);
    configuration.values = *reading.values;
    configuration.folder = QFileInfo(path).absolutePath();
    return configuration;
}

// The key that the one value of WAY:VALUE belongs to.
QString soleKeyOf(const QString& way)
{
    static const QMap<QString, QString> keys{
        {QStringLiteral("file"), QStringLiteral("folder")},
        {QStringLiteral("command"), QStringLiteral("command")},
        {QStringLiteral("est"), QStringLiteral("url")},
        {QStringLiteral("cmp"), QStringLiteral("url")},
    };
    return keys.value(way);
}

}  // namespace

Configuration configurationFrom(const QString& text, const QString& file)
{
    const int colon = text.indexOf(QLatin1Char(':'));
    if (colon < 0) {
        std::optional<Configuration> section = sectionOf(text, file);
        if (!section) {
            failInFile(
                file,
                Text("non c'è la sezione [%1]", "there is no section [%1]").arg(printable(text)));
        }
        return *std::move(section);
    }
    Configuration configuration;
    configuration.name = text;
    configuration.way = text.left(colon);
    const QString key = soleKeyOf(configuration.way);
    if (key.isEmpty()) {
        failMisconfigured(configuration, Text("Prima di \":\" può stare file, command, est o cmp.",
                                              "Before \":\" can be file, command, est or cmp."));
    }
    configuration.values.insert(key, text.mid(colon + 1));
    return configuration;
}

std::optional<Configuration> defaultConfiguration(const QString& file)
{
    return QFileInfo::exists(file) ? sectionOf(QStringLiteral("default"), file) : std::nullopt;
}

QString valueOf(const Configuration& configuration, const QString& key)
{
    return configuration.values.value(key);
}

QString requiredValueOf(const Configuration& configuration, const QString& key)
{
    QString value = valueOf(configuration, key);
    if (value.isEmpty()) {
        failMisconfigured(configuration, Text("Manca \"%1\".", "\"%1\" is missing.").arg(key));
    }
    return value;
}

QString pathOf(const Configuration& configuration, const QString& key)
{
    const QString value = valueOf(configuration, key);
    return value.isEmpty() ? value : QDir(configuration.folder).absoluteFilePath(value);
}

std::chrono::seconds secondsOf(const Configuration& configuration, const QString& key,
                               std::chrono::seconds otherwise)
{
    const QString value = valueOf(configuration, key);
    if (value.isEmpty()) {
        return otherwise;
    }
    bool isNumber = false;
    const int seconds = value.toInt(&isNumber);
    if (!isNumber || seconds < 1 || seconds > 3600) {
        failMisconfigured(configuration, Text("\"%1\" è in secondi, da 1 a 3600.",
                                              "\"%1\" is in seconds, from 1 to 3600.")
                                             .arg(key));
    }
    return std::chrono::seconds(seconds);
}

void requireKnownKeys(const Configuration& configuration, const QStringList& known,
                      bool withProfiles)
{
    for (const QString& key : configuration.values.keys()) {
        const bool isProfile = withProfiles && (key == profileKey || key.startsWith(profilePrefix));
        if (!known.contains(key) && !isProfile) {
            failMisconfigured(
                configuration,
                Text(R"(La via "%1" non conosce "%2".)", R"(The way "%1" does not know "%2".)")
                    .arg(printable(configuration.way), printable(key)));
        }
    }
}

QString profileFor(const Configuration& configuration, const QString& policy)
{
    if (policy.isEmpty()) {
        return valueOf(configuration, profileKey);
    }
    QString profile = valueOf(configuration, profilePrefix + policy);
    if (profile.isEmpty()) {
        throw EnrolmentError(
            Cause::policyUnsupported,
            Text("Per la politica %1 non è configurato un profilo di %2: la richiesta non è stata "
                 "inviata.",
                 "No profile of %2 is configured for the policy %1: the request was not sent.")
                .arg(printable(policy), printable(configuration.name)),
            Text("Chiedere all'autorità quale profilo serve e scriverlo come profile.%1 nella "
                 "configurazione.",
                 "Ask the authority which profile is needed and write it as profile.%1 into the "
                 "configuration.")
                .arg(printable(policy)));
    }
    return profile;
}

void failMisconfigured(const Configuration& configuration, const QString& sentence)
{
    throw EnrolmentError(Cause::misconfigured, Text("Autorità \"%1\": %2", "Authority \"%1\": %2")
                                                   .arg(printable(configuration.name), sentence));
}

}  // namespace enrolment
