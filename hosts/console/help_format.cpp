#include "hosts/console/help_format.h"

#include "hosts/console/language.h"
#include "hosts/console/text_layout.h"

#include <QStringList>

#include <CLI/CLI.hpp>

#include <sstream>

namespace console {

namespace {

constexpr int descriptionColumn = 30;

// Broken at the margin, without the blanks that begin each line: the parser adds those.
std::string inColumn(const std::string& text)
{
    QStringList lines;
    for (const QString& line :
         wrapped(QString::fromStdString(text), descriptionColumn).split(QLatin1Char('\n'))) {
        lines.append(line.mid(descriptionColumn));
    }
    return lines.join(QLatin1Char('\n')).toStdString();
}

std::string utf8(const Text& text)
{
    return text.string().toStdString();
}

}  // namespace

HelpFormat::HelpFormat()
{
    column_width(descriptionColumn);
    label("Usage", utf8({"Uso", "Usage"}));
    label("OPTIONS", utf8({"OPZIONI", "OPTIONS"}));
    label("SUBCOMMAND", utf8({"COMANDO", "COMMAND"}));
    label("SUBCOMMANDS", utf8({"COMANDO", "COMMAND"}));
    label("Positionals", utf8({"Argomenti", "Arguments"}));
}

std::string HelpFormat::make_option_opts(const CLI::Option* option) const
{
    const bool takesValue = option->get_items_expected_max() > 0 && !option->get_positional();
    return takesValue ? " " + option->get_type_name().substr(0, option->get_type_name().find(':'))
                      : std::string();
}

std::string HelpFormat::make_option_desc(const CLI::Option* option) const
{
    std::string text = option->get_description();
    if (!option->get_default_str().empty()) {
        text += utf8({" (se manca: ", " (default: "}) + option->get_default_str() + ")";
    }
    return inColumn(text);
}

std::string HelpFormat::make_subcommand(const CLI::App* command) const
{
    std::ostringstream stream;
    CLI::detail::format_help(stream, command->get_name(), inColumn(command->get_description()),
                             get_column_width());
    return stream.str();
}

std::string HelpFormat::make_description(const CLI::App* app) const
{
    return wrapped(QString::fromStdString(app->get_description())).toStdString() + "\n";
}

}  // namespace console
