// A solution's SQLite database: opened by one host at a time, its schema applied when it is new, and a transaction for
// each script.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/plugin.h"

namespace host {

class Database {
  public:
    // Opens the file, which is created when it is not there (not with `readOnly`). Only one host may have it for
    // writing: throws HostError that names the other one; the same for a file that cannot be opened, is no database or
    // is damaged.
    Database(const std::string& file, bool readOnly);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::string& file() const { return file_; }

    // Offers QUIL_External and QUIL_Version; the plug-in has to stay until this is closed.
    void addFunctions(Plugin& plugin);
    // Applies the statements of `schema` in one transaction, if the database has no tables yet. Throws HostError that
    // names `name` and the line; then the database is as it was.
    void applySchema(std::string_view schema, const std::string& name);
    // Closes it and removes the file if it was made by this and nothing was put into it.
    void forget();

    // Asked now and then while a statement runs; true interrupts it.
    void setInterruption(std::function<bool()> interrupted) { interrupted_ = std::move(interrupted); }

    // Each throws HostError when SQLite refuses.
    void begin();
    void commit();  // when it throws, nothing of the transaction was kept
    void rollback() noexcept;
    void savepoint();
    void release();
    void rollbackToSavepoint() noexcept;
    // Whether a script's transaction is open. It can end early: on a full disk, for instance, SQLite rolls it back.
    bool inTransaction() const { return open_ && sqlite3_get_autocommit(handle_) == 0; }
    bool wasRolledBack() const { return open_ && sqlite3_get_autocommit(handle_) != 0; }
    // Counts the transactions: what belongs to an earlier one is over.
    std::uint64_t transaction() const { return transaction_; }

    // A prepared statement of the text's first statement, null when there is none (blanks, comments); `sql` becomes
    // what follows. To be given back.
    sqlite3_stmt* take(std::string_view& sql);
    void giveBack(sqlite3_stmt* statement) noexcept;
    // sqlite3_step: true for a row. Throws HostError with SQLite's message.
    bool step(sqlite3_stmt* statement);
    sqlite3* handle() const { return handle_; }
    std::int64_t changes() const { return sqlite3_changes64(handle_); }

  private:
    struct Lock {
        explicit Lock(const std::string& database);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        std::string file;
        int descriptor = -1;
    };

    static int authorize(void* self, int action, const char* first, const char* second, const char*, const char*);
    void open();
    void close() noexcept;
    void run(const char* sql);
    [[noreturn]] void fail(const std::string& what);
    std::string problem();
    void endReading() noexcept;

    std::string file_;
    bool readOnly_;
    bool created_ = false;
    std::unique_ptr<Lock> lock_;
    sqlite3* handle_ = nullptr;
    std::function<bool()> interrupted_;
    bool open_ = false;              // between begin and commit or rollback
    bool ownStatement_ = false;      // the host's own, which may begin and end transactions
    const char* refused_ = nullptr;  // why the last statement was refused
    std::uint64_t transaction_ = 0;
    std::unordered_map<std::string, sqlite3_stmt*> ready_;  // statements that scripts used before, by text
};

}  // namespace host
