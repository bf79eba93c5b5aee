// --help, the manual pages and the shells' completions name the same commands and options, judged
// by what the program prints, man shows and each shell offers.

#include "hosts/console/exit_code.h"
#include "program_run.h"

#include <QRegularExpression>
#include <QStringList>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <set>

using hosts::ProgramEnd;
using hosts::runProgram;
using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;

namespace {

using Names = std::set<std::string>;
// Options by command; the program without a command is "".
using Reference = std::map<std::string, Names>;

std::string made(const std::string& file)
{
    return std::string(REFERENCE_FOLDER) + "/" + file;
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

ProgramEnd run(const std::vector<std::string>& command)
{
    return runProgram(command, {}, {{"LC_ALL", "C.UTF-8"}, {"MANWIDTH", "200"}, {"TERM", "dumb"}});
}

Names found(const std::string& text, const QString& pattern)
{
    Names names;
    const QRegularExpression expression(pattern, QRegularExpression::MultilineOption);
    auto matches = expression.globalMatch(QString::fromStdString(text));
    while (matches.hasNext()) {
        names.insert(matches.next().captured(1).toStdString());
    }
    return names;
}

std::string helpOf(const std::string& command, const std::string& language)
{
    std::vector<std::string> words = {TARVELO_RENEW};
    if (!command.empty()) {
        words.push_back(command);
    }
    words.insert(words.end(), {"--help", "--lang", language});
    const ProgramEnd end = run(words);
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(end.errors, "");
    return end.output;
}

Reference helpReference(const std::string& language)
{
    const std::string general = helpOf({}, language);
    Reference reference;
    reference[""] = found(general, QStringLiteral("^  (--[a-z-]+)"));
    for (const std::string& command : found(general, QStringLiteral("^  ([a-z][a-z-]*)  "))) {
        reference[command] = found(helpOf(command, language), QStringLiteral("^  (--[a-z-]+)"));
    }
    return reference;
}

// The page as man shows it, without overstriking.
std::string shownPage(const std::string& file)
{
    const ProgramEnd end =
        run({"sh", "-c", "man --warnings=w -E UTF-8 -P cat -l \"$1\" | col -bx", "sh", made(file)});
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(end.errors, "");
    return end.output;
}

// Options before the commands are the program's own; a command's stand below its name.
Reference manualReference(const std::string& file)
{
    Reference reference;
    std::string command;
    static const QRegularExpression subsection(QStringLiteral("^   ([a-z][a-z-]*)$"));
    static const QRegularExpression option(QStringLiteral("^       (--[a-z-]+)"));
    for (const QString& line : QString::fromStdString(shownPage(file)).split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch begins = subsection.match(line);
        if (begins.hasMatch()) {
            command = begins.captured(1).toStdString();
            reference[command];
        }
        const QRegularExpressionMatch named = option.match(line);
        if (named.hasMatch()) {
            reference[command].insert(named.captured(1).toStdString());
        }
    }
    return reference;
}

Names lines(const std::string& text)
{
    return found(text, QStringLiteral("^([^\\t\\n]+)"));
}

// What bash offers for the last of these words.
Names bashOffers(const std::string& words)
{
    const ProgramEnd end =
        run({"bash", "-c",
             "source \"$1\"; COMP_WORDS=(tarvelo-renew " + words +
                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
                 "$(complete -p tarvelo-renew | sed 's/.*-F \\([^ ]*\\) .*/\\1/'); "
                 "printf '%s\\n' \"${COMPREPLY[@]}\"",
             "bash", made("bash/tarvelo-renew")});
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_EQ(end.errors, "");
    return lines(end.output);
}

Names fishOffers(const std::string& line)
{
    const ProgramEnd end =
        run({"fish", "--no-config", "-c", "source $argv[1]; complete -C $argv[2]",
             made("fish/tarvelo-renew.fish"), "tarvelo-renew " + line});
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    return lines(end.output);
}

// What the function hands to zsh's own _arguments and _describe when this command is typed; the
// commands themselves without one.
ProgramEnd zshArguments(const std::string& command)
{
    return run(
        {"zsh", "-f", "-c",
         "_arguments() { if [[ $1 = -C ]]; then shift; [[ -z $COMMAND ]] && print -rl -- $@; "
         "state=${COMMAND:+rest}; state=${state:-command}; line=($COMMAND); return 1; fi; "
         "print -rl -- $@; }\n"
         "_describe() { print -rl -- ${(P)2}; }\n"
         "COMMAND=$2; source $1",
         "zsh", made("zsh/_tarvelo-renew"), command});
}

Names zshOffers(const std::string& command)
{
    const ProgramEnd end = zshArguments(command);
    EXPECT_EQ(end.errors, "");
    return found(end.output, QStringLiteral("(--[a-z-]+)\\["));
}

}  // namespace

TEST(Reference, help_namesTheSameInBothLanguages)
{
    const Reference english = helpReference("en");
    EXPECT_GT(english.size(), 10U);
    for (const auto& [command, options] : english) {
        SCOPED_TRACE(command);
        EXPECT_THAT(options, Contains("--help"));
        if (!command.empty()) {
            EXPECT_THAT(options, Contains("--json"));
        }
    }
    EXPECT_EQ(english, helpReference("it"));
}

TEST(Reference, manualPages_nameWhatHelpNames)
{
    const Reference help = helpReference("en");
    EXPECT_EQ(manualReference("man1/tarvelo-renew.1"), help);
    EXPECT_EQ(manualReference("it/man1/tarvelo-renew.1"), help);
}

TEST(Reference, manualPages_areSetWithoutComplaint)
{
    for (const char* page : {"man1/tarvelo-renew.1", "it/man1/tarvelo-renew.1"}) {
        SCOPED_TRACE(page);
        const ProgramEnd end = run({"groff", "-ww", "-Kutf8", "-man", "-Tutf8", "-z", made(page)});
        EXPECT_EQ(end.exitCode, 0);
        EXPECT_EQ(end.errors, "");
    }
}

TEST(Reference, exitCodes_areInHelpManualAndDocument)
{
    const std::string document = contentOf(TARVELOQT_SOURCE_DIR "/docs/exit-codes.md");
    // Made by the target exit-codes.
    EXPECT_EQ(document, contentOf(made("exit-codes.md")));
    const std::string help = helpOf({}, "en");
    const std::string manual = shownPage("man1/tarvelo-renew.1");
    for (const console::ExitCodeEntry& entry : console::exitCodes()) {
        const std::string number = std::to_string(static_cast<int>(entry.code));
        EXPECT_THAT(help, HasSubstr(number + "  " + entry.name));
        EXPECT_THAT(manual, HasSubstr(number + " " + entry.name));
        EXPECT_THAT(document, HasSubstr("| " + number + " | `" + entry.name + "` | " +
                                        entry.meaning.in(texts::Language::english).toStdString()));
        EXPECT_THAT(document, HasSubstr(entry.meaning.in(texts::Language::italian).toStdString()));
    }
}

TEST(Reference, completions_areProperScripts)
{
    const std::vector<std::string> checks[] = {{"bash", "-n", made("bash/tarvelo-renew")},
                                               {"zsh", "-n", made("zsh/_tarvelo-renew")},
                                               {"fish", "-n", made("fish/tarvelo-renew.fish")}};
    for (const auto& check : checks) {
        const ProgramEnd end = run(check);
        EXPECT_EQ(end.exitCode, 0) << check.front() << end.errors;
        EXPECT_EQ(end.errors, "") << check.front();
    }
}

TEST(Reference, shells_offerWhatHelpNames)
{
    const Reference help = helpReference("en");
    Names commands;
    for (const auto& [command, options] : help) {
        SCOPED_TRACE(command);
        EXPECT_EQ(bashOffers(command + " --"), options);
        EXPECT_EQ(fishOffers(command + (command.empty() ? "--" : " --")), options);
        EXPECT_EQ(zshOffers(command), options);
        if (!command.empty()) {
            commands.insert(command);
        }
    }
    EXPECT_THAT(bashOffers("''"), IsSupersetOf(commands));
    EXPECT_EQ(fishOffers(""), commands);
    EXPECT_THAT(found(zshArguments({}).output, QStringLiteral("^([a-z-]+):")),
                IsSupersetOf(commands));
}

TEST(Reference, bash_offersValuesWhereTheyAreKnown)
{
    EXPECT_EQ(bashOffers("list --lang ''"), (Names{"it", "en"}));
    EXPECT_EQ(bashOffers("--reader ''"), Names{});
    EXPECT_THAT(bashOffers("list --pin-file /et"), Contains("/etc"));
    EXPECT_EQ(bashOffers("list --pin-fi"), Names{"--pin-file"});
    // A reader called like a command is none.
    EXPECT_EQ(bashOffers("--reader list --"), bashOffers("--"));
}
