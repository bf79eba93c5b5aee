// The functions of the card-renewal library libTarvelo that the renewal library imports.
//
// Declarations only: any shared library with these C functions can be put in place of the one that
// is built here. Texts are NUL-terminated UTF-8, valid only during the call. Results are 0 on
// success unless said otherwise; after a failure mvLastError and mvLastErrno tell the cause.

#ifndef TARVELOQT_IMPORTS_TARVELO_H
#define TARVELOQT_IMPORTS_TARVELO_H

#ifdef __cplusplus
extern "C" {
#endif

// Reads the card. Each store is an array of zero-filled buffers of 4,096 bytes (cnsStore 2,
// praStore 5, autStore 5): element 0 receives the number of certificates of the kind as decimal
// text, each further element one certificate descriptor, fields joined by "#". A pending flag is
// set non-zero when the card holds a key pair of the kind that waits for its certificate. The label
// buffers (32 bytes, zeroed) receive the labels to use for a new signature and authentication key;
// cnsExpiry (9 bytes, zeroed) the CNS certificate's end of validity. readMode is always 3.
// 0 and -500: success; 100: the card is not supported; any other value: failure.
int rinnovo_Card_readCerts(char* reader, char* pin, int readMode, char** cnsStore, char** praStore,
                           char** autStore, int* pendingCns, int* pendingKeyPra, int* pendingKeyAut,
                           char* pendingLabelPra, char* pendingLabelAut, char* cnsExpiry,
                           const char* applicationFolder);

// Writes the labels to use for a signature and an authentication key into the two buffers (32
// bytes, zeroed): that of the pending key of the kind when there is one, else a free one. The
// reader is the one that the request and save functions use after it.
int rinnovo_Card_findFreeCKAID(char* reader, char* pin, char* pendingLabelPra,
                               char* pendingLabelAut);

// Makes the key pair on the card and writes the PKCS#10 request (RFC 2986, PEM) into p10 (16,384
// zeroed bytes). certificateCkaId and subjectDN are those of the certificate to renew. flag is
// always false.
int rinnovo_Card_createCertRequestAUT(char* p10, char* keyLabel, char* pin, char* certificateCkaId,
                                      char* subjectDN, bool flag);
int rinnovo_Card_createCertRequestPRA(char* p10, char* keyLabel, char* pin, char* certificateCkaId,
                                      char* subjectDN, bool flag);

// Writes the issued certificate beside its key. certificateCkaId is that of the certificate being
// replaced, empty in a recovery. flag is always false.
int rinnovo_Card_saveCertAUT(char* pin, char* certificateCkaId, char* keyLabel, char* certificate,
                             bool flag);
int rinnovo_Card_saveCertPRA(char* pin, char* certificateCkaId, char* keyLabel, char* certificate,
                             bool flag);

#ifdef __cplusplus
}
#endif

#endif
