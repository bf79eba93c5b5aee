// What the card-access library libmin_Molvane tells hosts about readers, cards and tokens, so that
// they can show a user why a card is not found before any PIN is asked for.
//
// These functions are an addition to those that the renewal library imports: another implementation
// of libmin_Molvane need not have them. Hosts therefore do not link them; they look them up by name
// in the running program (dlsym, QLibrary::resolve), through the pointer types below, and say "not
// known" when a name is not there. docs/host-guide.md shows how.
//
// A diagnosis is a snapshot in an opaque handle. It holds groups of items, and each item has
// fields, asked for by number. Numbers are only ever added, and an implementation answers "not
// known" to those it does not know, so that hosts compiled against one version of this header work
// with any.
//
// Nothing here opens a PKCS#11 session, logs in, or writes to a card or file, and no PIN is needed.
// A session open through mvInitializeFromATRLite stays as it is, and so does its module; others are
// started anew, so that tokens made meanwhile are seen. It takes as long as the readers and modules
// take to answer.
//
// Texts are NUL-terminated, owned by the diagnosis and valid until mvDiagnosisFree. Texts that come
// from a card, a reader or the table are UTF-8 as far as their makers kept to it, without PKCS#11's
// padding, of any content; texts of errors are Italian ASCII of at most 254 bytes.
//
// Errors: like every other call but mvLastError and mvLastErrno, each of these clears the last
// error first. What the diagnosis finds wrong is part of it, and not a last error.
//
// Threads: as for the other functions of the library, one call at a time, from one thread.
//
// C99 or C++. Sources: PKCS#11 v2.40 (CK_TOKEN_INFO), PC/SC part 5, ISO/IEC 7816-3 (ATR).

#ifndef TARVELOQT_CARD_DIAGNOSIS_H
#define TARVELOQT_CARD_DIAGNOSIS_H

