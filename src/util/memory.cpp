#include "util/memory.h"

#include <cstdlib>

namespace quil {

static void* heapAllocateZeroed(std::size_t bytes) { return std::calloc(bytes, 1); }
static void heapRelease(void* block) { std::free(block); }

static constexpr Allocator kHeap = {heapAllocateZeroed, heapRelease};
static Allocator sAllocator = kHeap;

const Allocator& allocator() { return sAllocator; }

void setAllocator(const Allocator* replacement) { sAllocator = replacement == nullptr ? kHeap : *replacement; }

}  // namespace quil
