// Clock of the machine on Linux.
#include <cerrno>
#include <ctime>

#include "platform/linux/linux_managers.h"

namespace platform {

static constexpr std::uint64_t ticksPerSecond = 60;
static constexpr std::uint64_t nanoseconds = 1'000'000'000;

namespace {

class LinuxInput : public Input {
  public:
    std::uint32_t ticks() override {
        const timespec now = monotonic();
        const auto part = static_cast<std::uint64_t>(now.tv_nsec) * ticksPerSecond / nanoseconds;
        return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * ticksPerSecond + part);
    }

    std::int64_t seconds() override { return std::time(nullptr); }

    std::uint32_t doubleClickTicks() override { return 30; }

    Point mouse() override { return {}; }

    // Rounded up, so that the tick counter has moved by that many when it returns.
    void wait(std::uint32_t ticks) override {
        timespec until = monotonic();
        const std::uint64_t length = (ticks * nanoseconds + ticksPerSecond - 1) / ticksPerSecond;
        const std::uint64_t end = static_cast<std::uint64_t>(until.tv_nsec) + length;
        until.tv_sec += static_cast<std::time_t>(end / nanoseconds);
        until.tv_nsec = static_cast<long>(end % nanoseconds);
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
        }
    }

  private:
    static timespec monotonic() {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return now;
    }
};

}  // namespace

std::unique_ptr<Input> makeLinuxInput() {
    return std::make_unique<LinuxInput>();
}

}  // namespace platform
