#include "host/desktop/undo.h"

#include <memory>

namespace host::desktop {

namespace {

constexpr std::size_t kKept = 50;
constexpr sqlite3_int64 kMostMemory = 32 << 20;  // of one transaction's changes

std::vector<char> bytesOf(int size, void* content) {
    const auto* const bytes = static_cast<const char*>(content);
    return size == 0 ? std::vector<char>() : std::vector<char>(bytes, bytes + size);
}

// A record that is gone already needs no deletion: another one took it along.
int onConflict(void*, int kind, sqlite3_changeset_iter* change) {
    const char* table = nullptr;
    int columns = 0;
    int operation = 0;
    int indirect = 0;
    sqlite3changeset_op(change, &table, &columns, &operation, &indirect);
    return kind == SQLITE_CHANGESET_NOTFOUND && operation == SQLITE_DELETE ? SQLITE_CHANGESET_OMIT
                                                                           : SQLITE_CHANGESET_ABORT;
}

}  // namespace

void UndoLog::begins(Database& database, const QString& what) {
    stop();
    pending_.clear();
    tooMuch_ = false;
    what_ = what;
    if (sqlite3session_create(database.handle(), "main", &session_) != SQLITE_OK ||
        sqlite3session_attach(session_, nullptr) != SQLITE_OK) {
        stop();
    }
}

void UndoLog::watch() {
    if (session_ != nullptr && !tooMuch_ && sqlite3session_memory_used(session_) > kMostMemory) {
        sqlite3session_enable(session_, 0);
        tooMuch_ = true;
    }
}

void UndoLog::ends(bool kept) {
    pending_.clear();
    watch();
    if (kept && session_ != nullptr && !tooMuch_) {
        int size = 0;
        void* content = nullptr;
        if (sqlite3session_changeset(session_, &size, &content) == SQLITE_OK) {
            const std::unique_ptr<void, void (*)(void*)> owned(content, sqlite3_free);
            if (size > 0) {
                pending_.push_back({what_, bytesOf(size, content)});
            }
        } else {
            tooMuch_ = true;
        }
    }
    tooMuch_ = tooMuch_ && kept;
    stop();
}

void UndoLog::ended() {
    if (tooMuch_) {  // what came before cannot be taken back over it
        undo_.clear();
        redo_.clear();
    } else if (!pending_.empty()) {
        undo_.push_back(std::move(pending_.front()));
        redo_.clear();
        if (undo_.size() > kKept) {
            undo_.pop_front();
        }
    }
    pending_.clear();
    tooMuch_ = false;
}

void UndoLog::stop() {
    if (session_ != nullptr) {
        sqlite3session_delete(session_);
        session_ = nullptr;
    }
}

void UndoLog::turn(Database& database, std::deque<Change>& from, std::deque<Change>& to) {
    Change& change = from.back();
    int size = 0;
    void* content = nullptr;
    if (sqlite3changeset_invert(static_cast<int>(change.content.size()), change.content.data(), &size, &content) !=
        SQLITE_OK) {
        throw HostError("the changes cannot be turned round: out of memory");
    }
    const std::unique_ptr<void, void (*)(void*)> owned(content, sqlite3_free);
    // Undoing applies the inverse; what is kept afterwards is the inverse, whose own inverse redoes it.
    database.begin();
    const int status = sqlite3changeset_apply(database.handle(), size, content, nullptr, onConflict, nullptr);
    if (status != SQLITE_OK) {
        database.rollback();
        throw HostError("the records were changed in another way meanwhile, so this cannot be taken back");
    }
    database.commit();
    to.push_back({change.what, bytesOf(size, content)});
    from.pop_back();
}

}  // namespace host::desktop
