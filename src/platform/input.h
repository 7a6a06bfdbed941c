// Event Manager, the part that looks at the user and the clock: ticks, time of day, mouse, waiting.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace platform {

class Input {
  public:
    virtual ~Input() = default;

    virtual std::uint32_t ticks() = 0;             // 1/60 second since start-up; wraps
    virtual std::int64_t seconds() = 0;            // time of day, seconds since 1970
    virtual std::uint32_t doubleClickTicks() = 0;  // the user's double-click time
    virtual Point mouse() = 0;                     // global coordinates
    virtual void wait(std::uint32_t ticks) = 0;    // lets that many ticks pass, asleep
};

}  // namespace platform
