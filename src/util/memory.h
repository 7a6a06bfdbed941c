// The one seam through which the plug-in's own buffers are allocated, so that a test can make memory run out.
#pragma once

#include <cstddef>

namespace quil {

struct Allocator {
    void* (*allocateZeroed)(std::size_t bytes);  // null when memory cannot be had
    void (*release)(void* block);                // null is allowed
    // A block of `bytes` that begins with the first `kept` of the old one, which goes, and is zeros behind them. Null,
    // with the old one as it was, when memory cannot be had. May be left out.
    void* (*regrow)(void* block, std::size_t kept, std::size_t bytes) = nullptr;
};

// The allocator in use; at load the process heap's.
const Allocator& allocator();
// Puts another in place; null: the process heap's again.
void setAllocator(const Allocator* replacement);
// Whether it is the process heap's.
bool usesHeap();
// Allocator::regrow of the one in use.
void* regrowBlock(void* block, std::size_t kept, std::size_t bytes);

}  // namespace quil
