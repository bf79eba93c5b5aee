// A folder whose files only the user can read or change, each written whole or not at all.
//
// The folder and the one above it are the user's own and writable by nobody else, or nothing is
// read from or written to them: whoever can write there could put links and files of his own in
// place. Files are reached through the opened folder, so that exchanging it later changes nothing.
// All failures throw Stop with ExitCode::fileFailed, the path and the reason.

#ifndef TARVELOQT_HOSTS_CONSOLE_PRIVATE_FOLDER_H
#define TARVELOQT_HOSTS_CONSOLE_PRIVATE_FOLDER_H

#include "hosts/console/owned_descriptor.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace console {

class PrivateFolder {
public:
    // The folder parent/name; nothing when one of the two is not there. It becomes readable by its
    // owner alone (0700).
    static std::optional<PrivateFolder> existing(const QString& parent, const QString& name);
    // The same, made where missing, with mode 0700 whatever the umask.
    static PrivateFolder made(const QString& parent, const QString& name);

    // Names of all entries but those that begin with a dot, in no order.
    QStringList names() const;

    // The content of a file of at most `largest` bytes; nothing when there is no such file.
    std::optional<QByteArray> read(const QString& name, int largest) const;

    // Replaces the file, mode 0600. It has reached the disk when this returns; when it throws, or
    // the process ends before, the earlier file is whole. Of several writers the last one wins.
    void write(const QString& name, const QByteArray& bytes) const;

    // It is no error that the file is gone already.
    void remove(const QString& name) const;

    QString pathOf(const QString& name) const;

private:
    PrivateFolder(OwnedDescriptor folder, QString path);

    void removeLeftovers() const;
    void sync() const;

    OwnedDescriptor m_folder;
    QString m_path;
};

}  // namespace console

#endif
