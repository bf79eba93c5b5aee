#include "hosts/enrolment/authority.h"

#include "hosts/enrolment/cmp_authority.h"
#include "hosts/enrolment/command_authority.h"
#include "hosts/enrolment/est_authority.h"
#include "hosts/enrolment/file_authority.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

struct Way {
    const char* name;
    std::unique_ptr<Authority> (*make)(const Configuration&);
};

constexpr Way ways[] = {
    {"file", &fileAuthority},
    {"command", &commandAuthority},
    {"est", &estAuthority},
    {"cmp", &cmpAuthority},
};

}  // namespace

Authority::~Authority() = default;

void Authority::requirePolicy(const QString& /*policy*/) const {}

std::unique_ptr<Authority> authority(const Configuration& configuration)
{
    QStringList names;
    for (const Way& way : ways) {
        if (configuration.way == QLatin1String(way.name)) {
            return way.make(configuration);
        }
        names.append(QLatin1String(way.name));
    }
    failMisconfigured(
        configuration,
        Text("La via \"%1\" non c'è; ci sono: %2.", "There is no way \"%1\"; there are: %2.")
            .arg(printable(configuration.way), names.join(QStringLiteral(", "))));
}

}  // namespace enrolment
