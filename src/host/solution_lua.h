// The Lua state that a solution's scripts live in: a bounded memory, a sandbox, and an interruption that no script can
// catch for good.
#pragma once

#include <lauxlib.h>
#include <lua.h>

#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <string_view>

#include "host/plugin.h"

namespace host {

class Solution;

// A failure inside the state: the message, and behind it Lua's trace.
struct ScriptError : HostError {
    using HostError::HostError;
};

class Interpreter {
  public:
    // All values of all scripts together. A script that needs more gets the error "not enough memory".
    static constexpr std::size_t kMemory = std::size_t{512} << 20;

    explicit Interpreter(Solution& solution);
    ~Interpreter();
    Interpreter(const Interpreter&) = delete;
    Interpreter& operator=(const Interpreter&) = delete;

    // Does the work with the state; throws ScriptError when it raises an error. What it leaves on the stack goes.
    void protect(const std::function<void(lua_State*)>& work);

    // Puts a function made from the text on the stack: text only, no precompiled code.
    static void compile(lua_State* state, std::string_view text, const std::string& name);

    static Solution& solutionOf(lua_State* state) { return **static_cast<Solution**>(lua_getextraspace(state)); }

  private:
    struct Memory {
        std::size_t used = 0;
    };

    static void* allocate(void* memory, void* block, std::size_t before, std::size_t size);
    static void hook(lua_State* state, lua_Debug*);

    Memory memory_;
    lua_State* state_;
};

// Makes a C++ function one of Lua's: what it throws becomes a Lua error. Errors of Lua itself pass through: the library
// is built as C++, so they unwind as exceptions do.
template <int (*Body)(lua_State*)>
int guarded(lua_State* state) {
    try {
        return Body(state);
    } catch (const std::exception& error) {
        return luaL_error(state, "%s", error.what());
    }
}

// The functions of scripts, as globals of the state.
void addHostFunctions(lua_State* state);
void addDatabaseFunctions(lua_State* state);

}  // namespace host
