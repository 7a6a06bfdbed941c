// Events of the machine on Linux: those that the host sends to itself. Other applications become reachable when the
// message bus connects them.
#include <map>
#include <utility>

#include "platform/linux/errors.h"
#include "platform/linux/linux_managers.h"

namespace platform {

namespace {

class LinuxEvents : public Events {
  public:
    explicit LinuxEvents(OSType signature) : signature_(signature) {}

    Status installHandler(OSType eventClass, OSType eventID, EventHandler handler, long reference) override {
        return guarded([&] {
            if (handler == nullptr) {
                handlers_.erase({eventClass, eventID});
            } else {
                handlers_.insert_or_assign({eventClass, eventID}, Installed{handler, reference});
            }
            return noErr;
        });
    }

    Status send(const Event& event) override {
        return guarded([&]() -> Status {
            if (event.target != signature_) {
                return procNotFound;
            }
            const auto found = handlers_.find({event.eventClass, event.eventID});
            if (found == handlers_.end()) {
                return errAEEventNotHandled;
            }
            const Installed installed = found->second;  // the handler may remove itself
            Event reply;
            return installed.handler(event, reply, installed.reference);
        });
    }

  private:
    struct Installed {
        EventHandler handler = nullptr;
        long reference = 0;
    };

    OSType signature_;
    std::map<std::pair<OSType, OSType>, Installed> handlers_;  // by class and id
};

}  // namespace

std::unique_ptr<Events> makeLinuxEvents(OSType signature) {
    return std::make_unique<LinuxEvents>(signature);
}

}  // namespace platform
