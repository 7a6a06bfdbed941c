#include "host/solution_database.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "sqlite/functions.h"

namespace host {

namespace {

constexpr int kBusyMilliseconds = 5000;
constexpr int kStepsBetweenQuestions = 20'000;  // some tenths of a millisecond
constexpr std::size_t kStatementsKept = 64;
constexpr char kHostsTransactions[] = "the host begins and ends the transactions: each script is one";

const sqlite3_api_routines* sLinkedApi = nullptr;  // the linked library's own table

int captureApi(sqlite3*, char**, const sqlite3_api_routines* api) {
    sLinkedApi = api;
    return SQLITE_OK;
}

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

bool exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

}  // namespace

// A file beside the database, held with an advisory lock while the host lives, with the host's process number in it.
Database::Lock::Lock(const std::string& database) : file(database + ".lock") {
    for (;;) {
        descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (descriptor < 0) {
            throw HostError("cannot write beside the database " + quoted(database) + ": " + std::strerror(errno) +
                            "; name another place with --database, or look at it with --read-only");
        }
        if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
            std::array<char, 24> number{};
            const ssize_t size = ::pread(descriptor, number.data(), number.size() - 1, 0);
            ::close(descriptor);
            descriptor = -1;
            std::string holder(number.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
            holder.erase(std::find(holder.begin(), holder.end(), '\n'), holder.end());
            throw HostError("another quil" + (holder.empty() ? "" : " (process " + holder + ")") +
                            " runs this solution with the database " + quoted(database) +
                            "; end it first, name another database with --database, or look at this one with "
                            "--read-only");
        }
        // The holder before may have removed the file between the two calls.
        struct stat held {};
        struct stat named {};
        if (::fstat(descriptor, &held) == 0 && ::stat(file.c_str(), &named) == 0 && held.st_ino == named.st_ino &&
            held.st_dev == named.st_dev) {
            break;
        }
        ::close(descriptor);
    }
    const std::string number = std::to_string(::getpid()) + '\n';
    if (::ftruncate(descriptor, 0) == 0) {
        // For the message above alone: the lock holds without it.
        [[maybe_unused]] const ssize_t written = ::pwrite(descriptor, number.data(), number.size(), 0);
    }
}

Database::Lock::~Lock() {
    ::unlink(file.c_str());
    ::close(descriptor);
}

Database::Database(const std::string& file, bool readOnly) : file_(file), readOnly_(readOnly) {
    created_ = !exists(file);
    if (readOnly && created_) {
        throw HostError("there is no database " + quoted(file) + " to look at; run the solution without --read-only");
    }
    if (!readOnly) {
        lock_ = std::make_unique<Lock>(file);
    }
    try {
        open();
    } catch (...) {
        forget();
        throw;
    }
}

Database::~Database() {
    close();
}

void Database::open() {
    int flags = readOnly_ ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    std::string name = file_;
    if (readOnly_ && ::access((file_.substr(0, file_.rfind('/') + 1) + ".").c_str(), W_OK) != 0 &&
        !exists(file_ + "-wal")) {
        // Where nothing can be written SQLite cannot share the file, but nobody else writes there either.
        name = "file:";
        for (const char c : file_) {
            constexpr char kDigits[] = "0123456789ABCDEF";
            const auto byte = static_cast<unsigned char>(c);
            name += c == '%' || c == '?' || c == '#' ? std::string{'%', kDigits[byte >> 4], kDigits[byte & 15]}
                                                     : std::string(1, c);
        }
        name += "?immutable=1";
        flags |= SQLITE_OPEN_URI;
    }
    if (sLinkedApi == nullptr) {
        sqlite3_auto_extension(reinterpret_cast<void (*)()>(captureApi));
    }
    const int status = sqlite3_open_v2(name.c_str(), &handle_, flags, nullptr);
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(captureApi));
    if (handle_ == nullptr) {
        throw std::bad_alloc();
    }
    if (status != SQLITE_OK) {
        fail("cannot open the database " + quoted(file_));
    }
    sqlite3_extended_result_codes(handle_, 1);
    sqlite3_busy_timeout(handle_, kBusyMilliseconds);
    sqlite3_db_config(handle_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle_, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
    const char* const settings = readOnly_ ? "PRAGMA foreign_keys=ON; SELECT count(*) FROM sqlite_schema"
                                           : "PRAGMA foreign_keys=ON; SELECT count(*) FROM sqlite_schema; "
                                             "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL";
    if (sqlite3_exec(handle_, settings, nullptr, nullptr, nullptr) != SQLITE_OK) {
        switch (sqlite3_errcode(handle_) & 0xFF) {
            case SQLITE_NOTADB:
            case SQLITE_CORRUPT:
                throw HostError("the database " + quoted(file_) + " is damaged (" + sqlite3_errmsg(handle_) +
                                "); put a copy of it in its place, or move it away to begin with a new one");
            case SQLITE_BUSY:
                throw HostError("another program has locked the database " + quoted(file_) +
                                "; end its work there and try again");
            default:
                fail("cannot use the database " + quoted(file_));
        }
    }
    sqlite3_set_authorizer(handle_, authorize, this);
    sqlite3_progress_handler(
        handle_, kStepsBetweenQuestions,
        [](void* self) {
            auto& database = *static_cast<Database*>(self);
            return database.interrupted_ && database.interrupted_() ? 1 : 0;
        },
        this);
}

void Database::close() noexcept {
    for (const auto& [text, statement] : ready_) {
        sqlite3_finalize(statement);
    }
    ready_.clear();
    sqlite3_close_v2(handle_);
    handle_ = nullptr;
}

void Database::forget() {
    close();
    if (created_ && !readOnly_) {
        for (const char* suffix : {"", "-wal", "-shm"}) {
            ::unlink((file_ + suffix).c_str());
        }
    }
}

int Database::authorize(void* self, int action, const char*, const char*, const char*, const char*) {
    auto& database = *static_cast<Database*>(self);
    switch (action) {
        case SQLITE_TRANSACTION:
            database.refused_ = database.ownStatement_ ? nullptr : kHostsTransactions;
            break;
        case SQLITE_ATTACH:
        case SQLITE_DETACH:
            database.refused_ = "a solution works with its own database alone";
            break;
        default:
            return SQLITE_OK;
    }
    return database.refused_ == nullptr ? SQLITE_OK : SQLITE_DENY;
}

std::string Database::problem() {
    const char* const refusal = std::exchange(refused_, nullptr);
    return refusal != nullptr ? refusal : sqlite3_errmsg(handle_);
}

void Database::fail(const std::string& what) {
    throw HostError(what + ": " + problem());
}

void Database::run(const char* sql) {
    ownStatement_ = true;
    refused_ = nullptr;
    const int status = sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr);
    ownStatement_ = false;
    if (status != SQLITE_OK) {
        throw HostError(problem());
    }
}

