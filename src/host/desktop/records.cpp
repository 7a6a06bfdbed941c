#include "host/desktop/records.h"

#include <QBrush>
#include <QGuiApplication>
#include <QPalette>
#include <algorithm>
#include <limits>

#include "host/desktop/desk.h"
#include "platform/text.h"

namespace host::desktop {

namespace {

constexpr int kPageRows = 100;
constexpr std::size_t kPagesKept = 40;
constexpr int kLongestShown = 500;  // characters of a cell

QString comparisonOf(const QString& text, QString& rest) {
    for (const char* sign : {"<=", ">=", "!=", "=", "<", ">"}) {
        if (text.startsWith(sign)) {
            rest = text.mid(static_cast<int>(std::char_traits<char>::length(sign))).trimmed();
            return sign;
        }
    }
    rest = text;
    return {};
}

}  // namespace

void Statement::bind(int number, const QString& text) {
    const std::string bytes = text.toStdString();
    sqlite3_bind_text64(statement_, number, bytes.data(), bytes.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

QString Statement::text(int column) const {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return QString::fromUtf8(text, sqlite3_column_bytes(statement_, column));
}

std::string sqlName(const std::string& name) {
    std::string quoted = "\"";
    for (const char c : name) {
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return quoted + '"';
}

std::vector<Table> tablesOf(Database& database) {
    std::vector<Table> tables;
    Statement list(database,
                   "SELECT name, type, wr FROM pragma_table_list WHERE schema = 'main' AND name NOT LIKE 'sqlite\\_%' "
                   "ESCAPE '\\' AND type IN ('table', 'view') ORDER BY type, name COLLATE NOCASE");
    while (list.step()) {
        Table table;
        table.name = list.text(0).toStdString();
        const bool isView = list.text(1) == "view";
        table.kind = isView                                   ? Table::Kind::view
                     : sqlite3_column_int(list.get(), 2) != 0 ? Table::Kind::keyed
                                                              : Table::Kind::numbered;
        Statement columns(database, "SELECT name, \"notnull\", pk, hidden FROM pragma_table_xinfo(?)");
        columns.bind(1, QString::fromStdString(table.name));
        while (columns.step()) {
            Column column;
            column.name = columns.text(0);
            column.nullable = sqlite3_column_int(columns.get(), 1) == 0;
            column.key = sqlite3_column_int(columns.get(), 2) != 0;
            column.generated = sqlite3_column_int(columns.get(), 3) != 0;
            table.undoable = table.undoable || (column.key && !isView);
            table.columns.push_back(column);
        }
        for (const char* name : {"rowid", "_rowid_", "oid"}) {
            if (table.number.empty() &&
                std::none_of(table.columns.begin(), table.columns.end(), [name](const Column& column) {
                    return column.name.compare(name, Qt::CaseInsensitive) == 0;
                })) {
                table.number = name;
            }
        }
        if (table.kind == Table::Kind::numbered && table.number.empty()) {
            table.kind = Table::Kind::view;  // its records have no name left
        }
        if (!table.columns.empty()) {
            tables.push_back(std::move(table));
        }
    }
    return tables;
}

// The found set.

bool Records::open(const Table& table) {
    const Table before = std::exchange(table_, table);
    if (load({}, -1, Qt::AscendingOrder)) {
        return true;
    }
    table_ = before;
    return false;
}

bool Records::find(const Request& request) {
    return load(request, sortColumn_, order_);
}

void Records::sort(int column, Qt::SortOrder order) {
    if (column >= 0 && column < columnCount()) {
        load(request_, column, order);
    }
}

void Records::unsort() {
    load(request_, -1, Qt::AscendingOrder);
}

void Records::reload() {
    if (!table_.columns.empty()) {
        load(request_, sortColumn_, order_);
    }
}

std::string Records::condition(const Request& request) const {
    if (request.text.isEmpty()) {
        return {};
    }
    QString rest;
    const std::string sign = comparisonOf(request.text, rest).toStdString();
    bool isNumber = false;
    rest.toDouble(&isNumber);
    const auto one = [&](const Column& column) {
        const std::string name = sqlName(column.name.toStdString());
        if (sign.empty()) {
            return name + " LIKE ?1 ESCAPE '\\'";
        }
        const std::string value = isNumber ? "CAST(" + name + " AS REAL)" : name + " COLLATE NOCASE";
        return (isNumber ? "typeof(" + name + ") <> 'blob' AND " + name + " <> '' AND " : "") + value + ' ' + sign +
               (isNumber ? " CAST(?1 AS REAL)" : " ?1");
    };
    std::string text;
    for (int i = 0; i < static_cast<int>(table_.columns.size()); ++i) {
        if (request.column < 0 || request.column == i) {
            text += (text.empty() ? " WHERE (" : ") OR (") + one(table_.columns[static_cast<std::size_t>(i)]);
        }
    }
    return text + ')';
}

void Records::bindRequest(Statement& statement, const Request& request) const {
    if (request.text.isEmpty()) {
        return;
    }
    QString rest;
    if (!comparisonOf(request.text, rest).isEmpty()) {
        statement.bind(1, rest);
        return;
    }
    rest.replace('\\', "\\\\").replace('%', "\\%").replace('_', "\\_");
    statement.bind(1, '%' + rest + '%');
}

std::string Records::orderBy(int sortColumn, Qt::SortOrder order) const {
    const char* const direction = order == Qt::AscendingOrder ? "" : " DESC";
    std::string text;
    if (sortColumn >= 0) {
        const std::string name = sqlName(table_.columns[static_cast<std::size_t>(sortColumn)].name.toStdString());
        // Texts that begin with a number are sorted by it: "20 kg" before "150 kg".
        text = name + " + 0" + direction + ", " + name + " COLLATE NOCASE" + direction;
    }
    if (table_.kind == Table::Kind::numbered) {
        return text.empty() ? " ORDER BY " + table_.number : " ORDER BY " + text + ", " + table_.number;
    }
    for (const Column& column : table_.columns) {  // pages need the same order each time
        if (column.key) {
            text += (text.empty() ? "" : ", ") + sqlName(column.name.toStdString());
        }
    }
    return text.empty() ? text : " ORDER BY " + text;
}

bool Records::load(const Request& request, int sortColumn, Qt::SortOrder order) {
    std::vector<std::int64_t> numbers;
    std::int64_t count = 0;
    std::int64_t total = 0;
    const bool done = desk_.work("Finding records", [&] {
        Database& database = desk_.solution().records();
        const std::string from = " FROM " + sqlName(table_.name);
        Statement all(database, "SELECT count(*)" + from);
        all.step();
        total = sqlite3_column_int64(all.get(), 0);
        if (table_.kind == Table::Kind::numbered) {
            Statement set(database, "SELECT " + table_.number + from + condition(request) + orderBy(sortColumn, order));
            bindRequest(set, request);
            if (request.text.isEmpty()) {
                numbers.reserve(static_cast<std::size_t>(total));
            }
            while (set.step()) {
                numbers.push_back(sqlite3_column_int64(set.get(), 0));
            }
            count = static_cast<std::int64_t>(numbers.size());
        } else {
            Statement set(database, "SELECT count(*)" + from + condition(request));
            bindRequest(set, request);
            set.step();
            count = sqlite3_column_int64(set.get(), 0);
        }
    });
    if (!done || (count == 0 && !request.text.isEmpty() && &request != &request_)) {
        return false;
    }
    beginResetModel();
    numbers_ = std::move(numbers);
    count_ = static_cast<int>(std::min<std::int64_t>(count, std::numeric_limits<int>::max()));
    total_ = total;
    request_ = Request(request);
    sortColumn_ = sortColumn;
    order_ = order;
    pages_.clear();
    used_.clear();
    endResetModel();
    if (changed) {
        changed();
    }
    return true;
}

// Records.

bool Records::changeable() const {
    return table_.kind != Table::Kind::view && !desk_.readOnly();
}

std::string Records::columnList() const {
    std::string list;
    for (const Column& column : table_.columns) {
        list += (list.empty() ? "" : ", ") + sqlName(column.name.toStdString());
    }
    return list;
}

std::string Records::whereRecord() const {
    if (table_.kind == Table::Kind::numbered) {
        return " WHERE " + table_.number + " = ?";
    }
    std::string text;
    for (const Column& column : table_.columns) {
        if (column.key) {
            text += (text.empty() ? " WHERE " : " AND ") + sqlName(column.name.toStdString()) + " = ?";
        }
    }
    return text;
}

void Records::bindRecord(Statement& statement, int from, int row) const {
    if (table_.kind == Table::Kind::numbered) {
        statement.bind(from, numbers_[static_cast<std::size_t>(row)]);
        return;
    }
    for (int i = 0; i < static_cast<int>(table_.columns.size()); ++i) {
        if (table_.columns[static_cast<std::size_t>(i)].key) {
            const Cell* const key = cell(row, i);
            statement.bind(from++, key == nullptr ? QString() : key->text);
        }
    }
}

Records::Row Records::readRow(Statement& statement) const {
    Row row(table_.columns.size());
    for (std::size_t i = 0; i < row.size(); ++i) {
        const int column = static_cast<int>(i);
        switch (sqlite3_column_type(statement.get(), column)) {
            case SQLITE_NULL:
                row[i].null = true;
                break;
            case SQLITE_BLOB:
                row[i].blob = true;
                row[i].text = QString("(%1 bytes)").arg(sqlite3_column_bytes(statement.get(), column));
                break;
            case SQLITE_TEXT:
                row[i].text = statement.text(column);
                if (row[i].text.size() > kLongestShown && !table_.columns[i].key) {
                    row[i].text = row[i].text.left(kLongestShown) + QChar(0x2026);
                }
                break;
            default:
                row[i].number = true;
                row[i].text = statement.text(column);
        }
    }
    return row;
}

const Records::Page* Records::page(int number) const {
    if (const auto found = pages_.find(number); found != pages_.end()) {
        used_.splice(used_.begin(), used_, found->second.used);
        return &found->second;
    }
    if (desk_.working()) {
        missed_ = true;
        return nullptr;  // the database is in use; the view asks again when that is over
    }
    Page page;
    try {
        Database& database = desk_.solution().records();
        const std::string from = " FROM " + sqlName(table_.name);
        const int first = number * kPageRows;
        const int last = std::min(count_, first + kPageRows);
        if (table_.kind == Table::Kind::numbered) {
            for (int row = first; row < last; ++row) {
                Statement record(database, "SELECT " + columnList() + from + whereRecord());
                record.bind(1, numbers_[static_cast<std::size_t>(row)]);
                page.rows.push_back(record.step() ? readRow(record) : Row(table_.columns.size()));
            }
        } else {
            Statement records(database, "SELECT " + columnList() + from + condition(request_) +
                                            orderBy(sortColumn_, order_) + " LIMIT " + std::to_string(kPageRows) +
                                            " OFFSET " + std::to_string(first));
            bindRequest(records, request_);
            while (records.step()) {
                page.rows.push_back(readRow(records));
            }
        }
    } catch (const HostError&) {
        return nullptr;  // shown as empty; whatever the user does next tells why
    }
    if (pages_.size() >= kPagesKept) {
        pages_.erase(used_.back());
        used_.pop_back();
    }
    used_.push_front(number);
    page.used = used_.begin();
    return &pages_.emplace(number, std::move(page)).first->second;
}

const Records::Cell* Records::cell(int row, int column) const {
    const Page* const found = row < 0 || row >= count_ ? nullptr : page(row / kPageRows);
    const auto place = static_cast<std::size_t>(row % kPageRows);
    if (found == nullptr || place >= found->rows.size() || column < 0 ||
        static_cast<std::size_t>(column) >= found->rows[place].size()) {
        return nullptr;
    }
    return &found->rows[place][static_cast<std::size_t>(column)];
}

QString Records::fullText(int row, int column) const {
    const Cell* const shown = cell(row, column);
    if (shown == nullptr || shown->text.size() <= kLongestShown || table_.kind == Table::Kind::view ||
        desk_.working()) {
        return shown == nullptr ? QString() : shown->text;
    }
    try {
        Statement record(desk_.solution().records(),
                         "SELECT " + sqlName(table_.columns[static_cast<std::size_t>(column)].name.toStdString()) +
                             " FROM " + sqlName(table_.name) + whereRecord());
        bindRecord(record, 1, row);
        return record.step() ? record.text(0) : QString();
    } catch (const HostError&) {
        return shown->text;
    }
}

Solution::Record Records::record(int row) const {
    Solution::Record fields;
    for (int i = 0; i < columnCount(); ++i) {
        const Cell* const value = cell(row, i);
        if (value != nullptr && !value->null && !value->blob) {
            fields.emplace_back(table_.columns[static_cast<std::size_t>(i)].name.toStdString(),
                                fullText(row, i).toStdString());
        }
    }
    return fields;
}

int Records::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : count_;
}

int Records::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(table_.columns.size());
}

QVariant Records::data(const QModelIndex& index, int role) const {
    const Cell* const value = cell(index.row(), index.column());
    if (value == nullptr) {
        return {};
    }
    switch (role) {
        case Qt::DisplayRole:
            return QString(value->text).replace('\n', QChar(0x21B5));
        case Qt::EditRole:
            return fullText(index.row(), index.column());
        case Qt::TextAlignmentRole:
            return QVariant(Qt::AlignVCenter | (value->number ? Qt::AlignRight : Qt::AlignLeft));
        case Qt::ForegroundRole:
            return value->blob ? QVariant(QGuiApplication::palette().brush(QPalette::Disabled, QPalette::Text))
                               : QVariant();
        case Qt::AccessibleTextRole:
            return headerData(index.column(), Qt::Horizontal, Qt::DisplayRole).toString() + ": " + value->text;
        default:
            return {};
    }
}

QVariant Records::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole || section < 0) {
        return {};
    }
    if (orientation == Qt::Vertical) {
        return section + 1;
    }
    return section < columnCount() ? table_.columns[static_cast<std::size_t>(section)].name : QVariant();
}

