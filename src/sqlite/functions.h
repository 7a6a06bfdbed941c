// QUIL_External and QUIL_Version as functions of SQL.
#pragma once

#include <sqlite3.h>

#include <memory>

struct sqlite3_api_routines;

namespace host {

class Plugin;

// Adds QUIL_External(name, parameter), QUIL_Version() and QUIL_Version(anything) to a connection. They hold `plugin`
// until the connection lets go of them. `api`: SQLite's own table of its routines, as an extension's entry gets it; it
// has to be the same at every call. Returns SQLite's status; then nothing is held when it is an error.
//
// Texts go both ways with the NULs that are in them; a NULL name or parameter gives NULL. Neither function counts as
// deterministic or innocuous: script functions keep state, and some write files.
int addSqlFunctions(sqlite3* database, const sqlite3_api_routines* api, const std::shared_ptr<Plugin>& plugin);

}  // namespace host
