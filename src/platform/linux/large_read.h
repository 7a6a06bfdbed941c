// Reading many megabytes at once into fresh memory, where the page faults cost more than the reading.
#pragma once

#include <cstddef>
#include <span>

namespace platform {

// From this size on readLarge pays.
inline constexpr std::size_t kLargeRead = std::size_t{8} << 20;

// Reads from the descriptor's position until the buffer is full or the file ends, and moves the position behind what
// was read. Asks for large pages, and reads the two halves at the same time where there is a second processor. Returns
// 0 or an errno; `count` tells what was read either way.
int readLarge(int descriptor, std::span<char> buffer, std::size_t& count);

}  // namespace platform
