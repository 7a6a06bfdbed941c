#include "host/solution.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

#include "platform/machine.h"
#include "platform/text.h"

namespace host {

namespace {

using platform::operator""_4;
using namespace std::chrono_literals;

constexpr auto kBetweenIdleCalls = 250ms;
constexpr auto kAfterAScript =
    25ms;  // so that scripts which were queued run soon, and one that queues itself cannot race
constexpr auto kUserStaysActive = 1s;
constexpr std::size_t kLargestFile = std::size_t{64} << 20;
constexpr std::size_t kDeepest = 64;  // scripts that perform one another
constexpr std::int16_t kMostMenus = 29;
constexpr platform::OSType kUsualSignature = "FMP7"_4;

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

std::string realPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? resolved.get() : std::string();
}

// Throws HostError that names the file.
std::string readFileOf(const std::string& path, const std::string& shown) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        throw HostError("cannot read " + quoted(shown) + ": " + std::strerror(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        throw HostError(quoted(shown) + " is not a file");
    }
    if (static_cast<std::uint64_t>(info.st_size) > kLargestFile) {
        throw HostError(quoted(shown) + " is larger than 64 MiB");
    }
    std::ifstream file(path, std::ios::binary);
    std::string content(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        throw HostError("cannot read " + quoted(shown) + ": " + std::strerror(errno));
    }
    return content;
}

// "A", or "B", performed by "A".
std::string title(const std::vector<std::string>& performing) {
    std::string text = "script " + quoted(performing.back());
    for (std::size_t i = performing.size() - 1; i-- > 0 && performing.size() - i < 6;) {
        text += ", performed by " + quoted(performing[i]);
    }
    return text;
}

platform::MemoryWindows& windowsOfMachine() {
    return dynamic_cast<platform::MemoryWindows&>(platform::machine().windows());
}

// The host is at its ease, as when it repaints its windows.
void takeAwayProgress() {
    windowsOfMachine().beforeOutput(STDERR_FILENO);
}

}  // namespace

Solution::Solution(Context& context, const SolutionOptions& options)
    : life_(options.seconds, options.console), observer_(options.observer) {
    readFolder(options);
    interpreter_ = std::make_unique<Interpreter>(*this);
    interpreter_->protect([&](lua_State* state) {
        lua_newtable(state);
        lua_setglobal(state, "scripts");
        Interpreter::compile(state, text_, "@solution.lua");
        lua_call(state, 0, 0);
        readSettings(state, context);
    });
    text_ = {};
    if (!options.log.empty()) {
        log_.reset(std::fopen(options.log.c_str(), "ae"));
        if (!log_) {
            throw HostError("cannot write the log " + quoted(options.log) + ": " + std::strerror(errno));
        }
    }
    start(context, options);
}

Solution::~Solution() {
    log("the host ends");
    interpreter_.reset();
    platform::machine().events().installHandler("misc"_4, "dosc"_4, nullptr, 0);
    database_.reset();
    session_.reset();
}

void Solution::readFolder(const SolutionOptions& options) {
    folder_ = realPath(options.folder);
    struct stat info {};
    if (folder_.empty() || ::stat(folder_.c_str(), &info) != 0) {
        throw HostError("cannot open the solution " + quoted(options.folder) + ": " + std::strerror(errno));
    }
    if (!S_ISDIR(info.st_mode)) {
        throw HostError(quoted(options.folder) + " is not a solution, which is a folder with a file solution.lua");
    }
    if (::access((folder_ + "/solution.lua").c_str(), F_OK) != 0) {
        throw HostError("the folder " + quoted(options.folder) +
                        " is not a solution: it has no file solution.lua (docs/solutions.md tells what goes into one)");
    }
    text_ = readFileOf(folder_ + "/solution.lua", options.folder + "/solution.lua");
}

