#include "hosts/console/module_findings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>

namespace console {

namespace {

struct SoftHsm {
    QString configuration;
    // Empty when the configuration cannot be read.
    QString tokenFolder;
};

// Where SoftHSM2 looks, in its order: softhsm2.conf(5).
QString softHsmConfiguration()
{
    QString chosen = QFile::decodeName(qgetenv("SOFTHSM2_CONF"));
    if (!chosen.isEmpty()) {
        return chosen;
    }
    const QString own = QDir::homePath() + QStringLiteral("/.config/softhsm2/softhsm2.conf");
    return QFileInfo::exists(own) ? own : QStringLiteral("/etc/softhsm/softhsm2.conf");
}

SoftHsm lookAtSoftHsm()
{
    SoftHsm look;
    look.configuration = softHsmConfiguration();
    QFile file(look.configuration);
    if (!QFileInfo(file).isFile() || !file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return look;
    }
    look.tokenFolder = QStringLiteral("/var/lib/softhsm/tokens");
    for (const QByteArray& line : file.readAll().split('\n')) {
        const int equals = line.indexOf('=');
        if (equals > 0 && line.left(equals).trimmed() == "directories.tokendir") {
            look.tokenFolder = QFile::decodeName(line.mid(equals + 1).trimmed());
        }
    }
    return look;
}

bool isUsableFolder(const QString& path)
{
    const QFileInfo folder(path);
    return folder.isDir() && folder.isReadable() && folder.isExecutable();
}

// What the loader says, without the path that it begins with.
QString loaderReason(const QString& path)
{
    QString reason = QString::fromLocal8Bit(dlerror());
    if (reason.startsWith(path + QLatin1String(": "))) {
        reason.remove(0, path.size() + 2);
    }
    return reason;
}

}  // namespace

Finding unloadableModule(const QString& name, const QString& file)
{
    const QString path = file.isEmpty() ? name : file;
    if (path.contains(QLatin1Char('/')) && !QFileInfo::exists(path)) {
        return Finding(FindingId::moduleMissing, path);
    }
    void* module = dlopen(QFile::encodeName(path).constData(), RTLD_LAZY | RTLD_LOCAL);
    if (module == nullptr) {
        return Finding(FindingId::moduleBroken, path, loaderReason(path));
    }
    const bool offersList = dlsym(module, "C_GetFunctionList") != nullptr;
    const QString reason =
        offersList ? Text("C_GetFunctionList rifiuta", "C_GetFunctionList refuses").string()
                   : Text("manca C_GetFunctionList", "C_GetFunctionList is missing").string();
    dlclose(module);
    return Finding(FindingId::moduleBroken, path, reason);
}

Finding failingModule(const QString& name, const QString& text)
{
    if (name.contains(QLatin1String("softhsm2"))) {
        const SoftHsm look = lookAtSoftHsm();
        if (look.tokenFolder.isEmpty()) {
            return Finding(FindingId::softHsmConfigurationMissing, look.configuration);
        }
        if (!isUsableFolder(look.tokenFolder)) {
            return Finding(FindingId::softHsmTokensUnreadable, look.tokenFolder);
        }
    }
    return Finding(FindingId::moduleFailing, name, text);
}

}  // namespace console
