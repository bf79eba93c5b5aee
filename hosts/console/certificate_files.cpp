#include "hosts/console/certificate_files.h"

#include "hosts/console/exit_code.h"

#include <QFile>
#include <QSaveFile>

namespace console {

namespace {

constexpr qint64 largestFile = 1048576;

[[noreturn]] void cannotRead(const QString& path, const QString& why)
{
    throw Stop(ExitCode::fileFailed,
               Text("Impossibile leggere il file %1: %2.", "The file %1 cannot be read: %2.")
                   .arg(path, why));
}

}  // namespace

QByteArray readWhole(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        cannotRead(path, file.errorString());
    }
    QByteArray bytes = file.read(largestFile + 1);
    if (file.error() != QFileDevice::NoError) {
        cannotRead(path, file.errorString());
    }
    if (bytes.size() > largestFile) {
        cannotRead(path,
                   Text("è troppo grande per un certificato", "it is too large for a certificate"));
    }
    return bytes;
}

void writeWhole(const QString& path, const QByteArray& bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        throw Stop(ExitCode::fileFailed, Text("Impossibile scrivere il file %1: %2.",
                                              "The file %1 cannot be written: %2.")
                                             .arg(path, file.errorString()));
    }
}

}  // namespace console
