#include "hosts/console/reference/finding_page.h"

#include "hosts/console/finding.h"

namespace console::reference {

namespace {

const char* nameOf(Severity severity)
{
    switch (severity) {
    case Severity::ok:
        return "ok";
    case Severity::warning:
        return "warning";
    case Severity::problem:
        break;
    }
    return "problem";
}

std::string places(const Text& text, Language language)
{
    return text.in(language)
        .replace(QStringLiteral("%1"), QStringLiteral("*1*"))
        .replace(QStringLiteral("%2"), QStringLiteral("*2*"))
        .toStdString();
}

std::string table(Language language, const std::string& heading)
{
    std::string text = heading;
    for (const FindingRow& row : findingRows()) {
        text += std::string("| `") + row.name + "` | " + nameOf(row.severity) + " | " +
                places(row.what, language) + " | " +
                (row.cure ? places(*row.cure, language) : std::string()) + " |\n";
    }
    return text;
}

}  // namespace

std::string findingPage()
{
    return "# What tarvelo-renew doctor finds\n\n"
           "Made from the program's own table by `cmake --build build/dev --target doctor-page`; "
           "edit\n"
           "`hosts/console/finding.cpp` instead. An identifier never changes its meaning; what is "
           "new gets\na new one. With `--json` each finding is an object of the field `findings` "
           "([schema](json/doctor.schema.json)).\n\n"
           "Doctor looks at the clock, the user's folder, the way to the authority that the "
           "command line\nnames, the smart card service, the table of cards, the PKCS#11 modules "
           "and the readers with\ntheir cards. It needs no PIN and changes nothing on the card. "
           "It ends with the exit code 24 when\none finding is a *problem*, else with 0. A "
           "*problem* of one reader is a *warning* where another\nholds a card that can be used; "
           "so is one of the service, the table or a module where a card\nis reached all the "
           "same, and one of a software card's module where there is a smart card\nreader.\n\n"
           "*1* and *2* stand for what the finding is about: a reader, a file, a program, a "
           "day.\n\n" +
           table(Language::english, "## English\n\n| Identifier | Severity | What is so | How to "
                                    "mend it |\n|---|---|---|---|\n") +
           table(Language::italian, "\n## Italiano\n\n| Identificatore | Gravità | Che cosa c'è "
                                    "| Come rimediare |\n|---|---|---|---|\n");
}

}  // namespace console::reference
