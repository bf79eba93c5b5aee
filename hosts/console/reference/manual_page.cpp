#include "hosts/console/reference/manual_page.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/reference/command_reference.h"

#include <card_v_func.h>

namespace console::reference {

namespace {

// A text as groff takes it: no line may begin with a control character, and the hyphens of options
// are to be copied as such.
std::string escaped(const std::string& text)
{
    std::string result;
    bool isLineStart = true;
    for (const char character : text) {
        if (isLineStart && (character == '.' || character == '\'')) {
            result += "\\&";
        }
        if (character == '\\') {
            result += "\\e";
        } else if (character == '-') {
            result += "\\-";
        } else {
            result += character;
        }
        isLineStart = character == '\n';
    }
    return result;
}

class Page {
public:
    explicit Page(Language language)
        : m_language(language)
    {
    }

    std::string in(const Text& text) const { return text.in(m_language).toStdString(); }
    Page& line(const std::string& text)
    {
        m_text += text + "\n";
        return *this;
    }
    Page& section(const Text& title) { return line(".SH \"" + escaped(in(title)) + "\""); }
    Page& prose(const Text& text) { return line(".PP").line(escaped(in(text))); }
    Page& item(const std::string& head, const std::string& body)
    {
        return line(".TP").line(head).line(escaped(body));
    }
    const std::string& text() const { return m_text; }

private:
    Language m_language;
    std::string m_text;
};

std::string headOf(const OptionReference& option)
{
    std::string head = "\\fB" + escaped(option.name) + "\\fR";
    if (!option.value.empty() && !option.isPositional) {
        head += " \\fI" + escaped(option.value) + "\\fR";
    }
    return head;
}

void addOptions(Page& page, const CommandReference& command)
{
    for (const OptionReference& option : command.options) {
        std::string body = option.purpose + ".";
        if (!option.defaultValue.empty()) {
            body += page.in({" Se manca: ", " Default: "}) + option.defaultValue + ".";
        }
        if (!option.excludes.empty()) {
            body += page.in({" Non insieme a", " Not together with"});
            for (const std::string& other : option.excludes) {
                body += " " + other;
            }
            body += ".";
        }
        page.item(headOf(option), body);
    }
}

void addFiles(Page& page)
{
    page.section({"FILE", "FILES"});
    page.item(R"(\fI~/.brisko/TarveloQT.log\fR)",
              page.in({"Il registro: che cosa ha fatto la libreria di rinnovo, senza PIN.",
                       "The log: what the renewal library did, without a PIN."}));
    page.item(R"(\fI~/.brisko/brisko\-r.conf\fR)",
              page.in({"Con la riga reader=\"NOME\" indica il lettore da usare.",
                       "With the line reader=\"NAME\" it names the reader to use."}));
    page.item(R"(\fI~/.brisko/renewals/\fR)",
              page.in({"Un file per ogni rinnovo iniziato e non finito: la richiesta e che cosa "
                       "rinnova, nessun segreto.",
                       "One file for each renewal that was begun and not finished: the request and "
                       "what it renews, no secret."}));
    page.item(R"(\fI../p11/ATR\-renew.ini\fR)",
              page.in({"Accanto alla cartella del programma: quale modulo PKCS#11 serve quale "
                       "carta. Nei pacchetti Debian porta a /etc/tarvelo/ATR-renew.ini.",
                       "Beside the program's folder: which PKCS#11 module serves which card. In "
                       "the Debian packages it leads to /etc/tarvelo/ATR-renew.ini."}));
}

void addExamples(Page& page)
{
    page.section({"ESEMPI", "EXAMPLES"});
    page.prose({"Rinnovo guidato:", "A guided renewal:"});
    page.line(".nf").line(R"(    tarvelo\-renew)").line(".fi");
    page.prose(
        {"Tutto quello che è in scadenza, da uno script:", "All that is due, from a script:"});
    page.line(".nf")
        .line(R"(    tarvelo\-renew renew \-\-all \-\-yes \-\-json \-\-pin\-file pin \e)")
        .line(R"(        \-\-ca\-command "ca\-client \-\-not\-after {not\-after}")")
        .line(".fi");
    page.prose({"Prima la richiesta, giorni dopo il certificato:",
                "The request first, the certificate days later:"});
    page.line(".nf")
        .line(R"(    tarvelo\-renew request \-\-certificate 1 \-\-save\-request request.pem)")
        .line(R"(    tarvelo\-renew install \-\-issued certificate.pem)")
        .line(".fi");
}

}  // namespace

std::string manualPage(Language language)
{
    Page page(language);
    const std::vector<CommandReference> commands = commandReferences(language);
    page.line(R"(.TH TARVELO\-RENEW 1 "" "tarvelo\-renew )" + versioneLibreria.toStdString() +
              "\" \"" + page.in({"Comandi utente", "User Commands"}) + "\"");
    page.section({"NOME", "NAME"});
    page.line("tarvelo\\-renew \\- " + page.in({"rinnova i certificati di una carta di firma",
                                                "renew the certificates on a signature card"}));
    page.section({"SINTASSI", "SYNOPSIS"});
    page.line(R"(\fBtarvelo\-renew\fR [\fI)" + page.in({"OPZIONI", "OPTIONS"}) + "\\fR]");
    page.line(".br");
    page.line(R"(\fBtarvelo\-renew\fR \fI)" + page.in({"COMANDO", "COMMAND"}) + "\\fR [\\fI" +
              page.in({"OPZIONI", "OPTIONS"}) + "\\fR]");
    page.section({"DESCRIZIONE", "DESCRIPTION"});
    page.line(escaped(commands.front().purpose));
    page.prose(
        {"L'autorità di --ca è file:CARTELLA, \"command:PROGRAMMA ARGOMENTI\", est:URL, cmp:URL "
         "oppure il NOME di una sezione del file delle autorità; senza --ca vale la sezione "
         "[default], se c'è. Un programma legge la richiesta (PEM) dal suo standard input e "
         "scrive il certificato sul suo standard output.",
         "The authority of --ca is file:FOLDER, \"command:PROGRAM ARGUMENTS\", est:URL, cmp:URL "
         "or the NAME of a section of the file of authorities; without --ca the section "
         "[default] counts, if there is one. A program reads the request (PEM) on its "
         "standard input and writes the certificate on its standard output."});
    page.section({"OPZIONI", "OPTIONS"});
    addOptions(page, commands.front());
    page.section({"COMANDI", "COMMANDS"});
    for (std::size_t i = 1; i < commands.size(); ++i) {
        page.line(".SS \"" + escaped(commands[i].name) + "\"");
        page.line(escaped(commands[i].purpose) + ".");
        addOptions(page, commands[i]);
    }
    page.section({"CODICI DI USCITA", "EXIT STATUS"});
    for (const ExitCodeEntry& entry : exitCodes()) {
        const std::string step =
            entry.nextStep ? " " + entry.nextStep->in(language).toStdString() : std::string();
        page.item("\\fB" + std::to_string(static_cast<int>(entry.code)) + "\\fR " +
                      escaped(entry.name),
                  entry.meaning.in(language).toStdString() + step);
    }
    addFiles(page);
    addExamples(page);
    return page.text();
}

}  // namespace console::reference
