#include "hosts/console/command_line.h"

#include "hosts/console/help_format.h"

#include <CLI/CLI.hpp>
#include <card_v_func.h>

#include <algorithm>

namespace console {

namespace {

constexpr int defaultLogLines = 40;
constexpr int mostLogLines = 100000;

std::string utf8(const Text& text)
{
    return text.string().toStdString();
}

// The groups of options that a command may take.
enum Group : unsigned {
    reader = 1U << 0U,
    pin = 1U << 1U,
    certificate = 1U << 2U,
    all = 1U << 3U,
    saveRequest = 1U << 4U,
    renewal = 1U << 5U,
    authority = 1U << 6U,
    issued = 1U << 7U,
    confirmation = 1U << 8U,
    atr = 1U << 9U,
    logLines = 1U << 10U,
    json = 1U << 11U,
};

// Of the guided run, which has no name.
constexpr unsigned guidedOptions =
    reader | pin | certificate | saveRequest | authority | issued | confirmation;

struct CommandRow {
    Command command;
    const char* name;
    Text purpose;
    unsigned options;
};

const std::vector<CommandRow>& commandRows()
{
    static const std::vector<CommandRow> rows = {
        {Command::readers, "readers",
         Text("Elenca i lettori e le carte inserite", "List the readers and the cards in them"),
         json},
        {Command::status, "status",
         Text("Mostra la carta, i tentativi del PIN e i rinnovi rimasti a metà, senza PIN",
              "Show the card, the PIN tries and the renewals that wait, without a PIN"),
         reader | json},
        {Command::list, "list",
         Text("Elenca i certificati sulla carta", "List the certificates on the card"),
         reader | pin | json},
        {Command::request, "request",
         Text("Genera sulla carta la chiave e la richiesta di certificato",
              "Make the key and the certificate request on the card"),
         reader | pin | certificate | all | saveRequest | confirmation | json},
        {Command::submit, "submit",
         Text("Porta all'autorità una richiesta già fatta, senza carta",
              "Take a request that was made earlier to the authority, without the card"),
         renewal | authority | json},
        {Command::install, "install",
         Text("Scrive sulla carta il certificato emesso",
              "Write the issued certificate onto the card"),
         reader | pin | certificate | renewal | issued | confirmation | json},
        {Command::renew, "renew",
         Text("Richiesta, autorità e installazione in una volta sola",
              "Request, authority and installation in one go"),
         reader | pin | certificate | all | saveRequest | authority | issued | confirmation | json},
        {Command::resume, "resume",
         Text("Completa i rinnovi rimasti a metà", "Finish the renewals that were begun"),
         reader | pin | renewal | saveRequest | authority | issued | confirmation | json},
        {Command::doctor, "doctor",
         Text("Dice che cosa non va e come rimediare", "Tell what is wrong and how to mend it"),
         reader | authority | json},
        {Command::explainAtr, "explain-atr",
         Text("Dice quale voce della tabella serve un ATR, e perché",
              "Tell which entry of the table serves an ATR, and why"),
         atr | json},
        {Command::log, "log",
         Text("Mostra le ultime righe del registro", "Show the last lines of the log"),
         logLines | json},
    };
    return rows;
}

void addReader(CLI::App& app, CommandLine& line)
{
    app.add_option("--reader", line.raw.reader,
                   utf8({"Usa questo lettore", "Use this card reader"}))
        ->type_name("NAME");
}

void addPin(CLI::App& app, CommandLine& line)
{
    auto* file =
        app.add_option("--pin-file", line.raw.pinFile,
                       utf8({"Legge il PIN da questo file", "Read the PIN from this file"}))
            ->type_name("FILE");
    auto* descriptor = app.add_option("--pin-fd", line.raw.pinDescriptor,
                                      utf8({"Legge il PIN da questo descrittore di file aperto",
                                            "Read the PIN from this open file descriptor"}))
                           ->type_name("NUMBER")
                           ->check(CLI::NonNegativeNumber)
                           ->excludes(file);
    app.add_option("--pin-env", line.raw.pinVariable,
                   utf8({"Legge il PIN da questa variabile d'ambiente",
                         "Read the PIN from this environment variable"}))
        ->type_name("VARIABLE")
        ->excludes(file)
        ->excludes(descriptor);
    app.add_flag("--last-try", line.arguments.lastTry,
                 utf8({"Usa il PIN anche se è l'ultimo tentativo",
                       "Use the PIN although it is the last try"}));
    app.add_flag("--ask", line.arguments.ask,
                 utf8({"Fa domande anche senza terminale: le risposte sono nello standard input",
                       "Ask although there is no terminal: the answers are in standard input"}));
}

void addCertificate(CLI::App& app, CommandLine& line)
{
    app.add_option("--certificate", line.raw.certificate,
                   utf8({"Questo certificato: il suo numero nella tabella",
                         "This certificate: its number in the table"}))
        ->type_name("NUMBER");
}

void addAll(CLI::App& app, CommandLine& line)
{
    app.add_flag("--all", line.arguments.all,
                 utf8({"Tutti quelli da rinnovare", "All that are to be renewed"}))
        ->excludes("--certificate");
}

void addSaveRequest(CLI::App& app, CommandLine& line)
{
    app.add_option("--save-request", line.raw.saveRequestFile,
                   utf8({"Scrive la richiesta in questo file", "Keep the request in this file"}))
        ->type_name("FILE");
}

void addRenewal(CLI::App& app, CommandLine& line)
{
    app.add_option("--renewal", line.raw.renewal,
                   utf8({"Solo questo rinnovo: le prime cifre del suo identificativo (status)",
                         "This renewal only: the first digits of its identifier (status)"}))
        ->type_name("ID");
}

void addAuthority(CLI::App& app, CommandLine& line)
{
    app.add_option("--ca", line.raw.authority,
                   utf8({"Chiede il certificato a questa autorità (vedi sotto)",
                         "Ask this authority for the certificate (below)"}))
        ->type_name("WAY:VALUE|NAME");
    app.add_option("--ca-file", line.raw.authoritiesFile,
                   utf8({"Le autorità per nome stanno in questo file",
                         "The authorities by name are in this file"}))
        ->type_name("FILE");
    app.add_option(
           "--save-certificate", line.raw.saveCertificateFile,
           utf8({"Scrive il certificato in questo file", "Keep the certificate in this file"}))
        ->type_name("FILE");
}

void addIssued(CLI::App& app, CommandLine& line)
{
    CLI::Option* option = app.add_option("--issued", line.raw.issuedFile,
                                         utf8({"Installa il certificato di questo file",
                                               "Install the certificate in this file"}))
                              ->type_name("FILE");
    if (CLI::Option* command = app.get_option_no_throw("--ca")) {
        option->excludes(command);
    }
}

void addConfirmation(CLI::App& app, CommandLine& line)
{
    app.add_flag("--yes", line.arguments.yes,
                 utf8({"Non chiede conferma", "Do not ask for confirmation"}));
    app.add_flag("--dry-run", line.arguments.dryRun,
                 utf8({"Mostra che cosa farebbe, senza scrivere nulla",
                       "Show what would be done, and write nothing"}));
}

void addAtr(CLI::App& app, CommandLine& line)
{
    app.add_option("ATR", line.raw.atr,
                   utf8({"ATR in esadecimale; spazi e due punti sono ammessi",
                         "The ATR in hexadecimal; blanks and colons are allowed"}))
        ->required();
}

void addLogLines(CLI::App& app, CommandLine& line)
{
    app.add_option("--lines", line.arguments.logLines, utf8({"Quante righe", "How many lines"}))
        ->type_name("NUMBER")
        ->check(CLI::Range(1, mostLogLines))
        ->capture_default_str();
}

void addJson(CLI::App& app, CommandLine& line)
{
    app.add_flag("--json", line.arguments.json,
                 utf8({"Risponde con un documento JSON", "Answer with a JSON document"}));
}

void addCommon(CLI::App& app, CommandLine& line)
{
    app.add_option("--lang", line.raw.language, utf8({"Lingua dei testi", "Language of the texts"}))
        ->type_name("it|en")
        ->check([](const std::string& name) {
            return languageNamed(QString::fromStdString(name))
                       ? std::string()
                       : utf8({"le lingue sono it e en", "the languages are it and en"});
        });
    app.set_help_flag("--help", utf8({"Mostra questo aiuto", "Show this help"}));
}

void declareOptions(CLI::App& app, CommandLine& line, unsigned groups)
{
    struct Row {
        Group group;
        void (*add)(CLI::App&, CommandLine&);
    };
    static constexpr Row rows[] = {
        {atr, addAtr},         {logLines, addLogLines},         {reader, addReader},
        {pin, addPin},         {certificate, addCertificate},   {all, addAll},
        {renewal, addRenewal}, {saveRequest, addSaveRequest},   {authority, addAuthority},
        {issued, addIssued},   {confirmation, addConfirmation}, {json, addJson},
    };
    for (const Row& row : rows) {
        if ((groups & row.group) != 0) {
            row.add(app, line);
        }
    }
    addCommon(app, line);
}

void declareCommand(CLI::App& app, CommandLine& line, const CommandRow& row)
{
    CLI::App& sub = *app.add_subcommand(row.name, utf8(row.purpose));
    sub.group(utf8({"Comandi", "Commands"}));
    sub.callback([&line, command = row.command] { line.arguments.command = command; });
    declareOptions(sub, line, row.options);
    if ((row.options & authority) != 0) {
        sub.footer(closingHelp());
    }
}

}  // namespace

const char* nameOf(Command command)
{
    for (const CommandRow& row : commandRows()) {
        if (row.command == command) {
            return row.name;
        }
    }
    return "guided";
}

bool reachesAuthority(Command command)
{
    if (command == Command::guided) {
        return (guidedOptions & authority) != 0;
    }
    const auto& rows = commandRows();
    return std::any_of(rows.begin(), rows.end(), [command](const CommandRow& row) {
        return row.command == command && (row.options & authority) != 0;
    });
}

std::string closingHelp()
{
    std::string text =
        utf8({"L'autorità di --ca è file:CARTELLA, \"command:PROGRAMMA ARGOMENTI\", est:URL,\n"
              "cmp:URL, o il NOME di una sezione di ~/.config/tarvelo/authorities.ini o di\n"
              "/etc/tarvelo/authorities.ini; senza --ca vale la sezione [default], se c'è.\n\n"
              "Codici di uscita:\n",
              "The authority of --ca is file:FOLDER, \"command:PROGRAM ARGUMENTS\", est:URL,\n"
              "cmp:URL, or the NAME of a section of ~/.config/tarvelo/authorities.ini or\n"
              "/etc/tarvelo/authorities.ini; without --ca the section [default] counts, if\n"
              "there is one.\n\nExit codes:\n"});
    for (const ExitCodeEntry& entry : exitCodes()) {
        const std::string number = std::to_string(static_cast<int>(entry.code));
        text += std::string(4 - number.size(), ' ') + number + "  " + entry.name + "\n";
    }
    return text;
}

std::unique_ptr<CommandLine> declareCommandLine()
{
    auto line = std::make_unique<CommandLine>();
    line->arguments.logLines = defaultLogLines;
    line->app = std::make_unique<CLI::App>(
        utf8({"Rinnova i certificati di una carta di firma. Senza comando guida passo per passo.\n"
              "Il PIN viene chiesto senza mostrarlo, se non lo dà un file, un descrittore o una "
              "variabile.",
              "Renews the certificates on a signature card. Without a command it guides through "
              "each step.\n"
              "The PIN is asked for without echo unless a file, descriptor or variable holds it."}),
        "tarvelo-renew");
    CLI::App& app = *line->app;
    // Before anything is declared: commands and options take both over.
    app.formatter(std::make_shared<HelpFormat>());
    app.option_defaults()->group(utf8({"Opzioni", "Options"}));
    app.require_subcommand(0, 1);
    declareOptions(app, *line, guidedOptions);
    app.set_version_flag("--version", "tarvelo-renew " + versioneLibreria.toStdString(),
                         utf8({"Mostra la versione", "Show the version"}));
    for (const CommandRow& row : commandRows()) {
        declareCommand(app, *line, row);
    }
    app.footer(closingHelp());
    return line;
}

}  // namespace console
