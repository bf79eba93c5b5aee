// --help for a screen of 80 columns: a name, its value, and a description that keeps to its column.

#ifndef TARVELOQT_HOSTS_CONSOLE_HELP_FORMAT_H
#define TARVELOQT_HOSTS_CONSOLE_HELP_FORMAT_H

#include <CLI/App.hpp>

#include <memory>

namespace console {

class HelpFormat : public CLI::Formatter {
public:
    // Headings in the language that is set.
    HelpFormat();

    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
    std::string make_subcommand(const CLI::App* command) const override;
    std::string make_description(const CLI::App* app) const override;
};

}  // namespace console

#endif
