// What the card libraries in place tell about readers, cards and tokens (include/card_diagnosis.h),
// as values. The functions are looked up in the running program and not linked: another
// implementation of the card libraries need not have them.
//
// An absent value and an empty text are "not known". Texts come from cards, readers and files: show
// them through printable().

#ifndef TARVELOQT_HOSTS_CONSOLE_READER_DIAGNOSIS_H
#define TARVELOQT_HOSTS_CONSOLE_READER_DIAGNOSIS_H

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace console {

enum class ServiceState { running, stopped, refusing, failing };
enum class ReaderKind { pcsc, software };
enum class CardState { absent, present, mute, exclusive };
// Why an entry of the ATR table serves a card.
enum class MatchReason { none, atr, maskedAtr, token, otherCards };
// As the token's flags tell: notLow may also mean that it never tells.
enum class PinTries { notLow, low, last, locked };

// Numbers that mean the same whichever implementation tells them, and those of the card libraries
// of this project (docs/errors.md) that have a cure of their own.
namespace card_error {
constexpr long readerAmbiguous = 0x2003;
constexpr long tableUnreadable = 0x2004;
constexpr long moduleNotLoaded = 0x2005;
constexpr long serviceStopped = 0x201C;
constexpr long serviceFailed = 0x201E;
constexpr long slotNotFound = 0x201F;
constexpr long slotAmbiguous = 0x2020;
}  // namespace card_error

// PKCS#11 v2.40, CK_TOKEN_INFO.
namespace token_flag {
constexpr unsigned long writeProtected = 0x2;
constexpr unsigned long userPinInitialised = 0x8;
constexpr unsigned long tokenInitialised = 0x400;
constexpr unsigned long userPinCountLow = 0x10000;
constexpr unsigned long userPinFinalTry = 0x20000;
constexpr unsigned long userPinLocked = 0x40000;
constexpr unsigned long userPinToBeChanged = 0x80000;
}  // namespace token_flag

// A PKCS#11 return value or a number of the card libraries, 0 when there is none, and the text.
struct ToldError {
    long number = 0;
    QString text;
};

struct EntryDiagnosis {
    std::optional<MatchReason> match;
    // The section's title without the kind.
    QString title;
    std::optional<int> line;
    QString modelName;
    // As the table names it, and the file that this leads to.
    QString module;
    QString moduleFile;
    std::optional<bool> isCns;
    std::optional<bool> isFerrolux;
};

struct TokenDiagnosis {
    QString label;
    QString manufacturer;
    QString model;
    QString serialNumber;
    // CK_TOKEN_INFO's flags.
    std::optional<unsigned long> flags;
    std::optional<bool> isActivated;
    std::optional<PinTries> pinTries;
    std::optional<int> pinTriesLeft;

    // Whether anything of a token is known.
    bool isTold() const { return flags.has_value() || !serialNumber.isEmpty() || !model.isEmpty(); }
    bool has(unsigned long flag) const { return flags && (*flags & flag) != 0; }
};

struct ReaderDiagnosis {
    QString name;
    std::optional<ReaderKind> kind;
    std::optional<CardState> card;
    // Upper-case hexadecimal without blanks.
    QString atr;
    EntryDiagnosis entry;
    std::optional<bool> isModuleLoaded;
    std::optional<int> slotCount;
    std::optional<long> slot;
    TokenDiagnosis token;
    // What opening a session with this reader's card would fail with; absent when it would not.
    std::optional<ToldError> error;
};

struct Obstacle {
    ToldError error;
    // As the table names it; empty when it is about no module.
    QString module;
};

struct Diagnosis {
    // False when the card libraries in place lack the functions: nothing else is known then.
    bool isTold = false;
    std::optional<ServiceState> service;
    QString tablePath;
    // "file:line: reason", English.
    QStringList complaints;
    std::vector<Obstacle> obstacles;
    std::vector<ReaderDiagnosis> readers;

    // Null when there is no reader of this name.
    const ReaderDiagnosis* find(const QString& name) const;
};

// All readers, looked at now, with the ATR table of the renewal library's session or, without one,
// the card libraries' own. No PIN, no session, nothing written. What modules print goes nowhere.
Diagnosis diagnoseReaders();

// Which entry serves a card with this ATR, as the one reader of the diagnosis; nothing when the
// text is no ATR (2 to 33 bytes in hexadecimal).
std::optional<Diagnosis> diagnoseAtr(const QString& atr);

}  // namespace console

#endif
