#include "host/help_pages.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>

#include "host/scenario.h"

namespace host {
namespace {

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    std::vector<const CLI::App*> commands;
    for (const CLI::App* command : app.get_subcommands({})) {
        if (!command->get_group().empty()) {
            commands.push_back(command);
        }
    }
    return commands;
}

bool takesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

// Its options, without the hidden ones; positionals or the others.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app, bool positional) {
    std::vector<const CLI::Option*> options;
    for (const CLI::Option* option : app.get_options()) {
        if (!option->get_group().empty() &&
            (option->get_lnames().empty() && option->get_snames().empty()) == positional) {
            options.push_back(option);
        }
    }
    return options;
}

std::string longName(const CLI::Option& option) {
    return option.get_lnames().empty() ? "" : "--" + option.get_lnames().front();
}

// What an option's value may be: words, or files.
struct Values {
    std::vector<std::string> words;
    bool files = false;
};

Values valuesOf(const CLI::Option& option) {
    Values values;
    const std::string kind = option.get_type_name();
    values.files = kind.starts_with("FILE") || kind.starts_with("BUNDLE") || kind.starts_with("FOLDER") ||
                   kind.starts_with("DATABASE");
    if (const ScenarioField* field =
            findScenarioField(option.get_lnames().empty() ? "" : option.get_lnames().front())) {
        values.words.assign(field->words.begin(), field->words.end());
    }
    return values;
}

// Text for roff: no line begins with a control character.
std::string roff(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else if ((c == '.' || c == '\'') && (out.empty() || out.back() == '\n')) {
            out += "\\&";
            out += c;
        } else {
            out += c;
        }
    }
    return out;
}

void appendOption(std::string& page, const CLI::Option& option, bool positional) {
    page += ".TP\n\\fB" + roff(option.get_name(positional, !positional)) + "\\fR";
    if (takesValue(option) && !positional) {
        page += " \\fI" + roff(option.get_type_name()) + "\\fR";
    }
    page += "\n" + roff(option.get_description()) + "\n";
}

void appendOptions(std::string& page, const CLI::App& app) {
    for (const bool positional : {true, false}) {
        const std::vector<const CLI::Option*> options = optionsOf(app, positional);
        if (!options.empty()) {
            page += positional ? ".SH ARGUMENTS\n" : ".SH OPTIONS\n";
        }
        for (const CLI::Option* option : options) {
            appendOption(page, *option, positional);
        }
    }
}

std::string synopsis(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : optionsOf(app, true)) {
        const std::string place = "\\fI" + roff(option->get_name(true)) + "\\fR";
        text += option->get_required() ? " " + place : " [" + place + "]";
        text += option->get_items_expected_max() > 1 ? "..." : "";
    }
    return text;
}

// A command of a command has no page of its own: what it takes, and what it says beside the page's own text.
void appendSubcommand(std::string& page, const CLI::App& app, const std::string& pageText) {
    page += ".TP\n\\fB" + roff(app.get_name()) + "\\fR" + synopsis(app) + "\n" + roff(app.get_description()) + "\n";
    std::string text = app.get_footer();
    if (text.ends_with(pageText)) {
        text.resize(text.size() - pageText.size());
    }
    page += ".RS\n" + (text.empty() ? text : ".PP\n" + roff(text) + (text.ends_with('\n') ? "" : "\n"));
    for (const bool positional : {true, false}) {
        for (const CLI::Option* option : optionsOf(app, positional)) {
            if (option != app.get_help_ptr()) {
                appendOption(page, *option, positional);
            }
        }
    }
    page += ".RE\n";
}