void Database::addFunctions(Plugin& plugin) {
    if (sLinkedApi == nullptr ||
        addSqlFunctions(handle_, sLinkedApi, std::shared_ptr<Plugin>(std::shared_ptr<Plugin>(), &plugin)) !=
            SQLITE_OK) {
        fail("SQLite does not take the functions of the plug-in");
    }
}

void Database::applySchema(std::string_view schema, const std::string& name) {
    std::string_view question = "SELECT count(*) FROM sqlite_schema";
    sqlite3_stmt* count = take(question);
    const bool isNew = step(count) && sqlite3_column_int64(count, 0) == 0;
    giveBack(count);
    if (!isNew || readOnly_) {
        return;
    }
    std::string_view rest = schema;
    std::size_t at = 0;
    begin();
    try {
        while (!rest.empty()) {
            at = schema.size() - rest.size();
            sqlite3_stmt* statement = take(rest);
            if (statement == nullptr) {
                continue;
            }
            const struct Given {
                Database& database;
                sqlite3_stmt* statement;
                ~Given() { database.giveBack(statement); }
            } given{*this, statement};
            while (step(statement)) {
            }
        }
        commit();
    } catch (const HostError& error) {
        rollback();
        at = std::min(schema.find_first_not_of(" \t\r\n", at), schema.size());
        const auto line = 1 + std::count(schema.begin(), schema.begin() + static_cast<std::ptrdiff_t>(at), '\n');
        throw HostError(name + ":" + std::to_string(line) + ": " + error.what());
    }
}

void Database::begin() {
    ++transaction_;
    run("BEGIN");
    open_ = true;
}

void Database::commit() {
    const bool lost = wasRolledBack();
    try {
        if (lost) {
            throw HostError("its transaction was rolled back");
        }
        endReading();
        run("COMMIT");
        open_ = false;
    } catch (...) {
        rollback();
        throw;
    }
}

// What still reads would keep the transaction's view of the data.
void Database::endReading() noexcept {
    for (sqlite3_stmt* each = sqlite3_next_stmt(handle_, nullptr); each != nullptr;
         each = sqlite3_next_stmt(handle_, each)) {
        sqlite3_reset(each);
    }
}

void Database::rollback() noexcept {
    endReading();
    if (sqlite3_get_autocommit(handle_) == 0) {
        ownStatement_ = true;
        sqlite3_exec(handle_, "ROLLBACK", nullptr, nullptr, nullptr);
        ownStatement_ = false;
    }
    open_ = false;
}

void Database::savepoint() {
    run("SAVEPOINT \"performed script\"");
}

void Database::release() {
    run("RELEASE \"performed script\"");
}

void Database::rollbackToSavepoint() noexcept {
    sqlite3_exec(handle_, "ROLLBACK TO \"performed script\"; RELEASE \"performed script\"", nullptr, nullptr, nullptr);
}

sqlite3_stmt* Database::take(std::string_view& sql) {
    if (const auto found = ready_.find(std::string(sql)); found != ready_.end()) {
        sqlite3_stmt* statement = found->second;
        ready_.erase(found);
        sql = {};
        return statement;
    }
    refused_ = nullptr;
    sqlite3_stmt* statement = nullptr;
    const char* rest = nullptr;
    if (sql.size() > static_cast<std::size_t>(sqlite3_limit(handle_, SQLITE_LIMIT_SQL_LENGTH, -1))) {
        throw HostError("the SQL text is too long");
    }
    if (sqlite3_prepare_v2(handle_, sql.data(), static_cast<int>(sql.size()), &statement, &rest) != SQLITE_OK) {
        throw HostError(problem());
    }
    sql.remove_prefix(static_cast<std::size_t>(rest - sql.data()));
    return statement;
}

void Database::giveBack(sqlite3_stmt* statement) noexcept {
    if (statement == nullptr) {
        return;
    }
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    const char* const text = sqlite3_sql(statement);
    try {
        if (text != nullptr && handle_ != nullptr && ready_.size() < kStatementsKept &&
            ready_.emplace(text, statement).second) {
            return;
        }
    } catch (const std::bad_alloc&) {
        // Then it is not kept.
    }
    sqlite3_finalize(statement);
}

bool Database::step(sqlite3_stmt* statement) {
    const int status = sqlite3_step(statement);
    if (status == SQLITE_ROW) {
        return true;
    }
    if (status != SQLITE_DONE) {
        throw HostError(problem());
    }
    return false;
}

}  // namespace host
