// What the library and the authority say when there is no certificate, put into words.

#ifndef TARVELOQT_HOSTS_ENROLMENT_CMP_REFUSAL_H
#define TARVELOQT_HOSTS_ENROLMENT_CMP_REFUSAL_H

#include "hosts/enrolment/enrolment_error.h"

#include <QString>

#include <openssl/cmp.h>

namespace enrolment {

// The bits of a PKIFailureInfo (RFC 4210 5.2.3) in words, separated by "; "; empty for none.
QString failureInfoInWords(int bits);

// The free text that came with the last status, safe to show; empty for none.
QString statusTextOf(const OSSL_CMP_CTX* context);

enum class ErrorProof {
    none,      // the last answer was no error message
    proven,    // it was one of the authority
    unproven,  // it was one of whomever
};

// The error that the library's queue and the context's status amount to; empties the queue.
EnrolmentError cmpError(const OSSL_CMP_CTX* context, ErrorProof proof);

}  // namespace enrolment

#endif
