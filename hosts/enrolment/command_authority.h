// The way "command": a program of the administrator's that knows how to reach the authority.

#ifndef TARVELOQT_HOSTS_ENROLMENT_COMMAND_AUTHORITY_H
#define TARVELOQT_HOSTS_ENROLMENT_COMMAND_AUTHORITY_H

#include "hosts/enrolment/authority.h"

#include <QStringList>

namespace enrolment {

// What the program's exit code says. Numbers below 10 are what scripts and the programs in them end
// with when something went wrong.
enum class CommandExit : int {
    issued = 0,     // the certificate is on standard output
    deferred = 10,  // standard output: a cookie, then perhaps seconds until the next try
    refused = 11,   // the reason is on standard error, as it is for the two below
    unreachable = 12,
    policyUnsupported = 13,
};

// Keys: "command" (required: the program and its arguments, split at blanks, double quotes hold
// together, no shell; a program with a slash is a path, else it is looked for in PATH),
// "time-limit" (seconds, 60), "issuer-anchors".
//
// The request (PEM) is on the program's standard input. In its environment are TARVELO_POLICY,
// TARVELO_NOT_AFTER (yyyyMMddHHmmss, UTC), TARVELO_RENEWAL (1 or 0) and TARVELO_COOKIE (what it
// gave when it last deferred this request), each empty when there is none. In its arguments
// {policy} and {not-after} stand for the first two. The certificate is PEM, DER or PKCS#7, at most
// 1 MiB. A cookie is a line of at most 4,096 printable ASCII characters and no secret: it is kept
// in a file.
std::unique_ptr<Authority> commandAuthority(const Configuration& configuration);

}  // namespace enrolment

#endif
