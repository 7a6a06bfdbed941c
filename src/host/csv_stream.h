// CSV as a stream: rows are handed over as they end, so a file of any length takes the memory of one row.
//
// Cells are separated by commas and rows by LF, CR LF or CR; a cell in double quotes may hold all of these, and its own
// quotes doubled. Empty rows are left out, and so is a UTF-8 byte order mark. Blanks belong to the cell.
#pragma once

#include <csv.h>

#include <cstddef>
#include <exception>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// The largest cell. What is longer begins, as a rule, with a quote that nobody closed.
inline constexpr std::size_t kLongestCell = std::size_t{1} << 20;
// The largest row, all its cells together.
inline constexpr std::size_t kLongestRow = std::size_t{64} << 20;

struct CsvRow {
    std::span<const std::string_view> cells;  // valid until the callback returns
    std::string_view problem;                 // not empty: the row could not be read, and has no cells
    bool plain = false;                       // no cell has a comma, a quote or a line end
};

class CsvReader {
  public:
    using OnRow = std::function<void(const CsvRow&)>;

    explicit CsvReader(OnRow onRow);
    ~CsvReader();
    CsvReader(const CsvReader&) = delete;
    CsvReader& operator=(const CsvReader&) = delete;

    // The next bytes of the text. Exceptions of the callback pass through; the reader is of no more use then.
    void feed(std::string_view bytes);
    // The end of the text: a last row without line end is handed over.
    void finish();

  private:
    static void cellEnded(void* bytes, std::size_t size, void* self);
    static void rowEnded(int mark, void* self);
    void start();
    void parse(std::string_view bytes);
    void handOver(std::string_view problem);

    OnRow onRow_;
    csv_parser parser_ = {};
    std::string row_;  // the cells, one behind the other
    std::vector<std::size_t> ends_;
    std::vector<std::string_view> cells_;
    std::string head_;      // the first bytes, until they can be told from a mark
    bool started_ = false;  // past the mark
    bool tooLong_ = false;
    bool skipping_ = false;  // to the next line, after a cell that was too long
    std::exception_ptr failure_;
};

// Appends `cell` as CSV: in quotes only where it needs them. `alone`: the row has no other cell.
void appendCsvCell(std::string& out, std::string_view cell, bool alone = false);
// The same for a cell of a row that is plain and has others.
inline void appendPlainCell(std::string& out, std::string_view cell) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    if (cell.empty() || (!isBlank(cell.front()) && !isBlank(cell.back()))) {
        out += cell;
    } else {
        appendCsvCell(out, cell);
    }
}

}  // namespace host
