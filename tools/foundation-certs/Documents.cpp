#include "Documents.hpp"

#include <string_view>
#include <vector>

namespace foundation::tools {

namespace {

std::vector<CLI::App const*> subcommandsOf(CLI::App const& program)
{
    return program.get_subcommands([](CLI::App const*) { return true; });
}

/// Returns the options that begin with a dash.
std::vector<CLI::Option const*> optionsOf(CLI::App const& command)
{
    return command.get_options([](CLI::Option const* option) { return option->nonpositional(); });
}

std::vector<CLI::Option const*> argumentsOf(CLI::App const& command)
{
    return command.get_options([](CLI::Option const* option) { return option->get_positional(); });
}

bool hasValue(CLI::Option const& option)
{
    return option.get_type_size() != 0;
}

/// Splits "USAGE:{server,signing}" into "USAGE" and "server signing". A type without values has no second
/// part.
struct ValueKind
{
    explicit ValueKind(CLI::Option const& option)
    {
        std::string const type = option.get_type_name();
        name = type.substr(0, type.find(':'));
        auto const begin = type.find('{');
        if (begin != std::string::npos) {
            values = type.substr(begin + 1, type.find('}', begin) - begin - 1);
            for (char& character : values) {
                character = character == ',' ? ' ' : character;
            }
        }
    }

    bool isFile() const { return name.find("FILE") != std::string::npos || name == "OUT"; }

