#include "platform/linux/large_read.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>

namespace platform {
namespace {

struct Part {
    std::span<char> buffer;
    off_t position = 0;
    std::size_t count = 0;
    int error = 0;

    void read(int descriptor) {
        while (count < buffer.size()) {
            const ssize_t got =
                ::pread(descriptor, buffer.data() + count, buffer.size() - count, position + static_cast<off_t>(count));
            if (got > 0) {
                count += static_cast<std::size_t>(got);
            } else if (got == 0) {
                return;
            } else if (errno != EINTR) {
                error = errno;
                return;
            }
        }
    }
};

// A wish only: without large pages everything works as before.
void askForLargePages(std::span<char> buffer) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<std::uintptr_t>(buffer.data());
    const std::uintptr_t first = (start + page - 1) / page * page;
    const std::uintptr_t end = (start + buffer.size()) / page * page;
    if (first < end) {
        madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
    }
}

}  // namespace

int readLarge(int descriptor, std::span<char> buffer, std::size_t& count) {
    count = 0;
    const off_t position = lseek(descriptor, 0, SEEK_CUR);
    if (position < 0) {
        return errno;
    }
    askForLargePages(buffer);
    // The halves meet at a large page's border, so that no page is shared.
    static constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;
    const auto start = reinterpret_cast<std::uintptr_t>(buffer.data());
    const std::size_t half = (start + buffer.size() / 2) / kLargePage * kLargePage - start;
    Part front{.buffer = buffer.first(half), .position = position};
    Part back{.buffer = buffer.subspan(half), .position = position + static_cast<off_t>(half)};
    std::thread helper;
    try {
        if (std::thread::hardware_concurrency() > 1) {
            helper = std::thread([&back, descriptor] { back.read(descriptor); });
        }
    } catch (const std::system_error&) {
        // No thread to be had: one after the other, below.
    }
    front.read(descriptor);
    if (helper.joinable()) {
        helper.join();
    } else {
        back.read(descriptor);
    }
    count = front.count + (front.count == half ? back.count : 0);
    const int error = front.error != 0 || front.count < half ? front.error : back.error;
    if (lseek(descriptor, position + static_cast<off_t>(count), SEEK_SET) < 0 && error == 0) {
        return errno;
    }
    return error;
}

}  // namespace platform
