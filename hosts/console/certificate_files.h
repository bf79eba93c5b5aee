// Requests and certificates on disk.

#ifndef TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_FILES_H
#define TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_FILES_H

#include <QByteArray>
#include <QString>

namespace console {

// The file's bytes. Throws Stop (fileFailed) when it cannot be read or is larger than any
// certificate chain (1,048,576 bytes).
QByteArray readWhole(const QString& path);

// Writes the file whole or not at all; an existing one is replaced. Throws Stop (fileFailed).
void writeWhole(const QString& path, const QByteArray& bytes);

}  // namespace console

#endif
