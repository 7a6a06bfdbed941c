// db:exec, db:rows and db:value.
#include <new>

#include "host/solution.h"
#include "host/solution_lua.h"
#include "platform/text.h"

namespace host {

namespace {

constexpr char kRows[] = "rows of a query";

// A statement that is given back when the call that took it ends.
class Query {
  public:
    Query(Database& database, sqlite3_stmt* taken) : database_(database), statement_(taken) {}
    ~Query() { database_.giveBack(statement_); }
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    sqlite3_stmt* get() const { return statement_; }
    sqlite3_stmt* release() { return std::exchange(statement_, nullptr); }

  private:
    Database& database_;
    sqlite3_stmt* statement_;
};

// What a loop over rows holds.
struct Rows {
    Database* database;
    sqlite3_stmt* statement;
    std::uint64_t transaction;

    void end() {
        if (statement != nullptr) {
            database->giveBack(std::exchange(statement, nullptr));
        }
    }
};

// Binds the Lua value at `index` as parameter `number`. Texts that are not UTF-8 are blobs.
void bindValue(lua_State* state, int index, sqlite3_stmt* statement, int number) {
    int status = SQLITE_OK;
    switch (lua_type(state, index)) {
        case LUA_TNIL:
        case LUA_TNONE:
            status = sqlite3_bind_null(statement, number);
            break;
        case LUA_TBOOLEAN:
            status = sqlite3_bind_int(statement, number, lua_toboolean(state, index));
            break;
        case LUA_TNUMBER:
            status = lua_isinteger(state, index) != 0
                         ? sqlite3_bind_int64(statement, number, lua_tointeger(state, index))
                         : sqlite3_bind_double(statement, number, lua_tonumber(state, index));
            break;
        case LUA_TSTRING: {
            std::size_t size = 0;
            const char* const text = lua_tolstring(state, index, &size);
            status = platform::isUtf8({text, size})
                         ? sqlite3_bind_text64(statement, number, text, size, SQLITE_TRANSIENT, SQLITE_UTF8)
                         : sqlite3_bind_blob64(statement, number, text, size, SQLITE_TRANSIENT);
            break;
        }
        default:
            throw HostError("value " + std::to_string(number) + " is a " + luaL_typename(state, index) +
                            "; the database takes texts, numbers, booleans and nil");
    }
    if (status != SQLITE_OK) {
        throw HostError(std::string("value ") + std::to_string(number) + ": " + sqlite3_errstr(status));
    }
}

// The values after the SQL text: one for each "?", or one table with the values of ":name" by name and of "?" by
// number.
void bind(lua_State* state, sqlite3_stmt* statement) {
    constexpr int kFirst = 3;
    const int wanted = sqlite3_bind_parameter_count(statement);
    const int given = lua_gettop(state) - kFirst + 1;
    if (given == 1 && lua_istable(state, kFirst)) {
        for (int i = 1; i <= wanted; ++i) {
            const char* const name = sqlite3_bind_parameter_name(statement, i);
            name == nullptr ? lua_geti(state, kFirst, i) : lua_getfield(state, kFirst, name + 1);
            bindValue(state, lua_gettop(state), statement, i);
            lua_pop(state, 1);
        }
        return;
    }
    if (given != wanted) {
        throw HostError("the SQL takes " + std::to_string(wanted) + " values, and " + std::to_string(given) +
                        " were given");
    }
    for (int i = 1; i <= wanted; ++i) {
        bindValue(state, kFirst + i - 1, statement, i);
    }
}

void pushColumn(lua_State* state, sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            lua_pushinteger(state, sqlite3_column_int64(statement, column));
            break;
        case SQLITE_FLOAT:
            lua_pushnumber(state, sqlite3_column_double(statement, column));
            break;
        case SQLITE_NULL:
            lua_pushnil(state);
            break;
        default: {
            const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
            lua_pushlstring(state, bytes == nullptr ? "" : bytes,
                            static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
        }
    }
}

std::string_view sqlOf(lua_State* state) {
    if (!lua_istable(state, 1)) {
        throw HostError("call the database's functions with a colon, as in db:exec(sql)");
    }
    std::size_t size = 0;
    const char* const text = luaL_checklstring(state, 2, &size);
    return {text, size};
}

// The one statement of a text. Throws when there is none, or another one behind it.
sqlite3_stmt* onlyStatement(Database& database, std::string_view sql) {
    sqlite3_stmt* first = nullptr;
    while (first == nullptr && !sql.empty()) {
        first = database.take(sql);
    }
    Query query(database, first);
    if (first == nullptr) {
        throw HostError("there is no SQL statement in the text");
    }
    while (!sql.empty()) {
        if (const Query more(database, database.take(sql)); more.get() != nullptr) {
            throw HostError("only one SQL statement can stand here");
        }
    }
    return query.release();
}

int exec(lua_State* state) {
    std::string_view sql = sqlOf(state);
    Database& database = Interpreter::solutionOf(state).database();
    const bool single = lua_gettop(state) > 2;
    std::int64_t changed = 0;
    do {
        const Query taken(database, single ? onlyStatement(database, std::exchange(sql, {})) : database.take(sql));
        if (taken.get() == nullptr) {
            continue;
        }
        bind(state, taken.get());
        while (database.step(taken.get())) {
        }
        changed += sqlite3_stmt_readonly(taken.get()) != 0 ? 0 : database.changes();
    } while (!sql.empty());
    lua_pushinteger(state, changed);
    return 1;
}

int value(lua_State* state) {
    const std::string_view sql = sqlOf(state);
    Database& database = Interpreter::solutionOf(state).database();
    const Query taken(database, onlyStatement(database, sql));
    bind(state, taken.get());
    if (database.step(taken.get()) && sqlite3_column_count(taken.get()) > 0) {
        pushColumn(state, taken.get(), 0);
    } else {
        lua_pushnil(state);
    }
    return 1;
}

int nextRow(lua_State* state) {
    auto& rows = *static_cast<Rows*>(luaL_checkudata(state, lua_upvalueindex(1), kRows));
    if (rows.statement == nullptr) {
        return 0;
    }
    Database& database = Interpreter::solutionOf(state).database();
    if (rows.transaction != database.transaction()) {
        throw HostError("these rows belong to a script that has ended");
    }
    if (!database.step(rows.statement)) {
        rows.end();
        return 0;
    }
    const int columns = sqlite3_column_count(rows.statement);
    lua_createtable(state, columns, columns);
    for (int i = 0; i < columns; ++i) {
        pushColumn(state, rows.statement, i);
        lua_pushvalue(state, -1);
        lua_setfield(state, -3, sqlite3_column_name(rows.statement, i));
        lua_rawseti(state, -2, i + 1);
    }
    return 1;
}

int endRows(lua_State* state) {
    static_cast<Rows*>(luaL_checkudata(state, 1, kRows))->end();
    return 0;
}

// For a generic "for": the function that gives the next row, and what the loop closes when it ends.
int rows(lua_State* state) {
    const std::string_view sql = sqlOf(state);
    Database& database = Interpreter::solutionOf(state).database();
    Query taken(database, onlyStatement(database, sql));
    bind(state, taken.get());
    new (lua_newuserdatauv(state, sizeof(Rows), 0)) Rows{&database, taken.release(), database.transaction()};
    luaL_setmetatable(state, kRows);
    const int made = lua_gettop(state);
    lua_pushvalue(state, made);
    lua_pushcclosure(state, guarded<nextRow>, 1);
    lua_pushnil(state);
    lua_pushnil(state);
    lua_pushvalue(state, made);
    return 4;
}

}  // namespace

void addDatabaseFunctions(lua_State* state) {
    luaL_newmetatable(state, kRows);
    for (const char* name : {"__gc", "__close"}) {
        lua_pushcfunction(state, guarded<endRows>);
        lua_setfield(state, -2, name);
    }
    lua_pop(state, 1);
    constexpr luaL_Reg kFunctions[] = {
        {"exec", guarded<exec>}, {"rows", guarded<rows>}, {"value", guarded<value>}, {nullptr, nullptr}};
    luaL_newlib(state, kFunctions);
    lua_setglobal(state, "db");
}

}  // namespace host
