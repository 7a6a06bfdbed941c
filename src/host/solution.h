// A solution and the host around it: a folder with solution.lua, schema.sql and data, run with its database and the
// plug-in as a database application would run it.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/commands.h"
#include "host/solution_database.h"
#include "host/solution_life.h"
#include "host/solution_lua.h"
#include "platform/memory_windows.h"

namespace host {

// Whoever shows a solution to its user: told what happens in it. Everything is called on the main thread; nothing here
// may throw.
class SolutionObserver {
  public:
    virtual ~SolutionObserver() = default;
    virtual void begins(const std::string& script) = 0;    // its transaction has begun
    virtual void ends(bool kept) = 0;                      // its last chance before the transaction ends
    virtual void ended() = 0;                              // the transaction has ended
    virtual void breathe() = 0;                            // now and then while a script or a statement runs
    virtual void rest(Life::Clock::time_point until) = 0;  // lets time pass while a script pauses
    virtual void prints(std::string_view text) = 0;        // UTF-8 from scripts
    // A script called QUIL_External.
    virtual void called(std::string_view function, std::string_view parameter, const std::string& answer) = 0;
    virtual void fails(const std::string& text) = 0;  // what has to be told to the user
};

// A field of a table whose clicks run a script.
struct WatchedField {
    std::string table;
    std::string column;
    std::string script;
};

struct SolutionOptions {
    std::string folder;
    std::string database;  // empty: solution.db in the folder
    std::string log;       // empty: none
    bool readOnly = false;
    bool console = false;           // SIGINT interrupts a script and no more
    std::optional<double> seconds;  // how long the host lives at most
    SolutionObserver* observer = nullptr;
};

// One of the windows that a solution opens.
struct SolutionWindow {
    std::string title;
    std::int16_t width = 640;
    std::int16_t height = 480;
};

// The options that `quil run` and `quil console` share.
void addSolutionOptions(CLI::App& command, SolutionOptions& options);

class Solution {
  public:
    // Reads the solution, starts the plug-in and opens the database. Throws HostError that names file and line of what
    // is wrong.
    Solution(Context& context, const SolutionOptions& options);
    ~Solution();
    Solution(const Solution&) = delete;
    Solution& operator=(const Solution&) = delete;

    // Runs the script "Start", if there is one, and then what is asked for, until the host's life is over. Returns the
    // exit status.
    int live();
    // Runs a script with a transaction of its own. A failure is told on standard error and in the log; then it is
    // false.
    bool run(const std::string& script);
    // The same for other work with the scripts' state, under this name.
    bool transact(const std::string& name, const std::function<void(lua_State*)>& work);
    // One idle call, and then the scripts that were asked for.
    void idle();
    // When the next one is due.
    Life::Clock::time_point nextIdle() const { return nextIdle_; }

    // One record's fields, by name.
    using Record = std::vector<std::pair<std::string, std::string>>;
    // Runs a script with a record as its argument.
    bool run(const std::string& script, const Record& record);
    bool hasScript(const std::string& name);
    std::vector<std::string> scriptNames();
    const std::string& name() const { return name_; }
    const std::string& folder() const { return folder_; }
    const std::vector<WatchedField>& fields() const { return fields_; }
    Database& records() { return *database_; }  // for whoever shows them, between scripts
    bool busy() const { return !performing_.empty(); }
    bool observed() const { return observer_ != nullptr; }
    Interpreter& interpreter() { return *interpreter_; }

    // What scripts use.
    Plugin& plugin();      // throws HostError while solution.lua is read
    Database& database();  // the same, and outside a script or after its transaction was lost
    Life& life() { return life_; }
    std::string dataFile(const std::string& name) const;  // content of a file in the solution's folder
    Answer external(std::string_view function, std::string_view parameter);
    void perform(lua_State* state);  // lua_call of the script under its arguments
    void pause(double seconds);
    void openWindow(const SolutionWindow& window);
    void closeWindow(const std::string& title);
    void bringToFront(const std::string& title);
    void setMenu(const platform::Menu& menu);
    void watchField(const WatchedField& field) { fields_.push_back(field); }
    void print(std::string_view text);

    // What the interpreter asks and tells.
    bool mustStop(std::string_view* why);
    void noteFailure() { failed_ = performing_; }

  private:
    void readFolder(const SolutionOptions& options);
    void readSettings(lua_State* state, Context& context);
    void start(Context& context, const SolutionOptions& options);
    void tell(const std::string& text);
    void log(const std::string& text);
    platform::WindowRef windowTitled(const std::string& title);
    static platform::Status onDoScript(const platform::Event& event, platform::Event& reply, long self);

    Life life_;
    std::string folder_;  // absolute
    std::string text_;    // solution.lua
    std::string name_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> log_{nullptr, &std::fclose};
    std::vector<SolutionWindow> windows_;  // before the machine is there
    std::vector<platform::Menu> menus_;
    std::vector<WatchedField> fields_;
    SolutionObserver* observer_ = nullptr;
    std::unique_ptr<Database> database_;
    std::unique_ptr<Session> session_;
    std::unique_ptr<Interpreter> interpreter_;
    std::deque<std::string> requests_;     // scripts to run, in the order in which they were asked for
    std::vector<std::string> performing_;  // names of the scripts that run, outermost first
    std::vector<std::string> failed_;      // the same where the last error was raised
    bool active_ = false;                  // a script ran since the last idle call
    Life::Clock::time_point lastActive_{};
    Life::Clock::time_point nextIdle_{};
};

}  // namespace host
