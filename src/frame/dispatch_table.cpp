#include "frame/dispatch_table.h"

#include <array>

namespace quil {

namespace {

constexpr std::size_t kMaxRows = 124;

// The rows in dispatch order, and a hash table over their names: open addressing, at most a quarter full.
struct Table {
    static constexpr std::size_t kSlots = 512;
    std::array<const Row*, kMaxRows> ordered{};
    std::array<const Row*, kSlots> slots{};
    std::size_t count = 0;

    Table() {
        for (const auto rows : {GLN1Rows(), GLN1PartnerRows(), VSTARows(), MENURows(), HBTRows()}) {
            for (const Row& row : rows) {
                ordered.at(count++) = &row;
                std::size_t slot = firstSlot(row.name);
                while (slots.at(slot) != nullptr) {
                    slot = (slot + 1) % kSlots;
                }
                slots.at(slot) = &row;
            }
        }
    }
    const Row* find(std::string_view name) const {
        std::size_t slot = firstSlot(name);
        while (slots[slot] != nullptr && slots[slot]->name != name) {
            slot = (slot + 1) % kSlots;
        }
        return slots[slot];
    }
    // FNV-1a.
    static std::size_t firstSlot(std::string_view name) {
        std::uint32_t hash = 2166136261U;
        for (const char c : name) {
            hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
        }
        return (hash ^ hash >> 16) % kSlots;
    }
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
    return table().find(name);
}

}  // namespace quil