void Solution::readSettings(lua_State* state, Context& context) {
    name_ = folder_.substr(folder_.rfind('/') + 1);
    const auto text = [state](const char* global) -> std::optional<std::string> {
        if (lua_getglobal(state, global) == LUA_TNIL) {
            return std::nullopt;
        }
        if (lua_type(state, -1) != LUA_TSTRING) {
            throw HostError(std::string("solution.lua: ") + global + " has to be a text");
        }
        std::size_t size = 0;
        const char* const bytes = lua_tolstring(state, -1, &size);
        return std::string(bytes, size);
    };
    if (const auto name = text("name")) {
        name_ = *name;
    }
    if (const auto signature = text("signature")) {
        if (signature->size() != 4) {
            throw HostError("solution.lua: the signature " + quoted(*signature) + " is not a code of four characters");
        }
        if (context.machine.signature == kUsualSignature) {  // else the command line names another
            context.machine.signature = 0;
            for (const char c : *signature) {
                context.machine.signature = context.machine.signature << 8 | static_cast<unsigned char>(c);
            }
        }
    }
    if (lua_getglobal(state, "scripts") != LUA_TTABLE) {
        throw HostError("solution.lua: scripts has to be a table of functions by name");
    }
    for (lua_pushnil(state); lua_next(state, -2) != 0; lua_pop(state, 1)) {
        if (lua_type(state, -2) != LUA_TSTRING || !lua_isfunction(state, -1)) {
            throw HostError(std::string("solution.lua: scripts has an entry that is not a function with a name: ") +
                            luaL_tolstring(state, -2, nullptr));
        }
    }
}

void Solution::start(Context& context, const SolutionOptions& options) {
    database_ = std::make_unique<Database>(options.database.empty() ? folder_ + "/solution.db" : options.database,
                                           options.readOnly);
    database_->setInterruption([this] { return mustStop(nullptr); });
    try {
        context.machine.log = [this](const std::string& text) { tell(text); };
        session_ = std::make_unique<Session>(context);
        context.machine.log = nullptr;  // it has its own
        database_->addFunctions(session_->plugin());
        const std::string schema = folder_ + "/schema.sql";
        if (::access(schema.c_str(), F_OK) == 0) {
            database_->applySchema(readFileOf(schema, schema), "schema.sql");
        }
    } catch (...) {
        database_->forget();
        throw;
    }
    for (const SolutionWindow& window : windows_) {
        openWindow(window);
    }
    for (const platform::Menu& menu : menus_) {
        setMenu(menu);
    }
    platform::machine().events().installHandler("misc"_4, "dosc"_4, onDoScript, reinterpret_cast<long>(this));
    log("the host begins: " + folder_ + ", database " + database_->file());
}

platform::Status Solution::onDoScript(const platform::Event& event, platform::Event&, long self) {
    for (const platform::EventParameter& parameter : event.parameters) {
        if (parameter.keyword == "----"_4 && parameter.type == "TEXT"_4) {
            reinterpret_cast<Solution*>(self)->requests_.push_back(platform::utf8Of(parameter.data));
            return platform::noErr;
        }
    }
    return platform::errAEEventNotHandled;
}

// The host's life.

int Solution::live() {
    if (hasScript("Start")) {
        run("Start");
    }
    while (!life_.over()) {
        life_.sleepUntil(nextIdle_, platform::machine().events().descriptor());
        if (!life_.over()) {
            idle();
        }
    }
    return life_.status();
}

void Solution::idle() {
    const auto now = Life::Clock::now();
    if (std::exchange(active_, false)) {
        lastActive_ = now;
    }
    nextIdle_ = now + kBetweenIdleCalls;
    takeAwayProgress();
    platform::machine().events().dispatch();
    plugin().idle(now - lastActive_ < kUserStaysActive ? fmx::kIdleUserNotIdle : fmx::kIdleUserIdle);
    platform::machine().events().dispatch();  // what the plug-in asked of the host
    while (!requests_.empty() && !life_.over()) {
        const std::string script = std::move(requests_.front());
        requests_.pop_front();
        log("script " + quoted(script) + " is asked for");
        run(script);
    }
}

bool Solution::mustStop(std::string_view* why) {
    if (observer_ != nullptr) {
        observer_->breathe();
    }
    if (life_.interrupted(why)) {
        return true;
    }
    if (const auto now = Life::Clock::now(); !performing_.empty() && now >= nextIdle_) {
        nextIdle_ = now + kBetweenIdleCalls;
        platform::machine().events().dispatch();
        plugin().idle(fmx::kIdleScriptRunning);
    }
    return false;
}

void Solution::pause(double seconds) {
    if (performing_.empty()) {
        throw HostError("only a script can pause");
    }
    std::fflush(stdout);
    takeAwayProgress();
    constexpr double kLongest = 1e9;
    const auto end = Life::Clock::now() + std::chrono::duration_cast<Life::Clock::duration>(
                                              std::chrono::duration<double>(std::min(seconds, kLongest)));
    while (Life::Clock::now() < end && !life_.interrupted()) {
        platform::machine().events().dispatch();
        plugin().idle(fmx::kIdleScriptPaused);
        const auto until = std::min(end, Life::Clock::now() + kBetweenIdleCalls);
        if (observer_ != nullptr) {
            observer_->rest(until);
        } else {
            life_.sleepUntil(until, platform::machine().events().descriptor());
        }
    }
    std::string_view why;
    if (life_.interrupted(&why)) {
        throw HostError(std::string(why));
    }
}

