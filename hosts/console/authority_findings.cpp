#include "hosts/console/authority_findings.h"

#include "hosts/console/authority_way.h"

namespace console {

namespace {

FindingId idOf(enrolment::Cause cause)
{
    switch (cause) {
    case enrolment::Cause::untrusted:
        return FindingId::authorityUntrusted;
    case enrolment::Cause::misconfigured:
        return FindingId::authorityMisconfigured;
    default:
        return FindingId::authorityUnreachable;
    }
}

}  // namespace

std::vector<Finding> authorityFindings(const Arguments& arguments)
{
    if (!arguments.authority) {
        return {};
    }
    try {
        authorityOf(arguments)->probe();
        return {Finding(FindingId::authorityReachable, authorityName(arguments))};
    } catch (const enrolment::EnrolmentError& error) {
        return {Finding(idOf(error.cause()), authorityName(arguments),
                        error.text() + QLatin1Char(' ') + error.cure())};
    }
}

}  // namespace console
