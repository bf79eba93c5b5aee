// The CKA_ID of a key that is to replace another: it tells what it replaces.

#ifndef TARVELOQT_CARDLIBS_CONTENTS_LINK_H
#define TARVELOQT_CARDLIBS_CONTENTS_LINK_H

#include "cardlibs/x509/certificate.h"

namespace cardlibs::contents {

// 10 bytes of the SHA-256 of the certificate to replace, 10 random bytes.
constexpr std::size_t linkSize = 20;
constexpr std::size_t linkDigestSize = 10;

// Throws CardError when there is no randomness.
Bytes newLink(const x509::Certificate& replaced);
// True when the identifier is one of ours and names this certificate.
bool linkNames(const Bytes& id, const x509::Certificate& certificate);
// False for identifiers of another length and for those that tokens derive from the key themselves
// (RFC 5280, section 4.2.1.2; RFC 7093, section 2; modulus, point or coordinate alone).
bool looksLikeLink(const Bytes& id, const x509::PublicKey& key);

// The subject of a renewal is that of the certificate, or that with the organisation replaced.
// keySubject: CKA_SUBJECT of the key; fits nothing when it is empty.
bool subjectFits(const Bytes& keySubject, const Bytes& certificateSubject);

}  // namespace cardlibs::contents

#endif
