#include "hosts/console/reference/exit_code_page.h"

#include "hosts/console/exit_code.h"

namespace console::reference {

namespace {

std::string table(Language language, const std::string& heading)
{
    std::string text = heading;
    for (const ExitCodeEntry& entry : exitCodes()) {
        text += "| " + std::to_string(static_cast<int>(entry.code)) + " | `" + entry.name + "` | " +
                entry.meaning.in(language).toStdString() + " | " +
                (entry.nextStep ? entry.nextStep->in(language).toStdString() : std::string()) +
                " |\n";
    }
    return text;
}

}  // namespace

std::string exitCodePage()
{
    return "# Exit codes of tarvelo-renew\n\n"
           "Made from the program's own table by `cmake --build build/dev --target exit-codes`; "
           "edit\n"
           "`hosts/console/exit_code.cpp` instead. A code and its name never change their meaning; "
           "new\ncauses get new codes. With `--json` both are in the field `exit`.\n\n" +
           table(Language::english, "## English\n\n| Code | Name | Meaning | What to do |\n"
                                    "|---|---|---|---|\n") +
           table(Language::italian,
                 "\n## Italiano\n\n| Codice | Nome | Significato | Che cosa fare |\n"
                 "|---|---|---|---|\n");
}

}  // namespace console::reference
