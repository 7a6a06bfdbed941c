// CSV of any bytes, in pieces of any size: the rows do not depend on the pieces, what is written reads back the same,
// and every row of a table gets an answer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/batch_rows.h"
#include "host/csv_stream.h"
#include "host/plugin.h"

namespace {

using namespace host;
using Rows = std::vector<std::vector<std::string>>;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

Rows rowsOf(std::string_view text, std::size_t piece) {
    Rows rows;
    CsvReader reader([&rows](const CsvRow& row) {
        rows.emplace_back(row.cells.begin(), row.cells.end());
        if (!row.problem.empty()) {
            rows.back() = {"problem", std::string(row.problem)};
        }
    });
    while (!text.empty()) {
        reader.feed(text.substr(0, piece));
        text.remove_prefix(std::min(piece, text.size()));
    }
    reader.finish();
    return rows;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Rows rows;
    try {
        rows = rowsOf(text, text.size() + 1);
        require(rowsOf(text, data[0] + std::size_t{1}) == rows);
    } catch (const HostError&) {
        return 0;  // UTF-16
    }
    std::string written;
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            written += i == 0 ? "" : ",";
            appendCsvCell(written, row[i], row.size() == 1);
        }
        written += '\n';
    }
    // A mark at the start of the first cell would be taken for the file's.
    if (!written.starts_with("\xEF\xBB\xBF") && !written.starts_with("\xFF\xFE") && !written.starts_with("\xFE\xFF")) {
        require(rowsOf(written, 7) == rows);
    }
    const Calculator calculator{[](std::string_view, std::string_view parameter) {
                                    require(parameter.size() <= kLongestParameter);
                                    return std::string(parameter.size() % 3 == 0 ? "ERROR 5 TRUE" : "1.5");
                                },
                                [] { return std::string("no"); }};
    std::optional<BatchRows> batch;
    for (const auto& row : rows) {
        const std::vector<std::string_view> cells(row.begin(), row.end());
        if (!batch) {
            try {
                batch.emplace(cells, BatchValues{});
            } catch (const HostError&) {
                return 0;
            }
            continue;
        }
        BatchAnswer answer;
        batch->answer(cells, calculator, answer);
        require((answer.code == 0) == !answer.distance.empty());
        if (cells.size() == batch->columns()) {
            std::string problem;
            require(batch->scenario(cells, problem).has_value() || answer.code == kBadRow);
            batch->position(cells, problem);
        }
    }
    return 0;
}
