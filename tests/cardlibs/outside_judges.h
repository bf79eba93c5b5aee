// What OpenSSL, OpenSC and GnuTLS make of a request, of a certificate, and of a card. Each function
// expects their agreement, and fails the test that calls it otherwise.

#ifndef TARVELOQT_TESTS_CARDLIBS_OUTSIDE_JUDGES_H
#define TARVELOQT_TESTS_CARDLIBS_OUTSIDE_JUDGES_H

#include "cardlibs/bytes.h"

#include <filesystem>
#include <string>

namespace cardlibs_test {

// OpenSSL verifies the request's signature, and reads the subject's DER out of it.
void expectRequestJudgedGood(const std::string& requestPem, const cardlibs::Bytes& subject);

// OpenSSL verifies the certificate against its authority, and finds that subject in it.
void expectCertificateJudgedGood(const std::string& certificatePem,
                                 const std::filesystem::path& authorityCertificate,
                                 const cardlibs::Bytes& subject);

// The two programs read the certificate with this CKA_ID (hexadecimal) from the process's SoftHSM2
// token and sign with its key; OpenSSL verifies the signature.
void expectCardUsable(const std::string& id, const std::string& certificatePem,
                      const std::string& pin);

}  // namespace cardlibs_test

#endif