std::string manualPage(const CLI::App& app, const std::string& name, const std::string& version) {
    std::string title = name;
    std::transform(title.begin(), title.end(), title.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? char(c - 32) : c; });
    std::string page = ".TH " + roff(title) + " 1 \"\" \"quil " + version + "\" \"User Commands\"\n.SH NAME\n" +
                       roff(name) + " \\- " + roff(app.get_description()) + "\n.SH SYNOPSIS\n\\fB";
    page += roff(name == "quil" ? name : "quil " + app.get_name()) + "\\fR";
    page += " [\\fIOPTIONS\\fR]";
    page += synopsis(app);
    page += commandsOf(app).empty() ? "\n" : " \\fICOMMAND\\fR ...\n";
    if (!app.get_footer().empty()) {
        page += ".SH DESCRIPTION\n" + roff(app.get_footer()) + "\n";
    }
    if (!commandsOf(app).empty()) {
        page += ".SH COMMANDS\n";
        for (const CLI::App* command : commandsOf(app)) {
            if (name == "quil") {
                page += ".TP\n\\fB" + roff(command->get_name()) + "\\fR\n" + roff(command->get_description()) + "\n";
            } else {
                appendSubcommand(page, *command, app.get_footer());
            }
        }
    }
    appendOptions(page, app);
    page +=
        ".SH EXIT STATUS\n0; 1 when it failed, with a message on standard error; 2 for wrong usage.\n.SH SEE ALSO\n";
    if (name != "quil") {
        return page + "\\fBquil\\fR(1)\n";
    }
    std::string list;
    for (const CLI::App* command : commandsOf(app)) {
        list += (list.empty() ? "" : ",\n") + std::string("\\fBquil\\-") + roff(command->get_name()) + "\\fR(1)";
    }
    return page + list + "\n";
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

// Every option's name with both dashes, and the subcommands' names.
std::string completionWords(const CLI::App& app) {
    std::vector<std::string> words;
    for (const CLI::App* command : commandsOf(app)) {
        words.push_back(command->get_name());
    }
    for (const CLI::Option* option : optionsOf(app, false)) {
        for (const std::string& name : option->get_lnames()) {
            words.push_back("--" + name);
        }
    }
    return joined(words);
}

// Text inside single quotes of a shell.
std::string shellText(std::string_view text, bool brackets = false) {
    std::string out;
    for (const char c : text) {
        if (c == '\'') {
            out += "'\\''";
        } else if (brackets && (c == '[' || c == ']' || c == ':' || c == '\\')) {
            out += '\\';
            out += c;
        } else {
            out += c == '\n' ? ' ' : c;
        }
    }
    return out;
}

bool takesFunctionName(const CLI::App& command) {
    return command.get_name() == "call" || command.get_name() == "help";
}

}  // namespace

std::vector<std::pair<std::string, std::string>> manualPages(const CLI::App& app, const std::string& version) {
    std::vector<std::pair<std::string, std::string>> pages{{"quil.1", manualPage(app, "quil", version)}};
    for (const CLI::App* command : commandsOf(app)) {
        const std::string name = "quil-" + command->get_name();
        pages.emplace_back(name + ".1", manualPage(*command, name, version));
    }
    return pages;
}

