#include "support/failing_allocator.h"

#include <cstdlib>
#include <stdexcept>
#include <unordered_map>

#include "util/memory.h"

namespace support {
namespace {

// The seam takes plain functions, so the state is the file's.
struct State {
    bool standing = false;
    long failAt = 0;
    bool failed = false;
    long calls = 0;
    std::unordered_map<void*, std::size_t> live;
};
State sState;

void* allocateZeroed(std::size_t bytes) {
    ++sState.calls;
    if (sState.calls == sState.failAt) {
        sState.failed = true;
        return nullptr;
    }
    void* block = std::calloc(bytes, 1);
    if (block != nullptr) {
        sState.live.emplace(block, bytes);
    }
    return block;
}

// Blocks from before come from the process heap too.
void release(void* block) {
    sState.live.erase(block);
    std::free(block);
}

constexpr quil::Allocator kAllocator = {allocateZeroed, release};

}  // namespace

FailingAllocator::FailingAllocator() {
    if (sState.standing) {
        throw std::logic_error("a failing allocator already stands");
    }
    sState = State();
    sState.standing = true;
    quil::setAllocator(&kAllocator);
}

FailingAllocator::~FailingAllocator() {
    quil::setAllocator(nullptr);
    sState.standing = false;
}

void FailingAllocator::failCall(long n) {
    sState.failAt = n;
    sState.failed = false;
    sState.calls = 0;
}
bool FailingAllocator::failed() const {
    return sState.failed;
}
std::size_t FailingAllocator::liveBlocks() const {
    return sState.live.size();
}

std::size_t FailingAllocator::liveBytes() const {
    std::size_t bytes = 0;
    for (const auto& [block, size] : sState.live) {
        bytes += size;
    }
    return bytes;
}

}  // namespace support
