#include "tests/support/library_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <vector>

using namespace support;

namespace {

template <typename Array>
bool isZero(const Array& array)
{
    return std::all_of(std::begin(array), std::end(array), [](auto element) { return !element; });
}

struct NamedText {
    const char* name;
    QString text;
};

// Copied while the program starts, before any operation can have run.
struct StartValues {
    bool logHasDevice = outLogFile.device() != nullptr;
    QString logFileName = RENEWLOGFILE.fileName();
    std::vector<NamedText> nullTexts = {{"BriskoSettingFile", BriskoSettingFile},
                                        {"ATRini", ATRini}};
    std::vector<NamedText> emptyTexts = {
        {"userProxy", userProxy},         {"pwdProxy", pwdProxy},
        {"nameProxy", nameProxy},         {"portProxy", portProxy},
        {"fiscalCode", fiscalCode},       {"ErrorMessage", ErrorMessage},
        {"dateExpiryCNS", dateExpiryCNS}, {"scadenzaCertCNS", scadenzaCertCNS},
        {"URL_RINNOVO", URL_RINNOVO}};
    QByteArray byteArrays[2] = {signCertificate, signCkaid};
    QDateTime dateTime = date_time;
    QString libraryName = nomeLibreria;
    QString libraryVersion = versioneLibreria;
    int numbers[11] = {numCertCNS, numCertsPRA,   numCertsAUT,    CertificateNumbers,
                       rows,       pending_CNS,   pendingKey_PRA, pendingKey_AUT,
                       ErrorCode,  ErrorOccurred, numeroRiga};
    bool flags[2] = {isCNS, isFerrolux};
    bool zeroTexts = isZero(lib) && isZero(szSlotDescription) && isZero(szManufacturerID) &&
                     isZero(szModel) && isZero(szSerialNumber) && isZero(pendingLabel_PRA) &&
                     isZero(pendingLabel_AUT) && isZero(expiryCNSdate);
    bool nullStores = isZero(CertCNSStore) && isZero(CertPRAStore) && isZero(CertAUTStore);
};

const StartValues startValues;

class ProcessVariables : public LibraryTest {};

TEST_F(ProcessVariables, libraryLoaded_startValuesHold)
{
    EXPECT_FALSE(startValues.logHasDevice);
    EXPECT_EQ(startValues.logFileName, QString());
    for (const NamedText& variable : startValues.nullTexts)
        EXPECT_TRUE(variable.text.isNull()) << variable.name;
    for (const NamedText& variable : startValues.emptyTexts) {
        EXPECT_TRUE(variable.text.isEmpty()) << variable.name;
        EXPECT_FALSE(variable.text.isNull()) << variable.name;
    }
    for (const QByteArray& bytes : startValues.byteArrays)
        EXPECT_TRUE(bytes.isNull());
    EXPECT_FALSE(startValues.dateTime.isValid());
    EXPECT_EQ(startValues.libraryName, QStringLiteral("TarveloQT"));
    EXPECT_EQ(startValues.libraryVersion, QStringLiteral("1.0.4"));
    EXPECT_TRUE(isZero(startValues.numbers));
    EXPECT_TRUE(isZero(startValues.flags));
    EXPECT_TRUE(startValues.zeroTexts);
    EXPECT_TRUE(startValues.nullStores);
}

TEST_F(ProcessVariables, sizes_areThoseOfTheContract)
{
    EXPECT_EQ(sizeof lib, 64U);
    EXPECT_EQ(sizeof szSlotDescription, 65U);
    EXPECT_EQ(sizeof szManufacturerID, 33U);
    EXPECT_EQ(sizeof szModel, 17U);
    EXPECT_EQ(sizeof szSerialNumber, 17U);
    EXPECT_EQ(sizeof pendingLabel_PRA, 32U);
    EXPECT_EQ(sizeof pendingLabel_AUT, 32U);
    EXPECT_EQ(sizeof expiryCNSdate, 9U);
    EXPECT_EQ(sizeof CertCNSStore, 2 * sizeof(char*));
    EXPECT_EQ(sizeof CertPRAStore, 5 * sizeof(char*));
    EXPECT_EQ(sizeof CertAUTStore, 5 * sizeof(char*));
}

}  // namespace
