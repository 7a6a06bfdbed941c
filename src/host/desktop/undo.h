// Undo by transaction: what each script or edit changed, and how it is taken back.
#pragma once

#include <QString>
#include <deque>
#include <string>
#include <vector>

#include "host/solution_database.h"

struct sqlite3_session;

namespace host::desktop {

class UndoLog {
  public:
    ~UndoLog() { stop(); }

    // Around a transaction: after it began, before it ends, and when it has ended.
    void begins(Database& database, const QString& what);
    void ends(bool kept);
    void ended();
    // While it runs: gives up on changes that are too many to keep.
    void watch();

    bool canUndo() const { return !undo_.empty(); }
    bool canRedo() const { return !redo_.empty(); }
    QString undoText() const { return canUndo() ? undo_.back().what : QString(); }
    QString redoText() const { return canRedo() ? redo_.back().what : QString(); }
    // Each is a transaction. Throws HostError when the records have changed since in another way.
    void undo(Database& database) { turn(database, undo_, redo_); }
    void redo(Database& database) { turn(database, redo_, undo_); }

  private:
    struct Change {
        QString what;
        std::vector<char> content;
    };

    void stop();
    static void turn(Database& database, std::deque<Change>& from, std::deque<Change>& to);

    sqlite3_session* session_ = nullptr;
    bool tooMuch_ = false;
    QString what_;
    std::deque<Change> pending_;  // one at most
    std::deque<Change> undo_;     // latest last
    std::deque<Change> redo_;
};

}  // namespace host::desktop
