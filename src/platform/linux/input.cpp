// Clock of the machine on Linux.
#include <ctime>

#include "platform/linux/linux_managers.h"
#include "platform/tick_clock.h"

namespace platform {

namespace {

class LinuxInput : public Input {
  public:
    std::uint32_t ticks() override { return tickCount(); }
    std::int64_t seconds() override { return std::time(nullptr); }
    std::uint32_t doubleClickTicks() override { return 30; }
    Point mouse() override { return {}; }
    void wait(std::uint32_t ticks) override { waitTicks(ticks); }
};

}  // namespace

std::unique_ptr<Input> makeLinuxInput() {
    return std::make_unique<LinuxInput>();
}

}  // namespace platform
