#include "util/memory.h"

#include <cstdlib>
#include <cstring>

namespace quil {

// Small blocks are cleared by hand: the C library's calloc passes its per-thread cache by and is several times slower
// for them. Large ones come zeroed from the system, untouched until they are used.
static constexpr std::size_t kClearedByHand = 1024;

// Out of line, for beside malloc the compiler would make one calloc of the two.
[[gnu::noinline]] static void clear(void* block, std::size_t bytes) {
    std::memset(block, 0, bytes);
}

static void* heapAllocateZeroed(std::size_t bytes) {
    if (bytes > kClearedByHand) {
        return std::calloc(bytes, 1);
    }
    void* block = std::malloc(bytes);
    if (block != nullptr) {
        clear(block, bytes);
    }
    return block;
}

static void heapRelease(void* block) {
    std::free(block);
}

// Large blocks move without being copied.
static void* heapRegrow(void* block, std::size_t kept, std::size_t bytes) {
    auto* grown = static_cast<char*>(std::realloc(block, bytes));
    if (grown != nullptr) {
        clear(grown + kept, bytes - kept);
    }
    return grown;
}

static constexpr Allocator kHeap = {heapAllocateZeroed, heapRelease, heapRegrow};
static Allocator sAllocator = kHeap;

const Allocator& allocator() {
    return sAllocator;
}

void setAllocator(const Allocator* replacement) {
    sAllocator = replacement == nullptr ? kHeap : *replacement;
}

void* regrowBlock(void* block, std::size_t kept, std::size_t bytes) {
    if (sAllocator.regrow != nullptr) {
        return sAllocator.regrow(block, kept, bytes);
    }
    void* grown = sAllocator.allocateZeroed(bytes);
    if (grown != nullptr) {
        std::memcpy(grown, block, kept);
        sAllocator.release(block);
    }
    return grown;
}

bool usesHeap() {
    return sAllocator.allocateZeroed == heapAllocateZeroed;
}

}  // namespace quil