std::string bashCompletion(const CLI::App& app) {
    std::string text =
        "# bash completion of quil\n_quil() {\n    local word=${COMP_WORDS[COMP_CWORD]} "
        "before=${COMP_WORDS[COMP_CWORD-1]} "
        "command= i\n    for ((i = 1; i < COMP_CWORD; ++i)); do\n        case ${COMP_WORDS[i]} in\n        ";
    std::string names;
    std::string cases;
    std::string values;
    const auto addValues = [&values](const CLI::App& place) {
        for (const CLI::Option* option : optionsOf(place, false)) {
            const Values list = valuesOf(*option);
            const std::string name = longName(*option);
            if (name.empty() || !takesValue(*option) || values.find("    " + name + ")") != std::string::npos) {
                continue;
            }
            values += "    " + name + ")\n        " +
                      (!list.words.empty() ? "COMPREPLY=($(compgen -W '" + joined(list.words) + "' -- \"$word\"))"
                       : list.files        ? std::string("COMPREPLY=($(compgen -f -- \"$word\"))")
                                           : std::string("COMPREPLY=()")) +
                      "\n        return\n        ;;\n";
        }
    };
    addValues(app);
    for (const CLI::App* command : commandsOf(app)) {
        names += (names.empty() ? "" : " | ") + command->get_name();
        cases += "    " + command->get_name() + ") words='" + completionWords(*command) + "'";
        cases += takesFunctionName(*command) ? "\" $(\"${COMP_WORDS[0]}\" functions --names 2>/dev/null)\"" : "";
        cases += " ;;\n";
        addValues(*command);
    }
    text +=
        names + ")\n            command=${COMP_WORDS[i]}\n            break\n            ;;\n        esac\n    done\n";
    text += "    case $before in\n" + values + "    esac\n    local words=\n    case $command in\n    '') words='" +
            completionWords(app) + "' ;;\n" + cases + "    esac\n";
    return text +
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
           "    if [[ -n $command && $word != -* ]]; then\n"
           "        COMPREPLY+=($(compgen -f -- \"$word\"))\n    fi\n}\n"
           "complete -o filenames -F _quil quil\n";
}

std::string zshCompletion(const CLI::App& app) {
    const auto arguments = [](const CLI::App& place) {
        std::string list;
        for (const CLI::Option* option : optionsOf(place, false)) {
            const Values values = valuesOf(*option);
            if (longName(*option).empty()) {
                continue;
            }
            list += " \\\n        '" + longName(*option) + "[" + shellText(option->get_description(), true) + "]";
            if (takesValue(*option)) {
                list += ":value:" + (!values.words.empty() ? "(" + joined(values.words) + ")"
                                     : values.files        ? std::string("_files")
                                                           : std::string());
            }
            list += "'";
        }
        return list;
    };
    std::string text = "#compdef quil\n_quil() {\n    local state line\n    _arguments -C" + arguments(app) +
                       " \\\n        '1:command:->command' '*::argument:->argument'\n    case $state in\n    command)\n"
                       "        local -a commands=(\n";
    for (const CLI::App* command : commandsOf(app)) {
        text += "            '" + command->get_name() + ":" + shellText(command->get_description()) + "'\n";
    }
    text += "        )\n        _describe command commands\n        ;;\n    argument)\n        case $line[1] in\n";
    for (const CLI::App* command : commandsOf(app)) {
        text += "        " + command->get_name() + ") _arguments" + arguments(*command) + " \\\n        '*:argument:" +
                (takesFunctionName(*command) ? "($(quil functions --names 2>/dev/null))" : "_files") + "' ;;\n";
    }
    return text + "        esac\n        ;;\n    esac\n}\n_quil \"$@\"\n";
}

std::string fishCompletion(const CLI::App& app) {
    std::string text = "# fish completion of quil\n";
    const auto add = [&text](const CLI::App& place, const std::string& condition) {
        for (const CLI::Option* option : optionsOf(place, false)) {
            if (option->get_lnames().empty()) {
                continue;
            }
            const Values values = valuesOf(*option);
            text += "complete -c quil -n '" + condition + "' -l " + option->get_lnames().front();
            if (takesValue(*option)) {
                text += values.files ? " -rF" : values.words.empty() ? " -x" : " -xa '" + joined(values.words) + "'";
            }
            text += " -d '" + shellText(option->get_description()) + "'\n";
        }
    };
    add(app, "__fish_use_subcommand");
    for (const CLI::App* command : commandsOf(app)) {
        text += "complete -c quil -n __fish_use_subcommand -xa " + command->get_name() + " -d '" +
                shellText(command->get_description()) + "'\n";
        const std::string condition = "__fish_seen_subcommand_from " + command->get_name();
        add(*command, condition);
        if (takesFunctionName(*command)) {
            text += "complete -c quil -n '" + condition + "' -xa '(quil functions --names 2>/dev/null)'\n";
        }
    }
    return text;
}

}  // namespace host
