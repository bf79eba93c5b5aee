#include "tests/cardlibs/foreign_objects.h"

#include "tests/cardlibs/outside_tools.h"
#include "tests/cardlibs/token_look.h"
#include "tools/softcard/card_making.h"

namespace cardlibs_test {

using cardlibs::Bytes;

void addForeignObjects(cardlibs::token::Session& session, const std::filesystem::path& authority)
{
    auto ssh = softcard::orderFor(softcard::findKind("aut"), 0, softcard::KeyType::p256, 30);
    ssh.label = "ssh";
    for (const unsigned char number : Bytes{1, 2}) {
        ssh.id = {0x55, number};
        softcard::addKey(session, ssh);
    }
    softcard::addCertificate(
        session, "AUT0", {0x01},
        certificateBytes(readText(softcard::DemoAuthority::certificateFile(authority))));
    cardlibs::token::Template data;
    data.number(CKA_CLASS, CKO_DATA)
        .flag(CKA_TOKEN, true)
        .flag(CKA_PRIVATE, false)
        .text(CKA_LABEL, "DS1")
        .text(CKA_APPLICATION, "altro programma")
        .bytes(CKA_VALUE, {'d', 'a', 't', 'i'});
    session.create(data);
}

}  // namespace cardlibs_test
