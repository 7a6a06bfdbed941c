// The machine's tick counter: sixtieths of a second since it was started, by its own clock.
#pragma once

#include <cstdint>
#include <ctime>

namespace platform {

inline constexpr std::uint64_t ticksPerSecond = 60;

// The clock that the kernel moves on by itself, every few milliseconds: a script's every step may ask.
inline std::uint32_t tickCount() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const auto part = static_cast<std::uint64_t>(now.tv_nsec) * ticksPerSecond / 1'000'000'000;
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * ticksPerSecond + part);
}

// Returns when the counter has moved by so many ticks.
inline void waitTicks(std::uint32_t ticks) {
    const std::uint32_t start = tickCount();
    const std::uint64_t whole = ticks * std::uint64_t{1'000'000'000} / ticksPerSecond;
    timespec length{.tv_sec = static_cast<std::time_t>(whole / 1'000'000'000),
                    .tv_nsec = static_cast<long>(whole % 1'000'000'000)};
    while (tickCount() - start < ticks) {
        nanosleep(&length, nullptr);
        length = {.tv_sec = 0, .tv_nsec = 1'000'000};  // the counter lags behind by a few of these
    }
}

}  // namespace platform
