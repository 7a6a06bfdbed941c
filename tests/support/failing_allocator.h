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
    bool failed() const;             // whether one has failed since failCall
    std::size_t liveBlocks() const;  // allocated while this stands and not released
    std::size_t liveBytes() const;
};

}  // namespace support