// Scripts.

bool Solution::hasScript(const std::string& name) {
    bool found = false;
    interpreter_->protect([&](lua_State* state) {
        lua_getglobal(state, "scripts");
        lua_pushlstring(state, name.data(), name.size());
        found = lua_istable(state, -2) && lua_rawget(state, -2) == LUA_TFUNCTION;
    });
    return found;
}

std::vector<std::string> Solution::scriptNames() {
    std::vector<std::string> names;
    interpreter_->protect([&](lua_State* state) {
        if (lua_getglobal(state, "scripts") != LUA_TTABLE) {
            return;
        }
        for (lua_pushnil(state); lua_next(state, -2) != 0; lua_pop(state, 1)) {
            if (lua_type(state, -2) == LUA_TSTRING) {
                names.emplace_back(lua_tostring(state, -2));
            }
        }
    });
    std::sort(names.begin(), names.end());
    return names;
}

bool Solution::run(const std::string& script) {
    return run(script, {});
}

bool Solution::run(const std::string& script, const Record& record) {
    if (!hasScript(script)) {
        const std::string failure =
            "the solution has no script named " + quoted(script) + didYouMean(nearestNames(script, scriptNames()));
        tell(failure);
        if (observer_ != nullptr) {
            observer_->fails(failure);
        }
        return false;
    }
    return transact(script, [&script, &record](lua_State* state) {
        lua_getglobal(state, "scripts");
        lua_getfield(state, -1, script.c_str());
        if (record.empty()) {
            lua_call(state, 0, 0);
            return;
        }
        lua_createtable(state, 0, static_cast<int>(record.size()));
        for (const auto& field : record) {
            lua_pushlstring(state, field.second.data(), field.second.size());
            lua_setfield(state, -2, field.first.c_str());
        }
        lua_call(state, 1, 0);
    });
}

bool Solution::transact(const std::string& name, const std::function<void(lua_State*)>& work) {
    const auto begun = Life::Clock::now();
    std::string failure;
    performing_ = {name};
    failed_ = performing_;
    plugin().idle(fmx::kIdleScriptRunning);
    nextIdle_ = begun + kBetweenIdleCalls;
    try {
        database_->begin();
        if (observer_ != nullptr) {
            observer_->begins(name);
        }
        try {
            interpreter_->protect(work);
        } catch (const ScriptError&) {
            if (!life_.hasQuit()) {
                throw;
            }
        }
        failed_ = performing_;
        if (observer_ != nullptr) {
            observer_->ends(true);
        }
        database_->commit();
    } catch (const HostError& error) {
        failure = error.what();
        if (observer_ != nullptr) {
            observer_->ends(false);
        }
        database_->rollback();
    }
    takeAwayProgress();
    performing_.clear();
    active_ = true;
    nextIdle_ = Life::Clock::now() + kAfterAScript;
    life_.obeyed();
    if (observer_ != nullptr) {
        observer_->ended();
    }
    if (std::fflush(stdout) != 0 && failure.empty()) {
        failure = std::string("cannot write to standard output: ") + std::strerror(errno);
    }
    if (!failure.empty()) {
        failure = title(failed_) + " failed and its changes were undone:\n" + failure;
        tell(failure);
        if (observer_ != nullptr) {
            observer_->fails(failure);
        }
        return false;
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Life::Clock::now() - begun);
    log("script " + quoted(name) + " ended after " + std::to_string(took.count()) + " ms");
    return true;
}

void Solution::perform(lua_State* state) {
    const std::string script = luaL_checkstring(state, 1);
    if (performing_.size() >= kDeepest) {
        std::string chain;
        for (std::size_t i = 0; i < 4; ++i) {
            chain += quoted(performing_[i]) + " > ";
        }
        throw HostError("scripts perform one another without end, " + std::to_string(kDeepest) + " deep: " + chain +
                        "...");
    }
    lua_getglobal(state, "scripts");
    if (!lua_istable(state, -1) || lua_getfield(state, -1, script.c_str()) != LUA_TFUNCTION) {
        throw HostError("there is no script named " + quoted(script) + didYouMean(nearestNames(script, scriptNames())));
    }
    lua_replace(state, 1);
    lua_pop(state, 1);
    database().savepoint();
    performing_.push_back(script);
    const struct Performing {
        std::vector<std::string>& names;
        ~Performing() { names.pop_back(); }
    } performing{performing_};
    try {
        lua_call(state, lua_gettop(state) - 1, LUA_MULTRET);
    } catch (...) {
        if (!life_.hasQuit()) {
            database_->rollbackToSavepoint();
        }
        throw;
    }
    database().release();
}

