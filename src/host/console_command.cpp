// `quil console`: a solution's scripts, functions and database by hand.

#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>  // readline needs it before
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>

#include "host/commands.h"
#include "host/solution.h"

namespace host {

namespace {

constexpr char kName[] = "console";  // as messages call what is typed
constexpr char kPrompt[] = "quil> ";
constexpr char kMorePrompt[] = "   >> ";
constexpr int kHistoryLines = 1000;
constexpr char kHelp[] =
    "Lua           a statement or an expression; it may go on over several lines, and each is a transaction\n"
    "=EXPRESSION   prints its values\n"
    ".sql SQL      runs SQL and prints the rows\n"
    ".scripts      the solution's scripts; perform(\"NAME\") runs one\n"
    ".help NAME    explains a script function\n"
    ".quit         ends, as quit() and the end of the input do\n";

class Console {
  public:
    Console(Context& context, Solution& solution) : solution_(solution) {
        for (FunctionHelp& help : readFunctionList(bundleOf(context))) {
            help_.emplace(help.name, std::move(help));
        }
    }

    void readLines();
    void readTerminal();
    std::vector<std::string> completions(const std::string& start);
    const FunctionHelp* helpFor(const std::string& name) const {
        const auto found = help_.find(name);
        return found == help_.end() ? nullptr : &found->second;
    }

    void takeLine(std::string_view text) {
        line(text);
        if (!solution_.life().over()) {
            prompt();
        }
    }
    void end() { solution_.life().quit(0); }

  private:
    void prompt();
    void line(std::string_view text);
    void command(const std::string& text);
    void evaluate(const std::string& text);
    void sql(const std::string& text);

