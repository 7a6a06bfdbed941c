// The tables of a solution, and a found set of one of them as a model for views. The set holds the records' numbers
// alone; the records themselves are read a page at a time.
#pragma once

#include <QAbstractTableModel>
#include <QString>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/solution.h"

namespace host::desktop {

class Desk;

// A statement that is given back.
class Statement {
  public:
    Statement(Database& database, const std::string& sql) : database_(database) {
        std::string_view rest = sql;
        statement_ = database.take(rest);
    }
    ~Statement() { database_.giveBack(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool step() { return database_.step(statement_); }
    sqlite3_stmt* get() const { return statement_; }
    void bind(int number, const QString& text);
    void bind(int number, std::int64_t value) { sqlite3_bind_int64(statement_, number, value); }
    QString text(int column) const;

  private:
    Database& database_;
    sqlite3_stmt* statement_ = nullptr;
};

// A name between double quotes, as SQL takes it.
std::string sqlName(const std::string& name);

struct Column {
    QString name;
    bool nullable = true;
    bool key = false;
    bool generated = false;
};

struct Table {
    enum class Kind { numbered, keyed, view };  // by rowid; by its primary key alone; not to be changed
    std::string name;
    Kind kind = Kind::numbered;
    std::string number;  // the rowid's name
    std::vector<Column> columns;
    bool undoable = false;
};

// Tables first, then views, by name. Those of SQLite itself are left out.
std::vector<Table> tablesOf(Database& database);

// What is looked for: in one column or, -1, in all. The text may begin with =, <, <=, >, >= or !=; else the field
// contains it. Several words are one text.
struct Request {
    int column = -1;
    QString text;
};

class Records : public QAbstractTableModel {
  public:
    struct Cell {
        QString text;
        bool null = false;
        bool blob = false;
        bool number = false;
    };

    explicit Records(Desk& desk, QObject* parent = nullptr) : QAbstractTableModel(parent), desk_(desk) {}

    // Shows all records of the table. False when that was cancelled or failed, which the user was told.
    bool open(const Table& table);
    // Replaces the found set. False when nothing was found or it was cancelled; then the set stays as it was.
    bool find(const Request& request);
    bool showAll() { return find({}); }
    void sort(int column, Qt::SortOrder order) override;
    void unsort();
    // Reads the same set again, after the database was changed.
    void reload();

    const Table& table() const { return table_; }
    bool changeable() const;
    const Request& request() const { return request_; }
    std::int64_t total() const { return total_; }
    int sortColumn() const { return sortColumn_; }
    Qt::SortOrder order() const { return order_; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;

    const Cell* cell(int row, int column) const;  // null: cannot be read now
    // The whole text of a field.
    QString fullText(int row, int column) const;
    // The record's fields by name, for scripts.
    Solution::Record record(int row) const;
    bool insert(const std::vector<std::optional<QString>>& values);
    bool remove(const std::vector<int>& rows);

    // Whether something could not be read since the last time, because something else was at work.
    bool takeMissed() { return std::exchange(missed_, false); }

    std::function<void()> changed;  // the set, or what is in it

  private:
    using Row = std::vector<Cell>;
    struct Page {
        std::vector<Row> rows;
        std::list<int>::iterator used;
    };

    bool load(const Request& request, int sortColumn, Qt::SortOrder order);
    std::string condition(const Request& request) const;
    std::string orderBy(int sortColumn, Qt::SortOrder order) const;
    void bindRequest(Statement& statement, const Request& request) const;
    std::string columnList() const;
    // The part of a statement that names one record, and its values.
    std::string whereRecord() const;
    void bindRecord(Statement& statement, int from, int row) const;
    const Page* page(int number) const;
    Row readRow(Statement& statement) const;

    Desk& desk_;
    Table table_;
    Request request_;
    int sortColumn_ = -1;
    Qt::SortOrder order_ = Qt::AscendingOrder;
    std::vector<std::int64_t> numbers_;  // of a numbered table: the set
    int count_ = 0;
    std::int64_t total_ = 0;
    mutable std::unordered_map<int, Page> pages_;
    mutable std::list<int> used_;  // latest first
    mutable bool missed_ = false;
};

}  // namespace host::desktop