Qt::ItemFlags Records::flags(const QModelIndex& index) const {
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.isValid() && changeable() && !table_.columns[static_cast<std::size_t>(index.column())].generated) {
        const Cell* const value = cell(index.row(), index.column());
        if (value != nullptr && !value->blob) {
            flags |= Qt::ItemIsEditable;
        }
    }
    return flags;
}

// Changes. An emptied field that may be missing is NULL, like one that was never filled in.

bool Records::setData(const QModelIndex& index, const QVariant& value, int role) {
    const QString text = value.toString();
    if (role != Qt::EditRole || !flags(index).testFlag(Qt::ItemIsEditable) ||
        text == fullText(index.row(), index.column())) {
        return false;
    }
    const Column& column = table_.columns[static_cast<std::size_t>(index.column())];
    const bool done = desk_.change("change of " + column.name, [&](Database& database) {
        Statement update(database, "UPDATE " + sqlName(table_.name) + " SET " + sqlName(column.name.toStdString()) +
                                       " = ?" + whereRecord());
        if (!(text.isEmpty() && column.nullable)) {
            update.bind(1, text);
        }
        bindRecord(update, 2, index.row());
        update.step();
    });
    if (done) {
        pages_.clear();
        used_.clear();
        Q_EMIT dataChanged(this->index(index.row(), 0), this->index(index.row(), columnCount() - 1));
        if (changed) {
            changed();
        }
    }
    return done;
}

bool Records::insert(const std::vector<std::optional<QString>>& values) {
    return desk_.change("new record", [&](Database& database) {
        std::string names;
        std::string marks;
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (values[i]) {
                names += (names.empty() ? "" : ", ") + sqlName(table_.columns[i].name.toStdString());
                marks += marks.empty() ? "?" : ", ?";
            }
        }
        Statement insertion(
            database, "INSERT INTO " + sqlName(table_.name) +
                          (names.empty() ? std::string(" DEFAULT VALUES") : " (" + names + ") VALUES (" + marks + ")"));
        int number = 0;
        for (const std::optional<QString>& value : values) {
            if (value) {
                insertion.bind(++number, *value);
            }
        }
        insertion.step();
    });
}

bool Records::remove(const std::vector<int>& rows) {
    return desk_.change(rows.size() == 1 ? QString("deletion") : QString("deletion of %1 records").arg(rows.size()),
                        [&](Database& database) {
                            for (const int row : rows) {
                                Statement deletion(database, "DELETE FROM " + sqlName(table_.name) + whereRecord());
                                bindRecord(deletion, 1, row);
                                deletion.step();
                            }
                        });
}

}  // namespace host::desktop
