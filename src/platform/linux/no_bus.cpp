// For a build without the library of the message bus.
#include "platform/linux/bus.h"

namespace platform {

std::unique_ptr<Bus> makeBus(BusOptions) {
    return nullptr;
}

std::unique_ptr<BusMonitor> makeBusMonitor(std::string& problem) {
    problem = "this program was built without the message bus (package libsystemd-dev)";
    return nullptr;
}

}  // namespace platform
