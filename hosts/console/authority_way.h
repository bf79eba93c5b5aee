// The way to the certification authority that the person or the administrator chose.

#ifndef TARVELOQT_HOSTS_CONSOLE_AUTHORITY_WAY_H
#define TARVELOQT_HOSTS_CONSOLE_AUTHORITY_WAY_H

#include "hosts/console/arguments.h"
#include "hosts/console/issued_certificate.h"
#include "hosts/console/record_store.h"
#include "hosts/enrolment/authority.h"

#include <memory>
#include <optional>

namespace console {

// text: what --ca was given; empty: the section [default] of the file, if there is one. file: what
// --ca-file was given; empty: ~/.config/tarvelo/authorities.ini, else
// /etc/tarvelo/authorities.ini. Nothing: certificates go by hand. Throws
// enrolment::EnrolmentError for whatever can be known to be wrong without going the way.
std::optional<enrolment::Configuration> chosenAuthority(const QString& text, const QString& file);

// The way, with the proxy that the renewal library's variables name. Null when there is none.
// Throws enrolment::EnrolmentError (misconfigured).
std::unique_ptr<enrolment::Authority> authorityOf(const Arguments& arguments);

// What the person knows the authority by; empty when there is none.
QString authorityName(const Arguments& arguments);

// Asks the authority for the record's certificate. The record tells in every case how far that
// came and is kept; the certificate is the caller's to keep. Throws Stop: comeBackLater,
// certificateRefused, authorityUnreachable, authorityRefused, authorityFailed.
IssuedCertificate enrolled(const enrolment::Authority& authority, const QString& name,
                           const RecordStore& store, RenewalRecord& record);

// What a failure on the way means for the run.
Stop stopOf(const enrolment::EnrolmentError& error);

}  // namespace console

#endif
