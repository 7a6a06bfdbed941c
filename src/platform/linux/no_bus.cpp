// For a build without the library of the message bus.
#include "platform/linux/bus.h"

namespace platform {

// NOLINTNEXTLINE(performance-unnecessary-value-param): the build with a bus keeps them
std::unique_ptr<Bus> makeBus(BusOptions) {
    return nullptr;
}

std::unique_ptr<BusMonitor> makeBusMonitor(std::string& problem) {
    problem = "this program was built without the message bus (package libsystemd-dev)";
    return nullptr;
}

}  // namespace platform