#ifdef __cplusplus
extern "C" {
#endif

// C has no other way to name a type: NOLINTBEGIN(modernize-use-using)
typedef struct mvDiagnosis mvDiagnosis;

// Looks at all readers: those of PC/SC and the tokens of the software modules that the ATR table
// names, with the names and in the order of mvGetReaderName, those included that found no room
// there.
// atrTable: path of the ATR table, UTF-8, which is then the one in force for later calls too; null
// or empty keeps the one in force.
// Returns a diagnosis to be released with mvDiagnosisFree, without readers when there are none;
// null only when it could not be made, with the last error set.
mvDiagnosis* mvDiagnoseReaders(const char* atrTable);

// Tells which entry of the table would serve a card with this answer to reset, and why. Asks no
// reader and loads no module. The result has one item in MV_READERS, which knows the fields from
// MV_READER_ATR to MV_READER_FERROLUX and the two of the error.
// atr: 2 to 33 bytes as hexadecimal digits, blanks and colons between bytes allowed.
// atrTable, result: as above; null also when atr is not an ATR.
mvDiagnosis* mvDiagnoseAtr(const char* atr, const char* atrTable);

// Releases a diagnosis and its texts; null is allowed.
void mvDiagnosisFree(mvDiagnosis* diagnosis);

// The number of items in a group, one of mvDiagnosisGroup; 0 for groups that are not known. -1
// without a diagnosis, with the last error set.
int mvDiagnosisCount(const mvDiagnosis* diagnosis, int group);

// The text or the number of a field, one of mvDiagnosisField, which also tells the group.
// index: the item's place in its group, from 0.
// Null and MV_NOT_KNOWN mean that it is not known, that the field is not a text (not a number), or
// that there is no such field or item. Without a diagnosis the last error is set besides.
const char* mvDiagnosisText(const mvDiagnosis* diagnosis, int index, int field);
long mvDiagnosisNumber(const mvDiagnosis* diagnosis, int index, int field);

#define MV_NOT_KNOWN (-1L)

enum mvDiagnosisGroup {
    // One item: what is said of no single reader.
    MV_WHOLE = 0,
    // Mistakes in the ATR table, each with the entry that was left out for it.
    MV_COMPLAINTS = 1,
    // What keeps readers from being seen or served: the table, the PC/SC service, software modules
    // that do not load or start.
    MV_OBSTACLES = 2,
    MV_READERS = 3
};

// A field's group is its number divided by 100.
enum mvDiagnosisField {
    // Number: mvServiceState.
    MV_SERVICE = 1,
    // Text: path of the ATR table in force, whether it can be read or not.
    MV_TABLE_PATH = 2,

    // Text: "file:line: reason", the reason in English.
    MV_COMPLAINT = 101,

    // Number and text of the error, as mvLastErrno and mvLastError would tell it.
    MV_OBSTACLE_ERROR = 201,
    MV_OBSTACLE_TEXT = 202,
    // Text: the software module as the table names it; not known when it is about none.
    MV_OBSTACLE_MODULE = 203,

    // Text: the name that mvInitializeFromATRLite takes.
    MV_READER_NAME = 301,
    // Number: mvReaderKind.
    MV_READER_KIND = 302,
    // Number: mvCardState.
    MV_READER_CARD = 303,
    // Text: the card's answer to reset, upper-case hexadecimal without blanks; not known for
    // software tokens and without a card that answers.
    MV_READER_ATR = 304,
    // Number: mvMatch; not known without a card that answers or a table that can be read.
    MV_READER_MATCH = 305,
    // The matching entry. Text: its section's title without the kind ("SoftHSM2" for
    // "[software SoftHSM2]", empty for "[default]"); number: its line in the table.
    MV_READER_ENTRY = 306,
    MV_READER_ENTRY_LINE = 307,
    // Text: name of the card model.
    MV_READER_MODEL_NAME = 308,
    // Texts: the PKCS#11 module as the table names it, and the file that this leads to (without
    // folder: looked for in p11-kit's module folder).
    MV_READER_MODULE = 309,
    MV_READER_MODULE_FILE = 310,
    // Numbers, 1 or 0: national services card, Ferrolux family.
    MV_READER_CNS = 311,
    MV_READER_FERROLUX = 312,
    // Number: 1 when the module was loaded, 0 when it cannot be; not known when not tried.
    MV_READER_MODULE_LOADED = 313,
    // Number: how many slots of the module bear this reader's name.
    MV_READER_SLOTS = 314,
    // Number: the PKCS#11 slot of the card; not known when there is none or no telling which.
    MV_READER_SLOT = 315,
    // Texts of the token: label, manufacturer, model, serial number.
    MV_TOKEN_LABEL = 316,
    MV_TOKEN_MANUFACTURER = 317,
    MV_TOKEN_MODEL = 318,
    MV_TOKEN_SERIAL = 319,
    // Number: the token's CK_FLAGS.
    MV_TOKEN_FLAGS = 320,
    // Number: 1 when the user PIN is set and not to be changed first, else 0.
    MV_TOKEN_ACTIVATED = 321,
    // Number: mvPinTries.
    MV_TOKEN_PIN_TRIES = 322,
    // Number: wrong PINs until the user PIN is locked. PKCS#11 has no field for it, so it is known
    // only in the states MV_TRIES_LOCKED (0) and MV_TRIES_LAST (1).
    MV_TOKEN_PIN_TRIES_LEFT = 323,
    // Number: what mvInitializeFromATRLite would fail with now, before it opens a session (a
    // PKCS#11
    // return value, or a number of the library's own); 0 when it would not.
    MV_READER_ERROR = 324,
    // Text of it; not known when the number is 0.
    MV_READER_ERROR_TEXT = 325
};

// The PC/SC service.
enum mvServiceState {
    MV_SERVICE_RUNNING = 0,
    MV_SERVICE_STOPPED = 1,
    // It runs, but not for this user.
    MV_SERVICE_REFUSING = 2,
    MV_SERVICE_FAILING = 3
};

enum mvReaderKind { MV_KIND_PCSC = 0, MV_KIND_SOFTWARE = 1 };

enum mvCardState {
    MV_CARD_ABSENT = 0,
    // It answered; so does every software token that is told.
    MV_CARD_PRESENT = 1,
    // In the reader but not answering, most often the wrong way round.
    MV_CARD_MUTE = 2,
    // Present, but a program keeps it to itself.
    MV_CARD_EXCLUSIVE = 3
};

// Why an entry of the table serves the card.
enum mvMatch {
    // No entry does.
    MV_MATCH_NONE = 0,
    MV_MATCH_ATR = 1,
    MV_MATCH_MASKED_ATR = 2,
    // A software token's manufacturer and model.
    MV_MATCH_TOKEN = 3,
    MV_MATCH_DEFAULT = 4
};

// The user PIN, as the token's flags tell.
enum mvPinTries {
    // None of the flags is set. Some tokens never set any.
    MV_TRIES_NOT_LOW = 0,
    // A wrong PIN was given since the last right one.
    MV_TRIES_LOW = 1,
    MV_TRIES_LAST = 2,
    MV_TRIES_LOCKED = 3
};

// Types for what dlsym or QLibrary::resolve finds.
typedef mvDiagnosis* (*mvDiagnoseReadersFunction)(const char* atrTable);
typedef mvDiagnosis* (*mvDiagnoseAtrFunction)(const char* atr, const char* atrTable);
typedef void (*mvDiagnosisFreeFunction)(mvDiagnosis* diagnosis);
typedef int (*mvDiagnosisCountFunction)(const mvDiagnosis* diagnosis, int group);
typedef const char* (*mvDiagnosisTextFunction)(const mvDiagnosis* diagnosis, int index, int field);
typedef long (*mvDiagnosisNumberFunction)(const mvDiagnosis* diagnosis, int index, int field);
// NOLINTEND(modernize-use-using)

#ifdef __cplusplus
}
#endif

#endif