Plugin& Solution::plugin() {
    if (!session_) {
        throw HostError("the plug-in is there for scripts, not while solution.lua is read");
    }
    return session_->plugin();
}

Database& Solution::database() {
    if (performing_.empty()) {
        throw HostError("the database is there for scripts alone");
    }
    if (!database_->inTransaction()) {
        throw HostError("the script's transaction was rolled back, so it can do no more with the database");
    }
    return *database_;
}

Answer Solution::external(std::string_view function, std::string_view parameter) {
    Answer answer = plugin().external(function, parameter);
    if (observer_ != nullptr) {
        observer_->called(function, parameter, answer.text);
    }
    return answer;
}

std::string Solution::dataFile(const std::string& name) const {
    const std::string path = realPath(folder_ + '/' + name);
    if (path.empty()) {
        throw HostError("the solution has no file " + quoted(name));
    }
    if (name.starts_with('/') || !path.starts_with(folder_ + '/')) {
        throw HostError(quoted(name) + " lies outside the solution's folder");
    }
    return readFileOf(path, name);
}

void Solution::print(std::string_view text) {
    if (observer_ != nullptr) {
        observer_->prints(text);
    }
    windowsOfMachine().beforeOutput(STDOUT_FILENO);
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw HostError(std::string("cannot write to standard output: ") + std::strerror(errno));
    }
}

void Solution::tell(const std::string& text) {
    std::fflush(stdout);
    takeAwayProgress();
    std::fprintf(stderr, "quil: %s\n", text.c_str());
    log(text);
}

void Solution::log(const std::string& text) {
    if (!log_) {
        return;
    }
    std::array<char, 32> time{};
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    std::strftime(time.data(), time.size(), "%Y-%m-%dT%H:%M:%SZ ", &parts);
    std::string line = time.data();
    for (const char c : text) {
        line += c;
        line += c == '\n' ? "    " : "";
    }
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), log_.get());
    if (std::fflush(log_.get()) != 0) {
        takeAwayProgress();
        std::fprintf(stderr, "quil: cannot write the log: %s\n", std::strerror(errno));
        log_.reset();
    }
}

// Windows and menus.

platform::WindowRef Solution::windowTitled(const std::string& title) {
    platform::Windows& windows = platform::machine().windows();
    for (platform::WindowRef window = windows.front(); window != nullptr; window = windows.next(window)) {
        if (windows.title(window) == title) {
            return window;
        }
    }
    return nullptr;
}

void Solution::openWindow(const SolutionWindow& window) {
    if (!session_) {
        windows_.push_back(window);
    } else if (const platform::WindowRef there = windowTitled(window.title)) {
        windowsOfMachine().bringToFront(there);
    } else {
        windowsOfMachine().newWindow({0, 0, window.height, window.width}, window.title, platform::userKind);
    }
}

void Solution::closeWindow(const std::string& title) {
    if (const platform::WindowRef window = session_ ? windowTitled(title) : nullptr) {
        windowsOfMachine().disposeWindow(window);
    }
}

void Solution::bringToFront(const std::string& title) {
    const platform::WindowRef window = session_ ? windowTitled(title) : nullptr;
    if (window == nullptr) {
        throw HostError("no window has the title " + quoted(title));
    }
    windowsOfMachine().bringToFront(window);
}

// The menus of the solution are numbered from 1 in the order in which they came; one with the title of another replaces
// it.
void Solution::setMenu(const platform::Menu& menu) {
    if (!session_) {
        menus_.push_back(menu);
        return;
    }
    auto& menus = dynamic_cast<platform::MemoryMenus&>(platform::machine().menus());
    std::int16_t id = 1;
    while (menus.hasMenu(id) && menus.title(id) != menu.title) {
        ++id;
    }
    if (id > kMostMenus) {
        throw HostError("a menu bar has 29 menus at most");
    }
    menus.setMenu(id, menu);
}

}  // namespace host