    Solution& solution_;
    std::map<std::string, FunctionHelp> help_;
    std::string unfinished_;  // lines that are no whole statement yet
};

Console* sConsole = nullptr;  // whose lines readline hands over

std::string folderOfHistory() {
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/') {
        return std::string(state) + "/quil";
    }
    const char* const home = std::getenv("HOME");
    return home == nullptr || *home == '\0' ? std::string() : std::string(home) + "/.local/state/quil";
}

bool isComplete(lua_State* state, const std::string& text, bool& asExpression) {
    const std::string expression = "return " + text;
    asExpression = luaL_loadbufferx(state, expression.data(), expression.size(), "=console", "t") == LUA_OK;
    lua_pop(state, 1);
    if (asExpression || luaL_loadbufferx(state, text.data(), text.size(), "=console", "t") == LUA_OK) {
        lua_settop(state, 0);
        return true;
    }
    const std::string message = lua_tostring(state, -1);
    lua_settop(state, 0);
    return !message.ends_with("<eof>");  // an error that more lines can mend
}

// A value of the database on a line of the terminal.
std::string cell(sqlite3_stmt* statement, int column) {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    std::string shown(text == nullptr ? "" : text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
    std::replace_if(
        shown.begin(), shown.end(), [](char c) { return c >= '\0' && c < ' '; }, ' ');
    return shown;
}

void Console::line(std::string_view text) {
    if (unfinished_.empty() && text.find_first_not_of(" \t") == std::string_view::npos) {
        return;
    }
    if (unfinished_.empty() && (text.front() == '.' || text.front() == '=')) {
        text.front() == '.' ? command(std::string(text.substr(1))) : evaluate(std::string(text.substr(1)));
        return;
    }
    unfinished_ += (unfinished_.empty() ? "" : "\n") + std::string(text);
    bool complete = false;
    bool asExpression = false;
    solution_.interpreter().protect([&](lua_State* state) { complete = isComplete(state, unfinished_, asExpression); });
    if (complete) {
        evaluate(std::exchange(unfinished_, {}));
    }
}

void Console::evaluate(const std::string& text) {
    solution_.transact(kName, [&](lua_State* state) {
        bool asExpression = false;
        isComplete(state, text, asExpression);
        Interpreter::compile(state, asExpression ? "return " + text : text, "=console");
        lua_call(state, 0, LUA_MULTRET);
        const int count = lua_gettop(state);
        std::string shown;
        for (int i = 1; i <= count; ++i) {
            std::size_t size = 0;
            const char* const value = luaL_tolstring(state, i, &size);
            shown += (i > 1 ? "\t" : "") + std::string(value, size);
            lua_pop(state, 1);
        }
        if (count > 0) {
            solution_.print(shown + '\n');
        }
    });
}

void Console::sql(const std::string& text) {
    solution_.transact(kName, [&](lua_State*) {
        Database& database = solution_.database();
        std::string_view rest = text;
        while (!rest.empty()) {
            const struct Taken {
                Database& database;
                sqlite3_stmt* statement;
                ~Taken() { database.giveBack(statement); }
            } taken{database, database.take(rest)};
            const int columns = taken.statement == nullptr ? 0 : sqlite3_column_count(taken.statement);
            std::string names;
            for (int i = 0; i < columns; ++i) {
                names += (i > 0 ? "\t" : "") + std::string(sqlite3_column_name(taken.statement, i));
            }
            if (columns > 0) {
                solution_.print(names + '\n');
            }
            while (taken.statement != nullptr && database.step(taken.statement)) {
                std::string row;
                for (int i = 0; i < columns; ++i) {
                    row += (i > 0 ? "\t" : "") + cell(taken.statement, i);
                }
                solution_.print(row + '\n');
            }
        }
    });
}

void Console::command(const std::string& text) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string word = text.substr(0, end);
    const std::size_t begin = std::min(text.find_first_not_of(' ', end), text.size());
    std::string argument = text.substr(begin);
    argument.erase(argument.find_last_not_of(' ') + 1);
    if (word == "sql") {
        sql(argument);
    } else if (word == "quit") {
        solution_.life().quit(0);
    } else if (word == "scripts") {
        for (const std::string& name : solution_.scriptNames()) {
            writeOutput(name + '\n');
        }
    } else if (word == "help" && argument.empty()) {
        writeOutput(kHelp);
    } else if (word == "help") {
        if (const FunctionHelp* help = helpFor(argument)) {
            writeOutput(help->name + "\n  " + help->summary + "\n  Parameter: " + help->parameter +
                        "\n  Result: " + help->result + "\n  Errors: " + help->errors + '\n');
        } else {
            std::vector<std::string> names;
            for (const auto& item : help_) {
                names.push_back(item.first);
            }
            std::fprintf(stderr, "quil: no script function is named \"%s\"%s\n", argument.c_str(),
                         didYouMean(nearestNames(argument, names)).c_str());
        }
    } else {
        std::fprintf(stderr, "quil: there is no command \".%s\"; .help lists them\n", word.c_str());
    }
}

// Names that begin like this: script functions, the solution's scripts, and Lua's globals.
std::vector<std::string> Console::completions(const std::string& start) {
    std::vector<std::string> names;
    const auto offer = [&](const std::string& name) {
        if (name.starts_with(start) && std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    };
    for (const auto& item : help_) {
        offer(item.first);
    }
    for (const std::string& script : solution_.scriptNames()) {
        offer(script);
    }
    solution_.interpreter().protect([&](lua_State* state) {
        lua_pushglobaltable(state);
        for (lua_pushnil(state); lua_next(state, -2) != 0; lua_pop(state, 1)) {
            if (lua_type(state, -2) == LUA_TSTRING) {
                offer(lua_tostring(state, -2));
            }
        }
    });
    return names;
}

// Lines of a file or pipe: no prompt, and what is asked for runs between them.
void Console::readLines() {
    char* text = nullptr;
    std::size_t size = 0;
    while (!solution_.life().over()) {
        const ssize_t count = ::getline(&text, &size, stdin);
        if (count < 0) {
            break;
        }
        std::string_view typed(text, static_cast<std::size_t>(count));
        while (typed.ends_with('\n') || typed.ends_with('\r')) {
            typed.remove_suffix(1);
        }
        line(typed);
        if (!solution_.life().over()) {
            solution_.idle();
        }
    }
    std::free(text);
    if (!unfinished_.empty() && !solution_.life().over()) {
        evaluate(std::exchange(unfinished_, {}));  // which tells what is missing
    }
}

// Completion, as readline asks for it: one name at each call.
char* nextCompletion(const char* start, int state) {
    static std::vector<std::string> sNames;
    static std::size_t sNext = 0;
    if (state == 0) {
        sNames = sConsole->completions(start);
        sNext = 0;
    }
    return sNext < sNames.size() ? ::strdup(sNames[sNext++].c_str()) : nullptr;
}

char** complete(const char* start, int, int) {
    rl_attempted_completion_over = 1;  // no file names
    rl_completion_append_character = '\0';
    return rl_completion_matches(start, nextCompletion);
}

// Names below one another, the script functions with what they do.
void showMatches(char** matches, int count, int longest) {
    std::fputc('\n', rl_outstream);
    for (int i = 1; i <= count; ++i) {
        const FunctionHelp* const help = sConsole->helpFor(matches[i]);
        std::fprintf(rl_outstream, "%-*s  %s\n", longest, matches[i], help == nullptr ? "" : help->summary.c_str());
    }
    rl_forced_update_display();
}

// The handler is taken away before a script prints, and put back with the prompt that is due.
void onLine(char* text) {
    rl_callback_handler_remove();
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    if (text == nullptr) {
        std::fputc('\n', rl_outstream);
        sConsole->end();
        return;
    }
    if (*text != '\0') {
        add_history(text);
    }
    sConsole->takeLine(text);
}

void Console::prompt() {
    rl_callback_handler_install(unfinished_.empty() ? kPrompt : kMorePrompt, onLine);
}

void Console::readTerminal() {
    sConsole = this;
    rl_readline_name = "quil";
    rl_catch_signals = 0;
    rl_attempted_completion_function = complete;
    rl_completion_display_matches_hook = showMatches;
    rl_completer_word_break_characters = " \t\n\"'()[]{},;=+-*/<>~#%^&|.:";
    const std::string folder = folderOfHistory();
    const std::string history = folder.empty() ? std::string() : folder + "/history";
    read_history(history.empty() ? nullptr : history.c_str());
    std::printf("%s; .help tells what can be typed\n", solution_.name().c_str());
    std::fflush(stdout);
    prompt();
    while (!solution_.life().over()) {
        if (solution_.life().sleepUntil(solution_.nextIdle(), STDIN_FILENO)) {
            rl_callback_read_char();
        } else if (solution_.life().interrupted() && !solution_.life().over()) {
            // At the prompt an interrupt drops what was typed.
            solution_.life().obeyed();
            unfinished_.clear();
            rl_callback_handler_remove();
            std::fputs("^C\n", rl_outstream);
            prompt();
        } else if (!solution_.life().over() && Life::Clock::now() >= solution_.nextIdle()) {
            solution_.idle();
        }
    }
    rl_callback_handler_remove();
    std::error_code ignored;
    if (!history.empty() && (std::filesystem::create_directories(folder, ignored), !ignored)) {
        stifle_history(kHistoryLines);
        write_history(history.c_str());
    }
}

}  // namespace

void addConsoleCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("console", "Try a solution's scripts by hand: Lua, =expressions and .sql");
    const auto options = std::make_shared<SolutionOptions>();
    options->console = true;
    addSolutionOptions(*command, *options);
    command->footer(std::string("What can be typed:\n") + kHelp);
    command->callback([options, &context] {
        Solution solution(context, *options);
        Console console(context, solution);
        if (isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
            console.readTerminal();
        } else {
            console.readLines();
        }
        context.status = solution.life().status();
    });
}

}  // namespace host
