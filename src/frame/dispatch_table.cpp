#include "frame/dispatch_table.h"

#include <algorithm>
#include <array>

namespace quil {

namespace {

constexpr std::size_t kMaxRows = 124;

// The rows in dispatch order, and the same rows sorted by name for lookup.
struct Table {
    std::array<const Row*, kMaxRows> ordered{};
    std::array<const Row*, kMaxRows> sorted{};
    std::size_t count = 0;

    Table() {
        for (const auto rows : {VSTARows()}) {
            for (const Row& row : rows) {
                ordered.at(count) = &row;
                sorted.at(count++) = &row;
            }
        }
        std::sort(sorted.begin(), sorted.begin() + count, nameLess);
    }
    static bool nameLess(const Row* a, const Row* b) { return std::string_view(a->name) < b->name; }
};

const Table& table() {
    static const Table sTable;
    return sTable;
}

}  // namespace

std::span<const Row* const> DispatchTable() {
    return {table().ordered.data(), table().count};
}

const Row* FindRow(std::string_view name) {
    const auto end = table().sorted.begin() + table().count;
    const auto found = std::lower_bound(table().sorted.begin(), end, name,
                                        [](const Row* row, std::string_view text) { return row->name < text; });
    return found != end && (*found)->name == name ? *found : nullptr;
}

}  // namespace quil