    std::string name;
    std::string values;
};

/// Returns "-h" and "--help".
std::vector<std::string> spellingsOf(CLI::Option const& option)
{
    std::vector<std::string> spellings;
    for (auto const& name : option.get_snames()) {
        spellings.push_back("-" + name);
    }
    for (auto const& name : option.get_lnames()) {
        spellings.push_back("--" + name);
    }
    return spellings;
}

std::string replaced(std::string_view text, std::string_view characters, std::string_view prefix)
{
    std::string result;
    for (char const character : text) {
        if (characters.find(character) != std::string_view::npos) {
            result += prefix;
        }
        result += character;
    }
    return result;
}

/// Escapes the text for a manual page. Hyphens are typed literally, and no line begins with a control
/// character.
std::string roff(std::string_view text)
{
    auto const escaped = replaced(replaced(text, "\\", "\\"), "-", "\\");
    return escaped.empty() || (escaped[0] != '.' && escaped[0] != '\'') ? escaped : "\\&" + escaped;
}

/// Quotes the text as one word of a shell.
std::string shellWord(std::string_view text)
{
    std::string result = "'";
    for (char const character : text) {
        result += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return result + "'";
}

std::string joined(std::vector<std::string> const& words, std::string const& separator)
{
    std::string result;
    for (auto const& word : words) {
        result += (result.empty() ? "" : separator) + word;
    }
    return result;
}

std::string manualOption(CLI::Option const& option)
{
    std::string text = ".TP\n\\fB" + roff(joined(spellingsOf(option), ", ")) + "\\fR";
    ValueKind const kind(option);
    if (hasValue(option)) {
        text += " \\fI" + roff(kind.name) + "\\fR";
    }
    text += "\n" + roff(option.get_description()) + ".";
    if (!kind.values.empty()) {
        text += " One of: " + roff(kind.values) + ".";
    }
    if (hasValue(option) && !option.get_default_str().empty()) {
        text += " By default " + roff(option.get_default_str()) + ".";
    }
    return text + "\n";
}

std::string manualArgument(CLI::Option const& argument)
{
    return ".TP\n\\fI" + roff(argument.get_name(true)) + "\\fR\n" + roff(argument.get_description()) + ".\n";
}

std::string manualSection(CLI::App const& command)
{
    std::string text = ".SS " + command.get_name() + " [\\fIOPTION\\fR]...";
    for (auto const* const argument : argumentsOf(command)) {
        text += " \\fI" + roff(argument->get_name(true)) + "\\fR" +
                (argument->get_expected_max() > 1 ? "..." : "");
    }
    text += "\n" + roff(command.get_description()) + ".\n";
    for (auto const* const argument : argumentsOf(command)) {
        text += manualArgument(*argument);
    }
    for (auto const* const option : optionsOf(command)) {
        text += manualOption(*option);
    }
    return text;
}

std::string optionWords(CLI::App const& command)
{
    std::vector<std::string> words;
    for (auto const* const option : optionsOf(command)) {
        words.push_back(joined(spellingsOf(*option), " "));
    }
    return joined(words, " ");
}

/// Returns a branch of a `case` of bash for each option with values of its own, and for each with another
/// value.
std::string bashValues(CLI::App const& command)
{
    std::string text;
    for (auto const* const option : optionsOf(command)) {
        ValueKind const kind(*option);
        if (!hasValue(*option) || kind.isFile()) {
            continue; // files are what everything else completes to
        }
        text += "        " + command.get_name() + ":" + spellingsOf(*option).back() +
                ") COMPREPLY=($(compgen -W " + shellWord(kind.values) + " -- \"$word\")); return ;;\n";
    }
    return text;
}

std::string zshOption(CLI::Option const& option)
{
    ValueKind const kind(option);
    std::string const repeats = option.get_expected_max() > 1 ? "*" : "";
    std::string text;
    for (auto const& spelling : spellingsOf(option)) {
        auto specification = repeats + spelling + "[" + replaced(option.get_description(), "[]:", "\\") + "]";
        if (hasValue(option)) {
            auto const action = kind.isFile()         ? "_files"
                                : kind.values.empty() ? " "
                                                      : "(" + kind.values + ")";
            specification += ":" + kind.name + ":" + action;
        }
        text += " \\\n                " + shellWord(specification);
    }
    return text;
}

} // namespace

std::string manualPage(CLI::App const& program)
{
    std::string text = ".\\\" Made from the description of the arguments.\n"
                       ".TH FOUNDATION-CERTS 1 \"\" \"" +
                       program.version() + "\"\n.SH NAME\n" + roff(program.get_name()) + " \\- " +
                       roff(program.get_description()) + "\n.SH SYNOPSIS\n\\fB" + roff(program.get_name()) +
                       "\\fR \\fISUBCOMMAND\\fR [\\fIARGUMENT\\fR]...\n.SH OPTIONS\n";
    for (auto const* const option : optionsOf(program)) {
        text += manualOption(*option);
    }
    text += ".SH SUBCOMMANDS\n";
    for (auto const* const command : subcommandsOf(program)) {
        text += manualSection(*command);
    }
    return text + ".SH EXIT STATUS\n" + roff(program.get_footer()) + "\n";
}

std::string bashCompletions(CLI::App const& program)
{
    std::string subcommands;
    std::string options;
    std::string values;
    for (auto const* const command : subcommandsOf(program)) {
        subcommands += " " + command->get_name();
        options +=
            "        " + command->get_name() + ") options=" + shellWord(optionWords(*command)) + " ;;\n";
        values += bashValues(*command);
    }
    return "# bash completions of foundation-certs, made from the description of its arguments\n"
           "_foundation_certs() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} options\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
           "        COMPREPLY=($(compgen -W " +
           shellWord(optionWords(program) + subcommands) +
           " -- \"$word\"))\n"
           "        return\n"
           "    fi\n"
           "    case ${COMP_WORDS[1]}:$before in\n" +
           values +
           "    esac\n"
           "    case ${COMP_WORDS[1]} in\n" +
           options +
           "    esac\n"
           "    if [[ $word == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$options\" -- \"$word\"))\n"
           "    fi\n"
           "}\n"
           "complete -o default -F _foundation_certs foundation-certs\n";
}

std::string zshCompletions(CLI::App const& program)
{
    std::string names;
    std::string branches;
    for (auto const* const command : subcommandsOf(program)) {
        names += " \\\n                " +
                 shellWord(command->get_name() + ":" + replaced(command->get_description(), ":", "\\"));
        branches += "        " + command->get_name() + ")\n            _arguments -s";
        for (auto const* const option : optionsOf(*command)) {
            branches += zshOption(*option);
        }
        branches += argumentsOf(*command).empty() ? "\n" : " \\\n                '*:file:_files'\n";
        branches += "            ;;\n";
    }
    std::string programOptions;
    for (auto const* const option : optionsOf(program)) {
        programOptions += zshOption(*option);
    }
    return "#compdef foundation-certs\n"
           "# Completions of foundation-certs, made from the description of its arguments\n"
           "_foundation_certs() {\n"
           "    local state line\n"
           "    local -a subcommands\n"
           "    _arguments -C" +
           programOptions +
           " \\\n                '1: :->subcommand' '*:: :->arguments'\n"
           "    case $state in\n"
           "    subcommand)\n"
           "        subcommands=(" +
           names +
           ")\n"
           "        _describe subcommand subcommands\n"
           "        ;;\n"
           "    arguments)\n"
           "        case $words[1] in\n" +
           branches +
           "        esac\n"
           "        ;;\n"
           "    esac\n"
           "}\n"
           "_foundation_certs \"$@\"\n";
}

} // namespace foundation::tools
