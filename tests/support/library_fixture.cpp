#include "library_fixture.h"

#include "transcript.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace support {

std::string fileContents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::string& contents)
{
    std::ofstream file(path, std::ios::binary);
    file << contents;
    ASSERT_TRUE(file.good()) << path;
}

void resetVariables()
{
    outLogFile.flush();
    outLogFile.setDevice(nullptr);
    RENEWLOGFILE.close();
    RENEWLOGFILE.setFileName(QString());

    for (QString* text : {&ATRini, &BriskoSettingFile})
        *text = QString();
    for (QString* text : {&ErrorMessage, &fiscalCode, &userProxy, &pwdProxy, &nameProxy, &portProxy,
                          &dateExpiryCNS, &scadenzaCertCNS, &URL_RINNOVO})
        *text = QStringLiteral("");
    nomeLibreria = QStringLiteral("TarveloQT");
    versioneLibreria = QStringLiteral("1.0.4");
    signCertificate = QByteArray();
    signCkaid = QByteArray();
    date_time = QDateTime();

    for (int* number : {&ErrorOccurred, &ErrorCode, &numCertCNS, &numCertsPRA, &numCertsAUT,
                        &CertificateNumbers, &rows, &pending_CNS, &pendingKey_PRA, &pendingKey_AUT})
        *number = 0;
    numeroRiga = 0;
    isCNS = false;
    isFerrolux = false;

    std::fill(std::begin(lib), std::end(lib), '\0');
    std::fill(std::begin(szSlotDescription), std::end(szSlotDescription), '\0');
    std::fill(std::begin(szManufacturerID), std::end(szManufacturerID), '\0');
    std::fill(std::begin(szModel), std::end(szModel), '\0');
    std::fill(std::begin(szSerialNumber), std::end(szSerialNumber), '\0');
    std::fill(std::begin(pendingLabel_PRA), std::end(pendingLabel_PRA), '\0');
    std::fill(std::begin(pendingLabel_AUT), std::end(pendingLabel_AUT), '\0');
    std::fill(std::begin(expiryCNSdate), std::end(expiryCNSdate), '\0');
    std::fill(std::begin(CertCNSStore), std::end(CertCNSStore), nullptr);
    std::fill(std::begin(CertPRAStore), std::end(CertPRAStore), nullptr);
    std::fill(std::begin(CertAUTStore), std::end(CertAUTStore), nullptr);
}

void LibraryTest::SetUp()
{
    resetClock();
    home = makeFolder("home");
    setenv("HOME", home.c_str(), 1);
    resetVariables();
    setScript({});
    input = std::make_unique<StandardInput>();
}

void LibraryTest::TearDown()
{
    EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    resetVariables();
    input.reset();
    for (const std::string& marker : m_markers)
        std::filesystem::remove(marker);
    resetClock();
}

void LibraryTest::startSession()
{
    init_renew_system(&context);
    outLogFile.flush();
    m_logStart = fileContents(logPath()).size();
    ASSERT_NE(m_logStart, 0U) << "no log at " << logPath();
}

void LibraryTest::startSession(const QString& readerName, const QString& pin)
{
    startSession();
    setting(renew_context::reader, readerName);
    setting(renew_context::pin, pin);
}

void LibraryTest::setting(const QString& key, const QString& value)
{
    if (value.isNull())
        context[renew_context::settingsRow].remove(key);
    else
        context[renew_context::settingsRow][key] = value;
}

std::string LibraryTest::log()
{
    outLogFile.flush();
    return logOnDisk();
}

std::string LibraryTest::logOnDisk() const
{
    return maskStamps(fileContents(logPath()).substr(m_logStart));
}

void LibraryTest::placeMarker(const std::string& name)
{
    m_markers.push_back(applicationFolder() + "/" + name);
    writeFile(m_markers.back(), {});
}

void LibraryTest::answer(const std::string& bytes)
{
    input.reset();
    input = std::make_unique<StandardInput>(bytes);
}

}  // namespace support
