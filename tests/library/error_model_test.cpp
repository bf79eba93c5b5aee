#include "tests/support/library_fixture.h"

#include <gtest/gtest.h>

#include <type_traits>

using namespace support;

namespace {

struct CodeRow {
    Exception::Code code;
    int value;
    const char* message;
};

const CodeRow codeTable[] = {
    {Exception::Ok, 0, "OK: "},
    {Exception::Generic, 1, "generico: "},
    {Exception::InitFileRead, 2, "Errore nella lettura del file di inizializzazione"},
    {Exception::DeviceConnection, 3, "ERRORE NELLA CONNESSIONE CON IL DISPOSITIVO DI FIRMA"},
    {Exception::FirefoxConfigAccess, 4,
     "Errore nell'accesso al file di configurazione del browser Firefox"},
    {Exception::PasswordCipher, 5,
     "Errore nell'operazione di cifratura/decifratura della password"},
    {Exception::TempFileOpen, 6, "Errore nell'apertura del file temporaneo"},
    {Exception::AtrRead, 7, "Errore nella lettura del codice ATR del Dispositivo di Firma"},
    {Exception::Pkcs11Load, 8, "Errore nel caricamento della libreria PKCS#11"},
    {Exception::CertificateRead, 9,
     "Errore nella lettura dei certificati dal Dispositivo di Firma"},
    {Exception::VerifyLibraryInit, 10, "Errore nell'inizializzazione della libreria di verifica"},
    {Exception::VerifyResultRead, 11, "Errore nella lettura dell'esito della verifica"},
    {Exception::NoSignCertificate, 12,
     "Nessun certificato di firma presente sul Dispositivo di Firma"},
    {Exception::SlotRead, 13, "Errore nella lettura dello slot"},
    {Exception::ClamWinInitFileRead, 14,
     "Errore nella lettura del file di inizializzazione di ClamWin"},
    {Exception::ProgramRun, 15, "Errore nell'esecuzione del programma"},
    {Exception::InternetConnection, 16, "Errore nella connessione internet"},
    {Exception::TempFileAccess, 17, "Errore nell'accesso a un file temporaneo"},
    {Exception::Base64Decode, 18, "Errore nella decodifica del file da base 64"},
};

TEST(ExceptionClass, codes_haveTheirNumbersAndMessages)
{
    for (const CodeRow& row : codeTable) {
        SCOPED_TRACE(row.value);
        const Exception exception(row.code, QString());
        EXPECT_EQ(static_cast<int>(row.code), row.value);
        EXPECT_EQ(exception.getCode(), row.code);
        EXPECT_EQ(exception.getMessage(), QString::fromUtf8(row.message));
    }
}

TEST(ExceptionClass, detail_followsOnALineOfItsOwn)
{
    for (const CodeRow& row : codeTable) {
        SCOPED_TRACE(row.value);
        EXPECT_EQ(Exception(row.code, QStringLiteral("x")).getMessage(),
                  QString::fromUtf8(row.message) + QStringLiteral("\nx"));
    }
}

TEST(ExceptionClass, detailEmptyButNotNull_onlyTheNewlineFollows)
{
    EXPECT_EQ(Exception(Exception::Generic, QStringLiteral("")).getMessage(),
              QStringLiteral("generico: \n"));
}

TEST(ExceptionClass, codeOutsideTheTable_messageIsUndefinedException)
{
    // The values that the enumeration can hold besides its enumerators.
    for (int code = 19; code <= 31; ++code) {
        SCOPED_TRACE(code);
        const auto outside = static_cast<Exception::Code>(code);
        EXPECT_EQ(Exception(outside, QString()).getMessage(),
                  QStringLiteral("undefined exception "));
        EXPECT_EQ(Exception(outside, QStringLiteral("d")).getMessage(),
                  QStringLiteral("undefined exception \nd"));
        EXPECT_EQ(Exception(outside, QStringLiteral("d")).getCode(), outside);
    }
}

TEST(ExceptionClass, copy_isAnObjectOfItsOwn)
{
    Exception original(Exception::SlotRead, QStringLiteral("a"));
    const Exception copy = original;
    original = Exception(Exception::Ok, QString());
    EXPECT_EQ(copy.getMessage(), QStringLiteral("Errore nella lettura dello slot\na"));
    EXPECT_EQ(original.getMessage(), QStringLiteral("OK: "));
}

TEST(ExceptionClass, layout_isVirtualDestructorCodeDetailAndTable)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<Exception>);
    EXPECT_EQ(sizeof(Exception::Code), 4U);
    EXPECT_EQ(sizeof(Exception), 4 * sizeof(void*));
}

TEST(ExceptionClass, deletedThroughThePointer_detailIsReleased)
{
    const auto* exception = new Exception(Exception::Generic, QStringLiteral("detail"));
    EXPECT_EQ(exception->getMessage(), QStringLiteral("generico: \ndetail"));
    delete exception;
}

class GetError : public LibraryTest {};

TEST_F(GetError, answers_areCopiedOut)
{
    const std::string longest(254, 'e');
    struct Row {
        const char* condition;
        int result;
        int number;
        std::string written;
        std::string text;
    };
    const Row table[] = {
        {"text and number", 0, 0xA0, "errore", "errore"},
        {"longest text", 0, 0xBFC, longest, longest},
        {"text without an end", 0, 1, std::string(255, 'e'), std::string(255, 'e')},
        {"no text available", 1, 0xA4, "left behind", ""},
        {"no text available, negative", -1, 5, "left behind", ""},
        {"empty text", 0, 7, "", ""},
        {"text with a NUL inside", 0, 7, std::string("ab\0cd", 5), "ab"},
        {"text that is not UTF-8", 0, 7, "gi\xe0", "gi\xe0"},
        {"negative number", 0, -5, "errore", "errore"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        setScript({
            call("mvLastError").returning(row.result).writing({row.written}),
            call("mvLastErrno").returning(row.number),
        });
        QByteArray text("from before");
        long number = 99;
        getError(text, number);
        EXPECT_EQ(text.toStdString(), row.text);
        EXPECT_EQ(number, long{row.number});
        EXPECT_EQ(calls(), (std::vector<std::string>{"mvLastError(255)", "mvLastErrno()"}));
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

}  // namespace
