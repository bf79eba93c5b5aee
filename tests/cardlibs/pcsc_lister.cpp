// Tells what an ordinary user sees of the PC/SC service: "running", "stopped", "refusing" or
// "failing", then the readers, a line each.

#include "cardlibs/readers/pcsc_readers.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdio>

namespace {

// Debian's account without rights.
bool becomeNobody()
{
    if (geteuid() != 0)
        return true;
    const passwd* nobody = getpwnam("nobody");
    return nobody != nullptr && setgroups(0, nullptr) == 0 && setgid(nobody->pw_gid) == 0 &&
           setuid(nobody->pw_uid) == 0;
}

const char* word(cardlibs::readers::PcscService service)
{
    using cardlibs::readers::PcscService;
    switch (service) {
    case PcscService::running:
        return "running";
    case PcscService::stopped:
        return "stopped";
    case PcscService::refusing:
        return "refusing";
    case PcscService::failing:
        break;
    }
    return "failing";
}

}  // namespace

int main()
{
    if (!becomeNobody()) {
        std::perror("nobody");
        return 1;
    }
    const auto listing = cardlibs::readers::listPcscReaders();
    std::puts(word(listing.service));
    for (const auto& reader : listing.readers)
        std::puts(reader.name.c_str());
    return 0;
}
