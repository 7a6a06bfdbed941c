// What scripts can ask of the host, beside the database.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "host/solution.h"
#include "host/solution_lua.h"

namespace host {

namespace {

constexpr std::size_t kLongestTitle = 255;

std::string_view textAt(lua_State* state, int index) {
    std::size_t size = 0;
    const char* const text = luaL_checklstring(state, index, &size);
    return {text, size};
}

int pushAnswer(lua_State* state, const char* function, const Answer& answer) {
    if (answer.code != fmx::kNoError) {
        throw HostError(std::string(function) + " ended with the error code " + std::to_string(answer.code));
    }
    lua_pushlstring(state, answer.text.data(), answer.text.size());
    return 1;
}

int external(lua_State* state) {
    const std::string_view name = textAt(state, 1);
    const std::string_view parameter = lua_isnoneornil(state, 2) ? std::string_view() : textAt(state, 2);
    return pushAnswer(state, "QUIL_External", Interpreter::solutionOf(state).external(name, parameter));
}

int version(lua_State* state) {
    return pushAnswer(state, "QUIL_Version", Interpreter::solutionOf(state).plugin().evaluate("QUIL_Version", {}));
}

int print(lua_State* state) {
    std::string line;
    for (int i = 1; i <= lua_gettop(state); ++i) {
        std::size_t size = 0;
        const char* const text = luaL_tolstring(state, i, &size);
        line += i > 1 ? "\t" : "";
        line.append(text, size);
        lua_pop(state, 1);
    }
    Interpreter::solutionOf(state).print(line + '\n');
    return 0;
}

int perform(lua_State* state) {
    Interpreter::solutionOf(state).perform(state);
    return lua_gettop(state);
}

int pause(lua_State* state) {
    const double seconds = luaL_checknumber(state, 1);
    luaL_argcheck(state, seconds >= 0, 1, "seconds, 0 or more");
    Interpreter::solutionOf(state).pause(seconds);
    return 0;
}

int quit(lua_State* state) {
    const lua_Integer status = luaL_optinteger(state, 1, 0);
    luaL_argcheck(state, status >= 0 && status <= 255, 1, "an exit status, 0 to 255");
    Interpreter::solutionOf(state).life().quit(static_cast<int>(status));
    throw HostError("the script quits");
}

// The title that the table at 1 gives, and a complaint about a field that nobody reads.
std::string titleOf(lua_State* state, const char* what, std::initializer_list<std::string_view> fields) {
    luaL_checktype(state, 1, LUA_TTABLE);
    for (lua_pushnil(state); lua_next(state, 1) != 0; lua_pop(state, 1)) {
        if (lua_type(state, -2) == LUA_TSTRING &&
            std::find(fields.begin(), fields.end(), lua_tostring(state, -2)) == fields.end()) {
            throw HostError(std::string("a ") + what + " has no field \"" + lua_tostring(state, -2) + "\"");
        }
    }
    lua_getfield(state, 1, "title");
    std::size_t size = 0;
    const char* const title = lua_tolstring(state, -1, &size);
    if (title == nullptr || size == 0 || size > kLongestTitle) {
        throw HostError(std::string("a ") + what + " needs a title of 1 to 255 bytes");
    }
    return {title, size};
}

std::int16_t lengthOf(lua_State* state, const char* field, std::int16_t usual) {
    constexpr lua_Integer kMost = 32767;
    if (lua_getfield(state, 1, field) == LUA_TNIL) {
        return usual;
    }
    int isInteger = 0;
    const lua_Integer length = lua_tointegerx(state, -1, &isInteger);
    if (isInteger == 0 || length < 1 || length > kMost) {
        throw HostError(std::string("a window's ") + field + " is a number of pixels, 1 to 32767");
    }
    return static_cast<std::int16_t>(length);
}

int window(lua_State* state) {
    SolutionWindow wanted;
    wanted.title = titleOf(state, "window", {"title", "width", "height"});
    wanted.width = lengthOf(state, "width", wanted.width);
    wanted.height = lengthOf(state, "height", wanted.height);
    Interpreter::solutionOf(state).openWindow(wanted);
    return 0;
}

// An item is its text, or a table {TEXT, key = "1", enabled = false}.
platform::MenuItem itemAt(lua_State* state, int index) {
    platform::MenuItem item;
    const bool isTable = lua_istable(state, index);
    if (isTable) {
        lua_geti(state, index, 1);
    } else {
        lua_pushvalue(state, index);
    }
    const char* const text = lua_type(state, -1) == LUA_TSTRING ? lua_tostring(state, -1) : nullptr;
    if (text == nullptr || *text == '\0' || std::strlen(text) > kLongestTitle) {
        throw HostError("a menu's item is a text of 1 to 255 bytes, or a table that begins with one");
    }
    item.text = text;
    if (isTable) {
        if (lua_getfield(state, index, "key") != LUA_TNIL) {
            const char* const key = lua_tostring(state, -1);
            if (key == nullptr || key[0] <= ' ' || key[0] > '~' || key[1] != '\0') {
                throw HostError("the command key of \"" + item.text + "\" has to be one character of ASCII");
            }
            item.commandKey = key[0];
        }
        item.enabled = lua_getfield(state, index, "enabled") == LUA_TNIL || lua_toboolean(state, -1) != 0;
    }
    return item;
}

int menu(lua_State* state) {
    platform::Menu wanted;
    wanted.title = titleOf(state, "menu", {"title"});
    const lua_Integer count = luaL_len(state, 1);
    for (lua_Integer i = 1; i <= count; ++i) {
        lua_geti(state, 1, i);
        const int at = lua_gettop(state);
        wanted.items.push_back(itemAt(state, at));
        lua_settop(state, at - 1);
    }
    Interpreter::solutionOf(state).setMenu(wanted);
    return 0;
}

std::string fieldText(lua_State* state, const char* name) {
    std::size_t size = 0;
    lua_getfield(state, 1, name);
    const char* const text = lua_tolstring(state, -1, &size);
    if (text == nullptr || size == 0) {
        throw HostError(std::string("a field needs a ") + name + ": field {table=, column=, script=}");
    }
    return {text, size};
}

int field(lua_State* state) {
    luaL_checktype(state, 1, LUA_TTABLE);
    Interpreter::solutionOf(state).watchField(
        {fieldText(state, "table"), fieldText(state, "column"), fieldText(state, "script")});
    return 0;
}

int front(lua_State* state) {
    Interpreter::solutionOf(state).bringToFront(std::string(textAt(state, 1)));
    return 0;
}

int closeWindow(lua_State* state) {
    Interpreter::solutionOf(state).closeWindow(std::string(textAt(state, 1)));
    return 0;
}

int read(lua_State* state) {
    const std::string content = Interpreter::solutionOf(state).dataFile(luaL_checkstring(state, 1));
    lua_pushlstring(state, content.data(), content.size());
    return 1;
}

// The cells of one row of CSV, from `at` on, which moves behind the row.
std::vector<std::string> csvRow(std::string_view text, std::size_t& at, const std::string& name) {
    std::vector<std::string> cells(1);
    bool inQuotes = false;
    for (; at < text.size(); ++at) {
        const char c = text[at];
        if (inQuotes) {
            if (c != '"') {
                cells.back() += c;
            } else if (at + 1 < text.size() && text[at + 1] == '"') {
                cells.back() += text[++at];
            } else {
                inQuotes = false;
            }
        } else if (c == '"' && cells.back().empty()) {
            inQuotes = true;
        } else if (c == ',') {
            cells.emplace_back();
        } else if (c == '\n' || c == '\r') {
            at += c == '\r' && at + 1 < text.size() && text[at + 1] == '\n' ? 2 : 1;
            return cells;
        } else {
            cells.back() += c;
        }
    }
    if (inQuotes) {
        throw HostError(name + " ends inside a quoted cell");
    }
    return cells;
}

// The rows of a CSV file as tables by the names in its first row.
int csv(lua_State* state) {
    const std::string name = luaL_checkstring(state, 1);
    const std::string content = Interpreter::solutionOf(state).dataFile(name);
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    std::size_t at = content.starts_with(kMark) ? kMark.size() : 0;
    const std::vector<std::string> names = csvRow(content, at, name);
    lua_newtable(state);
    lua_Integer count = 0;
    for (std::size_t row = 2; at < content.size(); ++row) {
        const std::vector<std::string> cells = csvRow(content, at, name);
        if (cells.size() == 1 && cells[0].empty()) {
            continue;  // an empty line
        }
        if (cells.size() != names.size()) {
            throw HostError(name + ": row " + std::to_string(row) + " has " + std::to_string(cells.size()) +
                            " cells, the first row has " + std::to_string(names.size()));
        }
        lua_createtable(state, 0, static_cast<int>(cells.size()));
        for (std::size_t i = 0; i < cells.size(); ++i) {
            lua_pushlstring(state, names[i].data(), names[i].size());
            lua_pushlstring(state, cells[i].data(), cells[i].size());
            lua_rawset(state, -3);
        }
        lua_rawseti(state, -2, ++count);
    }
    return 1;
}

}  // namespace

void addHostFunctions(lua_State* state) {
    constexpr luaL_Reg kGlobals[] = {{"QUIL_External", guarded<external>},
                                     {"QUIL_Version", guarded<version>},
                                     {"print", guarded<print>},
                                     {"perform", guarded<perform>},
                                     {"pause", guarded<pause>},
                                     {"quit", guarded<quit>},
                                     {"window", guarded<window>},
                                     {"menu", guarded<menu>},
                                     {"field", guarded<field>}};
    for (const luaL_Reg& function : kGlobals) {
        lua_register(state, function.name, function.func);
    }
    constexpr luaL_Reg kHost[] = {{"front", guarded<front>},
                                  {"close", guarded<closeWindow>},
                                  {"read", guarded<read>},
                                  {"csv", guarded<csv>},
                                  {nullptr, nullptr}};
    luaL_newlib(state, kHost);
    lua_pushboolean(state, Interpreter::solutionOf(state).observed());
    lua_setfield(state, -2, "desk");
    lua_setglobal(state, "host");
}

}  // namespace host
