// An allocator that makes memory run out on demand. While one stands, the plug-in's buffers come from it.
//
//     FailingAllocator memory;
//     memory.failCall(3);      // the third allocation from here fails, once
//     ...
//     EXPECT_EQ(memory.liveBlocks(), 0U);
#pragma once

#include <cstddef>

namespace support {

class FailingAllocator {
  public:
    FailingAllocator();   // at most one at a time
    ~FailingAllocator();  // puts the process heap back; blocks that still live stay valid

    FailingAllocator(const FailingAllocator&) = delete;
    FailingAllocator& operator=(const FailingAllocator&) = delete;

    void failCall(long n);           // the nth allocation from here fails, n from 1; 0: none
    void failFrom(long n);           // the nth and all that follow
    bool failed() const;             // whether one has failed since failCall or failFrom
    long calls() const;              // allocations asked for since failCall, failFrom or the start
    std::size_t liveBlocks() const;  // allocated while this stands and not released
    std::size_t liveBytes() const;
    std::size_t largestBlock() const;  // the most bytes ever asked for at once
    // Frees what still lives, after a fault in whose course a leak is the documented outcome.
    void releaseLiveBlocks();
};

}  // namespace support
