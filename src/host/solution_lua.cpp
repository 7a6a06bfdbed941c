#include "host/solution_lua.h"

#include <lualib.h>

#include <cstdlib>
#include <new>

#include "host/solution.h"

namespace host {

namespace {

constexpr int kInstructionsBetweenQuestions = 10'000;  // about a tenth of a millisecond

// What is left of the libraries: nothing that reads files, loads code or reaches other programs.
void openLibraries(lua_State* state) {
    constexpr luaL_Reg kLibraries[] = {{LUA_GNAME, luaopen_base},
                                       {LUA_STRLIBNAME, luaopen_string},
                                       {LUA_TABLIBNAME, luaopen_table},
                                       {LUA_MATHLIBNAME, luaopen_math},
                                       {LUA_UTF8LIBNAME, luaopen_utf8}};
    for (const luaL_Reg& library : kLibraries) {
        luaL_requiref(state, library.name, library.func, 1);
        lua_pop(state, 1);
    }
    for (const char* name : {"dofile", "loadfile", "load", "collectgarbage", "warn"}) {
        lua_pushnil(state);
        lua_setglobal(state, name);
    }
    lua_getglobal(state, LUA_STRLIBNAME);
    lua_pushnil(state);
    lua_setfield(state, -2, "dump");
    lua_pop(state, 1);
    luaL_requiref(state, LUA_OSLIBNAME, luaopen_os, 0);
    lua_newtable(state);
    for (const char* name : {"clock", "date", "difftime", "time"}) {
        lua_getfield(state, -2, name);
        lua_setfield(state, -2, name);
    }
    lua_setglobal(state, LUA_OSLIBNAME);
    lua_pop(state, 1);
    lua_getfield(state, LUA_REGISTRYINDEX, LUA_LOADED_TABLE);
    lua_pushnil(state);
    lua_setfield(state, -2, LUA_OSLIBNAME);
    lua_pop(state, 1);
}

// Called where the error is raised, while the stack still tells how it came to that.
int addTrace(lua_State* state) {
    Interpreter::solutionOf(state).noteFailure();
    const char* message = lua_tostring(state, 1);
    if (message == nullptr) {
        message = luaL_tolstring(state, 1, nullptr);
    }
    luaL_traceback(state, state, message, 1);
    return 1;
}

using Work = std::function<void(lua_State*)>;

int doWork(lua_State* state) {
    const Work& work = *static_cast<const Work*>(lua_touserdata(state, 1));
    lua_settop(state, 0);
    work(state);
    return 0;
}

// Where the trace has nothing but the host's own frames it tells nothing.
std::string withoutIdleTrace(std::string text) {
    constexpr std::string_view kTitle = "\nstack traceback:";
    constexpr std::string_view kHostsFrame = "\n\t[C]: in ?";
    while (text.ends_with(kHostsFrame)) {
        text.resize(text.size() - kHostsFrame.size());
    }
    if (text.ends_with(kTitle)) {
        text.resize(text.size() - kTitle.size());
    }
    return text;
}

}  // namespace

void* Interpreter::allocate(void* memory, void* block, std::size_t before, std::size_t size) {
    auto& used = static_cast<Memory*>(memory)->used;
    if (block == nullptr) {
        before = 0;  // else it tells what the block is for
    }
    if (size == 0) {
        std::free(block);
        used -= before;
        return nullptr;
    }
    if (size > before && size - before > kMemory - used) {
        return nullptr;
    }
    void* const result = std::realloc(block, size);
    if (result != nullptr) {
        used = used - before + size;
    }
    return result;
}

// Once something has to end, every instruction raises the error again: a script that catches it fails in the next one,
// and so on outwards.
void Interpreter::hook(lua_State* state, lua_Debug*) {
    std::string_view why;
    if (solutionOf(state).mustStop(&why)) {
        lua_sethook(state, hook, LUA_MASKCOUNT, 1);
        lua_pushlstring(state, why.data(), why.size());
        lua_error(state);
    }
}

Interpreter::Interpreter(Solution& solution) : state_(lua_newstate(allocate, &memory_)) {
    if (state_ == nullptr) {
        throw std::bad_alloc();
    }
    *static_cast<Solution**>(lua_getextraspace(state_)) = &solution;
    protect([](lua_State* state) {
        openLibraries(state);
        addHostFunctions(state);
        addDatabaseFunctions(state);
    });
}

Interpreter::~Interpreter() {
    lua_sethook(state_, nullptr, 0, 0);
    lua_close(state_);
}

void Interpreter::protect(const std::function<void(lua_State*)>& work) {
    lua_sethook(state_, hook, LUA_MASKCOUNT, kInstructionsBetweenQuestions);
    const int top = lua_gettop(state_);
    lua_pushcfunction(state_, addTrace);
    lua_pushcfunction(state_, guarded<doWork>);
    lua_pushlightuserdata(state_, const_cast<Work*>(&work));
    const int status = lua_pcall(state_, 1, 0, top + 1);
    if (status == LUA_OK) {
        lua_settop(state_, top);
        return;
    }
    std::size_t size = 0;
    const char* const text = lua_tolstring(state_, -1, &size);
    const std::string message = text == nullptr ? "an error without a message" : std::string(text, size);
    lua_settop(state_, top);
    if (status == LUA_ERRMEM) {
        lua_gc(state_, LUA_GCCOLLECT);
        throw ScriptError(message + ": scripts may use " + std::to_string(kMemory >> 20) + " MiB");
    }
    throw ScriptError(withoutIdleTrace(message));
}

void Interpreter::compile(lua_State* state, std::string_view text, const std::string& name) {
    if (luaL_loadbufferx(state, text.data(), text.size(), name.c_str(), "t") != LUA_OK) {
        lua_error(state);
    }
}

}  // namespace host
