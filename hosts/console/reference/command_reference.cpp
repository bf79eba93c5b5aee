#include "hosts/console/reference/command_reference.h"

#include "hosts/console/command_line.h"

namespace console::reference {

namespace {

OptionReference referenceOf(const CLI::Option& option)
{
    OptionReference reference;
    reference.isPositional = option.get_positional();
    reference.name = option.get_name();
    if (option.get_items_expected_max() > 0) {
        reference.value = option.get_type_name();
        // What the checks add to the name of the value is for --help.
        reference.value.resize(std::min(reference.value.find(':'), reference.value.size()));
        reference.defaultValue = option.get_default_str();
    }
    reference.purpose = option.get_description();
    for (const CLI::Option* other : option.get_excludes()) {
        reference.excludes.push_back(other->get_name());
    }
    return reference;
}

CommandReference referenceOf(const CLI::App& app, const std::string& name)
{
    CommandReference reference;
    reference.name = name;
    reference.purpose = app.get_description();
    for (const CLI::Option* option : app.get_options([](const CLI::Option*) { return true; })) {
        reference.options.push_back(referenceOf(*option));
    }
    return reference;
}

}  // namespace

std::vector<CommandReference> commandReferences(Language language)
{
    const Language before = console::language();
    setLanguage(language);
    const std::unique_ptr<CommandLine> line = declareCommandLine();
    setLanguage(before);
    const CLI::App& app = *line->app;
    std::vector<CommandReference> references = {referenceOf(app, {})};
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        references.push_back(referenceOf(*command, command->get_name()));
    }
    return references;
}

}  // namespace console::reference
