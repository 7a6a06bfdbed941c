// The one seam through which the plug-in's own buffers are allocated, so that a test can make memory run out.
#pragma once

#include <cstddef>

namespace quil {

struct Allocator {
    void* (*allocateZeroed)(std::size_t bytes);  // null when memory cannot be had
    void (*release)(void* block);                // null is allowed
};

// The allocator in use; at load the process heap's.
const Allocator& allocator();
// Puts another in place; null: the process heap's again.
void setAllocator(const Allocator* replacement);

}  // namespace quil
