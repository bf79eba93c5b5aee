#include "hosts/console/record_store.h"

#include "hosts/console/private_folder.h"

#include <QDir>
#include <QRegularExpression>

#include <utility>

namespace console {

namespace {

const QString folderName = QStringLiteral("renewals");

// A record with a certificate of 4,096-bit RSA takes some 5,000 bytes.
constexpr int largestRecord = 262144;

// The digest that a record's file is named after; nothing for other files.
std::optional<QString> digestOf(const QString& fileName)
{
    static const QRegularExpression pattern(QStringLiteral(R"(\A([0-9a-f]{64})\.json\z)"));
    const QRegularExpressionMatch match = pattern.match(fileName);
    return match.hasMatch() ? std::make_optional(match.captured(1)) : std::nullopt;
}

QString fileNameOf(const QString& digest)
{
    QString name = digest + QStringLiteral(".json");
    if (!digestOf(name)) {
        throw Stop(ExitCode::internalError,
                   Text("Un'annotazione di rinnovo non ha l'impronta della sua chiave.",
                        "A renewal record lacks the digest of its key."));
    }
    return name;
}

[[noreturn]] void recordOfOtherKey(const QString& path)
{
    throw Stop(ExitCode::fileFailed,
               Text("L'annotazione di rinnovo %1 è di un'altra chiave: il nome del file non è "
                    "quello della chiave nella richiesta.",
                    "The renewal record %1 is that of another key: the file's name is not that of "
                    "the key in the request.")
                   .arg(path),
               Text("Ridare al file il suo nome, cioè il valore di publicKeySha256 seguito da "
                    ".json, oppure spostarlo altrove.",
                    "Give the file its name again, the value of publicKeySha256 followed by .json, "
                    "or move it away."));
}

std::optional<RenewalRecord> readRecord(const PrivateFolder& folder, const QString& digest)
{
    const QString name = fileNameOf(digest);
    const std::optional<QByteArray> json = folder.read(name, largestRecord);
    if (!json) {
        return std::nullopt;
    }
    RenewalRecord record = recordFromJson(*json, folder.pathOf(name));
    if (record.publicKeyDigest != digest) {
        recordOfOtherKey(folder.pathOf(name));
    }
    return record;
}

}  // namespace

QString RecordStore::userFolder()
{
    return QDir::homePath() + QStringLiteral("/.brisko");
}

RecordStore::RecordStore(QString userFolder)
    : m_userFolder(std::move(userFolder))
{
}

void RecordStore::prepare() const
{
    PrivateFolder::made(m_userFolder, folderName);
}

RecordListing RecordStore::list() const
{
    RecordListing listing;
    const auto folder = PrivateFolder::existing(m_userFolder, folderName);
    if (!folder) {
        return listing;
    }
    QStringList names = folder->names();
    names.sort();
    for (const QString& name : names) {
        const std::optional<QString> digest = digestOf(name);
        if (!digest) {
            continue;
        }
        try {
            if (auto record = readRecord(*folder, *digest)) {
                listing.records.push_back(std::move(*record));
            }
        } catch (const Stop& complaint) {
            listing.complaints.push_back(complaint);
        }
    }
    sortByAge(listing.records);
    return listing;
}

std::optional<RenewalRecord> RecordStore::find(const QString& publicKeyDigest) const
{
    const auto folder = PrivateFolder::existing(m_userFolder, folderName);
    return folder ? readRecord(*folder, publicKeyDigest) : std::nullopt;
}

void RecordStore::save(const RenewalRecord& record) const
{
    const QString name = fileNameOf(record.publicKeyDigest);
    const PrivateFolder folder = PrivateFolder::made(m_userFolder, folderName);
    const QByteArray json = toJson(record);
    // What could not be read again would only be missed when it is needed.
    static_cast<void>(recordFromJson(json, folder.pathOf(name)));
    if (json.size() > largestRecord) {
        throw Stop(ExitCode::internalError,
                   Text("L'annotazione di rinnovo %1 supererebbe %2 byte.",
                        "The renewal record %1 would be larger than %2 bytes.")
                       .arg(folder.pathOf(name), QString::number(largestRecord)));
    }
    folder.write(name, json);
}

void RecordStore::remove(const QString& publicKeyDigest) const
{
    const auto folder = PrivateFolder::existing(m_userFolder, folderName);
    if (folder) {
        folder->remove(fileNameOf(publicKeyDigest));
    }
}

}  // namespace console
