// What a transfer that libcurl gave up means to the person.

#ifndef TARVELOQT_HOSTS_ENROLMENT_TRANSFER_FAILURE_H
#define TARVELOQT_HOSTS_ENROLMENT_TRANSFER_FAILURE_H

#include <QString>
#include <QUrl>

#include <curl/curl.h>

namespace enrolment {

struct TransferFailure {
    CURLcode code = CURLE_OK;
    QUrl url;
    // A part of an HTTP answer had come.
    bool receivedSomething = false;
    // Nothing of the request had left this machine.
    bool sentNothing = false;
    // The answer was larger than any that is waited for.
    bool isTooLarge = false;
    // X509_V_OK or why the server's certificate did not verify (X509_verify_cert_error_string).
    long verification = 0;
    // libcurl's own words, in English; may be empty.
    QString complaint;
};

// Throws EnrolmentError.
[[noreturn]] void failTransfer(const TransferFailure& failure);

}  // namespace enrolment

#endif
