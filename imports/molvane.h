// The functions of the card-access library libmin_Molvane that the renewal library imports.
//
// Declarations only: any shared library with these C functions can be put in place of the one that
// is built here. Texts are NUL-terminated; texts handed in are UTF-8. Every int result but those of
// mvLastErrno, getSlotBriskoLite and the two mvIs questions is 0 on success unless said otherwise.

#ifndef TARVELOQT_IMPORTS_MOLVANE_H
#define TARVELOQT_IMPORTS_MOLVANE_H

#ifdef __cplusplus
extern "C" {
#endif

// Writes the connected readers' names, each followed by "|", into names[0 .. *length - 1]
// (1,024 bytes, zeroed by the caller). Returns 0 or more on success, a negative number when no list
// can be had.
int mvGetReaderName(char* names, long* length);

// Opens a session with the card in the reader; never logs in.
int mvInitializeFromATRLite(char* reader, char* atrTable, char* applicationFolder);

// Non-zero when the card is a national services card.
int mvIsCNSINCARD();

// Non-zero when the token belongs to the Ferrolux family.
int mvIsFERROLUX();

// Logs the user in on the open session.
int mvLogin(const char* pin);

// Closes the open session, if any.
int mvFinalize();

// Writes the file name of the card's PKCS#11 module into module (64 bytes, with NUL).
int mvGetPKCS11FromATRLite(char* reader, char* module, char* atrTable);

// 1: the card in the slot is not yet activated; -1: error; any other value: activated.
int mvCNSToBeActivatedLite(long slot);

// Writes the token's identity: slotDescription 65 bytes, manufacturerID 33, model 17,
// serialNumber 17, each with its NUL.
int mvCheckSmartCard(char* slotDescription, char* manufacturerID, char* model, char* serialNumber);

// The PKCS#11 slot number of the open session.
int getSlotBriskoLite();

// Writes the text of the last error into buffer (size bytes, with NUL); non-zero when there is
// none.
int mvLastError(char* buffer, int size);

// The number of the last error: a PKCS#11 return value (CKR_...) or one of the library's own.
int mvLastErrno();

#ifdef __cplusplus
}
#endif

#endif
