#include "hosts/console/reference/completions.h"

#include "hosts/console/reference/command_reference.h"

#include <set>

namespace console::reference {

namespace {

std::vector<CommandReference> commands()
{
    return commandReferences(Language::english);
}

// In single quotes, as sh, zsh and fish take it.
std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (const char character : text) {
        result += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return result + "'";
}

bool takesFile(const OptionReference& option)
{
    return option.value == "FILE";
}

// Values that can be told beforehand.
std::string choices(const OptionReference& option)
{
    return option.name == "--lang" ? "it en" : "";
}

std::string optionNames(const CommandReference& command)
{
    std::string names;
    for (const OptionReference& option : command.options) {
        if (!option.isPositional) {
            names += (names.empty() ? "" : " ") + option.name;
        }
    }
    return names;
}

std::string commandNames()
{
    std::string names;
    for (const CommandReference& command : commands()) {
        names += (names.empty() || command.name.empty() ? "" : " ") + command.name;
    }
    return names;
}

// Names of all options that a predicate holds for, "a|b".
template <typename Predicate>
std::string alternatives(Predicate&& holds)
{
    std::set<std::string> names;
    for (const CommandReference& command : commands()) {
        for (const OptionReference& option : command.options) {
            if (!option.isPositional && holds(option)) {
                names.insert(option.name);
            }
        }
    }
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : "|") + name;
    }
    return text;
}

// A description inside zsh's "name[description]" and "name:description".
std::string zshEscaped(const std::string& text)
{
    std::string result;
    for (const char character : text) {
        if (character == '[' || character == ']' || character == ':' || character == '\\') {
            result += '\\';
        }
        result += character;
    }
    return result;
}

std::string zshOption(const OptionReference& option)
{
    std::string specification = option.name + "[" + zshEscaped(option.purpose) + "]";
    if (takesFile(option)) {
        specification += ":" + option.value + ":_files";
    } else if (!choices(option).empty()) {
        specification += ":" + zshEscaped(option.value) + ":(" + choices(option) + ")";
    } else if (!option.value.empty()) {
        specification += ":" + zshEscaped(option.value) + ":";
    }
    return quoted(specification);
}

}  // namespace

std::string bashCompletion()
{
    std::string text =
        "# Completion of tarvelo-renew for bash.\n"
        "_tarvelo_renew()\n{\n"
        "    local current=${COMP_WORDS[COMP_CWORD]}\n"
        "    local previous=${COMP_WORDS[COMP_CWORD-1]}\n"
        "    local command= before= word options\n"
        "    COMPREPLY=()\n"
        "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        # A value may read like a command.\n"
        "        case $before in\n        " +
        alternatives([](const OptionReference& option) { return !option.value.empty(); }) +
        ") before=; continue ;;\n        esac\n"
        "        before=$word\n"
        "        case $word in\n        ";
    std::string names = commandNames();
    for (char& character : names) {
        character = character == ' ' ? '|' : character;
    }
    text += names +
            ") command=$word; break ;;\n        esac\n    done\n"
            "    case $previous in\n    " +
            alternatives(takesFile) +
            ")\n        compopt -o filenames 2>/dev/null\n"
            "        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
            "        return ;;\n    --lang)\n"
            "        mapfile -t COMPREPLY < <(compgen -W 'it en' -- \"$current\")\n"
            "        return ;;\n    " +
            alternatives([](const OptionReference& option) {
                return !option.value.empty() && !takesFile(option) && choices(option).empty();
            }) +
            ")\n        return ;;\n    esac\n    case $command in\n";
    for (const CommandReference& command : commands()) {
        const std::string words =
            optionNames(command) + (command.name.empty() ? " " + commandNames() : "");
        text += "    " + quoted(command.name) + ") options=" + quoted(words) + " ;;\n";
    }
    text += "    esac\n"
            "    mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$current\")\n"
            "}\n"
            "complete -F _tarvelo_renew tarvelo-renew\n";
    return text;
}

std::string zshCompletion()
{
    std::string text = "#compdef tarvelo-renew\n# Completion of tarvelo-renew for zsh.\n"
                       "_tarvelo_renew()\n{\n"
                       "    local context state line\n    typeset -A opt_args\n"
                       "    local -a commands\n    commands=(\n";
    for (const CommandReference& command : commands()) {
        if (!command.name.empty()) {
            text += "        " + quoted(command.name + ":" + zshEscaped(command.purpose)) + "\n";
        }
    }
    text += "    )\n    _arguments -C \\\n";
    const CommandReference program = commands().front();
    for (const OptionReference& option : program.options) {
        text += "        " + zshOption(option) + " \\\n";
    }
    text += "        '1: :->command' '*:: :->rest' && return\n"
            "    case $state in\n"
            "    command) _describe command commands ;;\n"
            "    rest)\n        case $line[1] in\n";
    for (const CommandReference& command : commands()) {
        if (command.name.empty()) {
            continue;
        }
        text += "        " + command.name + ")\n            _arguments";
        for (const OptionReference& option : command.options) {
            text += option.isPositional ? " \\\n                " + quoted("1:" + option.name + ":")
                                        : " \\\n                " + zshOption(option);
        }
        text += " ;;\n";
    }
    text += "        esac ;;\n    esac\n}\n_tarvelo_renew \"$@\"\n";
    return text;
}

std::string fishCompletion()
{
    std::string text = "# Completion of tarvelo-renew for fish.\n"
                       "complete -c tarvelo-renew -f\n";
    for (const CommandReference& command : commands()) {
        const std::string condition =
            command.name.empty() ? quoted("not __fish_seen_subcommand_from " + commandNames())
                                 : quoted("__fish_seen_subcommand_from " + command.name);
        if (!command.name.empty()) {
            text += "complete -c tarvelo-renew -n " +
                    quoted("not __fish_seen_subcommand_from " + commandNames()) + " -a " +
                    command.name + " -d " + quoted(command.purpose) + "\n";
        }
        for (const OptionReference& option : command.options) {
            if (option.isPositional) {
                continue;
            }
            text += "complete -c tarvelo-renew -n " + condition + " -l " + option.name.substr(2);
            if (takesFile(option)) {
                text += " -r -F";
            } else if (!choices(option).empty()) {
                text += " -x -a " + quoted(choices(option));
            } else if (!option.value.empty()) {
                text += " -x";
            }
            text += " -d " + quoted(option.purpose) + "\n";
        }
    }
    return text;
}

}  // namespace console::reference
