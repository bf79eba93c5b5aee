#include "hosts/console/certificate_files.h"

#include "hosts/console/exit_code.h"

#include <QFile>
#include <QSaveFile>

namespace console {

namespace {

constexpr qint64 largestFile = 1048576;

[[noreturn]] void fail(const QString& what, const QString& path, const QString& why)
{
    throw Stop(ExitCode::fileFailed,
               QStringLiteral("The file %1 cannot be %2: %3.").arg(path, what, why));
}

}  // namespace

QByteArray readWhole(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(QStringLiteral("read"), path, file.errorString());
    }
    QByteArray bytes = file.read(largestFile + 1);
    if (file.error() != QFileDevice::NoError) {
        fail(QStringLiteral("read"), path, file.errorString());
    }
    if (bytes.size() > largestFile) {
        fail(QStringLiteral("read"), path, QStringLiteral("it is too large for a certificate"));
    }
    return bytes;
}

void writeWhole(const QString& path, const QByteArray& bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        fail(QStringLiteral("written"), path, file.errorString());
    }
}

}  // namespace console
