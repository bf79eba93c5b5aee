#include "hosts/console/private_folder.h"

#include "hosts/console/exit_code.h"

#include <QFile>
#include <QRandomGenerator>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

namespace console {

namespace {

constexpr mode_t folderMode = S_IRWXU;
constexpr mode_t fileMode = S_IRUSR | S_IWUSR;
constexpr mode_t writableByOthers = S_IWGRP | S_IWOTH;

// Longer than any write takes: an older unfinished file has no writer any more.
constexpr time_t leftoverAgeSeconds = 3600;
constexpr const char* unfinishedSuffix = ".unfinished";

QString reason(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

[[noreturn]] void cannotRead(const QString& path, const QString& why)
{
    throw Stop(ExitCode::fileFailed,
               Text("Impossibile leggere %1: %2.", "%1 cannot be read: %2.").arg(path, why));
}

[[noreturn]] void cannotWrite(const QString& path, const QString& why)
{
    throw Stop(ExitCode::fileFailed,
               Text("Impossibile scrivere %1: %2.", "%1 cannot be written: %2.").arg(path, why),
               Text("Controllare lo spazio libero sul disco e i permessi, poi riprovare.",
                    "Check the free space on the disk and the permissions, then try again."));
}

[[noreturn]] void belongsToAnother(const QString& path)
{
    throw Stop(ExitCode::fileFailed,
               Text("%1 appartiene a un altro utente.", "%1 belongs to another user.").arg(path),
               Text("Avviare il programma come l'utente a cui la cartella appartiene.",
                    "Run the program as the user to whom the folder belongs."));
}

[[noreturn]] void othersCanWrite(const QString& path)
{
    throw Stop(ExitCode::fileFailed,
               Text("%1 è modificabile da altri utenti: il contenuto non è affidabile.",
                    "%1 can be changed by other users: what is in it cannot be trusted.")
                   .arg(path),
               Text("Controllarne il contenuto, poi togliere il permesso: chmod go-w %1",
                    "Look at what is in it, then take the permission away: chmod go-w %1")
                   .arg(path));
}

void requireOwn(const struct stat& status, const QString& path)
{
    if (status.st_uid != ::geteuid()) {
        belongsToAnother(path);
    }
    if ((status.st_mode & writableByOthers) != 0) {
        othersCanWrite(path);
    }
}

// The folder `name` in the folder `base`, checked; none when it is not there.
OwnedDescriptor openedFolder(int base, const QString& name, const QString& path, int linkFlag)
{
    OwnedDescriptor folder(::openat(base, QFile::encodeName(name).constData(),
                                    O_RDONLY | O_DIRECTORY | O_CLOEXEC | linkFlag));
    if (!folder.isOpen()) {
        if (errno != ENOENT) {
            cannotRead(path, reason(errno));
        }
        return folder;
    }
    struct stat status {};
    if (::fstat(folder.get(), &status) != 0) {
        cannotRead(path, reason(errno));
    }
    requireOwn(status, path);
    return folder;
}

void makeFolder(int base, const QString& name, const QString& path)
{
    const QByteArray encoded = QFile::encodeName(name);
    if (::mkdirat(base, encoded.constData(), folderMode) != 0) {
        if (errno != EEXIST) {
            cannotWrite(path, reason(errno));
        }
        return;
    }
    // The umask may have taken away what is needed to open it.
    if (::fchmodat(base, encoded.constData(), folderMode, 0) != 0) {
        cannotWrite(path, reason(errno));
    }
}

// A user who keeps his settings elsewhere may link the parent; the folder in it is never a link.
OwnedDescriptor openedParent(const QString& parent)
{
    return openedFolder(AT_FDCWD, parent, parent, 0);
}

OwnedDescriptor openedInside(const OwnedDescriptor& parent, const QString& name,
                             const QString& path)
{
    OwnedDescriptor folder = openedFolder(parent.get(), name, path, O_NOFOLLOW);
    if (folder.isOpen() && ::fchmod(folder.get(), folderMode) != 0) {
        cannotWrite(path, reason(errno));
    }
    return folder;
}

// A file of the folder that has no name of its own yet; removed unless it gets one.
class UnfinishedFile {
public:
    UnfinishedFile(int folder, QString finalPath)
        : m_folder(folder)
        , m_finalPath(std::move(finalPath))
        , m_name('.' + QByteArray::number(QRandomGenerator::system()->generate64(), 16) +
                 unfinishedSuffix)
        , m_file(::openat(folder, m_name.constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, fileMode))
    {
        if (!m_file.isOpen()) {
            cannotWrite(m_finalPath, reason(errno));
        }
    }
    ~UnfinishedFile()
    {
        if (!m_finished) {
            // Should it stay, a later write removes it.
            static_cast<void>(::unlinkat(m_folder, m_name.constData(), 0));
        }
    }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    UnfinishedFile(UnfinishedFile&&) = delete;
    UnfinishedFile& operator=(UnfinishedFile&&) = delete;

    void fill(const QByteArray& bytes) const
    {
        int done = 0;
        while (done < bytes.size()) {
            const ssize_t written = ::write(m_file.get(), bytes.constData() + done,
                                            static_cast<size_t>(bytes.size() - done));
            if (written < 0 && errno != EINTR) {
                cannotWrite(m_finalPath, reason(errno));
            }
            done += written > 0 ? static_cast<int>(written) : 0;
        }
        if (::fchmod(m_file.get(), fileMode) != 0 || ::fsync(m_file.get()) != 0) {
            cannotWrite(m_finalPath, reason(errno));
        }
    }

    void finishAs(const QByteArray& name)
    {
        if (::renameat(m_folder, m_name.constData(), m_folder, name.constData()) != 0) {
            cannotWrite(m_finalPath, reason(errno));
        }
        m_finished = true;
    }

private:
    int m_folder;
    QString m_finalPath;
    QByteArray m_name;
    OwnedDescriptor m_file;
    bool m_finished = false;
};

// Reads up to `largest` + 1 bytes, so that the caller sees whether there is too much.
QByteArray content(const OwnedDescriptor& file, int largest, const QString& path)
{
    QByteArray bytes;
    std::array<char, 4096> part{};
    while (bytes.size() <= largest) {
        const ssize_t got = ::read(file.get(), part.data(), part.size());
        if (got == 0) {
            break;
        }
        if (got < 0 && errno != EINTR) {
            cannotRead(path, reason(errno));
        }
        if (got > 0) {
            bytes.append(part.data(), static_cast<int>(got));
        }
    }
    return bytes;
}

// Every entry of the folder but "." and "..".
QList<QByteArray> entries(int folder, const QString& path)
{
    // A descriptor of its own, because reading moves a position that copies would share.
    OwnedDescriptor copy(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!copy.isOpen()) {
        cannotRead(path, reason(errno));
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(copy.get()), &::closedir);
    if (stream == nullptr) {
        cannotRead(path, reason(errno));
    }
    static_cast<void>(copy.release());
    QList<QByteArray> names;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(stream.get());  // NOLINT(concurrency-mt-unsafe)
        if (entry == nullptr) {
            if (errno != 0) {
                cannotRead(path, reason(errno));
            }
            return names;
        }
        const QByteArray name(static_cast<const char*>(entry->d_name));
        if (name != "." && name != "..") {
            names.append(name);
        }
    }
}

}  // namespace

PrivateFolder::PrivateFolder(OwnedDescriptor folder, QString path)
    : m_folder(std::move(folder))
    , m_path(std::move(path))
{
}

std::optional<PrivateFolder> PrivateFolder::existing(const QString& parent, const QString& name)
{
    const QString path = parent + QLatin1Char('/') + name;
    const OwnedDescriptor above = openedParent(parent);
    if (!above.isOpen()) {
        return std::nullopt;
    }
    OwnedDescriptor folder = openedInside(above, name, path);
    if (!folder.isOpen()) {
        return std::nullopt;
    }
    return PrivateFolder(std::move(folder), path);
}

PrivateFolder PrivateFolder::made(const QString& parent, const QString& name)
{
    const QString path = parent + QLatin1Char('/') + name;
    makeFolder(AT_FDCWD, parent, parent);
    const OwnedDescriptor above = openedParent(parent);
    if (!above.isOpen()) {
        cannotWrite(parent, reason(ENOENT));
    }
    makeFolder(above.get(), name, path);
    OwnedDescriptor folder = openedInside(above, name, path);
    if (!folder.isOpen()) {
        cannotWrite(path, reason(ENOENT));
    }
    return {std::move(folder), path};
}

QStringList PrivateFolder::names() const
{
    QStringList visible;
    for (const QByteArray& name : entries(m_folder.get(), m_path)) {
        if (!name.startsWith('.')) {
            visible.append(QFile::decodeName(name));
        }
    }
    return visible;
}

std::optional<QByteArray> PrivateFolder::read(const QString& name, int largest) const
{
    const QString path = pathOf(name);
    // O_NONBLOCK: a named pipe must not make the program wait.
    const OwnedDescriptor file(::openat(m_folder.get(), QFile::encodeName(name).constData(),
                                        O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen()) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        cannotRead(path, reason(errno));
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        cannotRead(path, reason(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        cannotRead(path, Text("non è un file ordinario", "it is no ordinary file"));
    }
    requireOwn(status, path);
    QByteArray bytes = content(file, largest, path);
    if (bytes.size() > largest) {
        cannotRead(path, Text("supera %1 byte", "it is larger than %1 bytes").arg(largest));
    }
    return bytes;
}

void PrivateFolder::write(const QString& name, const QByteArray& bytes) const
{
    removeLeftovers();
    UnfinishedFile file(m_folder.get(), pathOf(name));
    file.fill(bytes);
    file.finishAs(QFile::encodeName(name));
    sync();
}

void PrivateFolder::remove(const QString& name) const
{
    if (::unlinkat(m_folder.get(), QFile::encodeName(name).constData(), 0) != 0) {
        if (errno == ENOENT) {
            return;
        }
        cannotWrite(pathOf(name), reason(errno));
    }
    sync();
}

QString PrivateFolder::pathOf(const QString& name) const
{
    return m_path + QLatin1Char('/') + name;
}

void PrivateFolder::removeLeftovers() const
{
    const time_t oldest = std::time(nullptr) - leftoverAgeSeconds;
    for (const QByteArray& name : entries(m_folder.get(), m_path)) {
        struct stat status {};
        if (name.startsWith('.') && name.endsWith(unfinishedSuffix) &&
            ::fstatat(m_folder.get(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode) && status.st_mtime < oldest) {
            // Another process may have been quicker.
            static_cast<void>(::unlinkat(m_folder.get(), name.constData(), 0));
        }
    }
}

void PrivateFolder::sync() const
{
    // EINVAL: the file system does not sync folders, so there is nothing to wait for.
    if (::fsync(m_folder.get()) != 0 && errno != EINVAL) {
        cannotWrite(m_path, reason(errno));
    }
}

}  // namespace console
