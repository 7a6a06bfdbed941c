// Watching what passes between partners.
#include <cerrno>
#include <cstring>
#include <map>
#include <string_view>

#include "platform/linux/bus.h"
#include "platform/linux/bus_connection.h"
#include "platform/linux/bus_message.h"
#include "platform/linux/bus_names.h"

namespace platform {

namespace {

class SessionMonitor : public BusMonitor {
  public:
    explicit SessionMonitor(BusConnection bus) : bus_(std::move(bus)) {}

    // The owners of the names now; once it watches, a connection can ask for nothing.
    int start() {
        sd_bus_message* answer = nullptr;
        int result = callBus(bus_.get(), "ListNames", &answer, nullptr);
        const BusMessage names(answer);
        if (result >= 0) {
            result = sd_bus_message_enter_container(names.get(), 'a', "s");
        }
        const char* name = nullptr;
        while (result >= 0 && (result = sd_bus_message_read_basic(names.get(), 's', &name)) > 0) {
            OSType signature = 0;
            sd_bus_message* owner = nullptr;
            if (signatureOfName(name, signature) && callBus(bus_.get(), "GetNameOwner", &owner, "s", name) >= 0) {
                const char* connection = nullptr;
                sd_bus_message_read(owner, "s", &connection);
                owners_[connection == nullptr ? "" : connection] = textOfCode(signature);
            }
            sd_bus_message_unref(owner);
        }
        if (result < 0) {
            return result;
        }
        sd_bus_message* made = nullptr;
        result = sd_bus_message_new_method_call(bus_.get(), &made, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                "org.freedesktop.DBus.Monitoring", "BecomeMonitor");
        const BusMessage call(made);
        if (result >= 0) {
            result = sd_bus_message_append(
                call.get(), "asu", 3, "type='method_call',interface='org.quil.Partner1'",
                "type='method_call',interface='org.freedesktop.Application',path_namespace='/org/quil/Partner'",
                "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
                "arg0namespace='org.quil.Partner'",
                0);
        }
        return result < 0 ? result : sd_bus_call(bus_.get(), call.get(), 0, nullptr, nullptr);
    }

    int descriptor() const override { return sd_bus_get_fd(bus_.get()); }

    bool pump(const std::function<void(const SeenEvent&)>& seen) override {
        for (;;) {
            sd_bus_message* taken = nullptr;
            const int result = sd_bus_process(bus_.get(), &taken);
            const BusMessage message(taken);
            if (result < 0 || sd_bus_is_open(bus_.get()) <= 0) {
                return false;
            }
            if (result == 0) {
                return true;
            }
            if (message != nullptr) {
                tell(message.get(), seen);
            }
        }
    }

  private:
    std::string nameOf(const char* connection) const {
        const std::string_view name = connection == nullptr ? "?" : connection;
        if (const auto found = owners_.find(name); found != owners_.end()) {
            return found->second;
        }
        OSType signature = 0;
        return signatureOfName(name, signature) ? textOfCode(signature) : std::string(name);
    }

    void tell(sd_bus_message* message, const std::function<void(const SeenEvent&)>& seen) {
        SeenEvent event;
        if (sd_bus_message_is_signal(message, "org.freedesktop.DBus", "NameOwnerChanged") > 0) {
            tellOwner(message, seen);
            return;
        }
        event.from = nameOf(sd_bus_message_get_sender(message));
        event.to = nameOf(sd_bus_message_get_destination(message));
        if (sd_bus_message_is_method_call(message, partnerInterface, "Event") > 0) {
            event.detail = readEvent(message, event.event);
            event.kind = event.detail.empty() ? SeenEvent::Kind::event : SeenEvent::Kind::broken;
        } else if (sd_bus_message_is_method_call(message, applicationInterface, "Activate") > 0) {
            event.kind = SeenEvent::Kind::activate;
        } else if (sd_bus_message_is_method_call(message, applicationInterface, "Open") > 0) {
            event.kind = SeenEvent::Kind::open;
            const char* uri = nullptr;
            if (sd_bus_message_enter_container(message, 'a', "s") > 0) {
                while (sd_bus_message_read_basic(message, 's', &uri) > 0) {
                    event.detail += (event.detail.empty() ? "" : " ") + std::string(uri);
                }
            }
        } else {
            return;
        }
        seen(event);
    }

    void tellOwner(sd_bus_message* message, const std::function<void(const SeenEvent&)>& seen) {
        const char* name = nullptr;
        const char* before = nullptr;
        const char* after = nullptr;
        OSType signature = 0;
        if (sd_bus_message_read(message, "sss", &name, &before, &after) < 0 || !signatureOfName(name, signature)) {
            return;
        }
        for (const auto& [connection, kind] :
             {std::pair{before, SeenEvent::Kind::left}, std::pair{after, SeenEvent::Kind::arrived}}) {
            if (*connection == 0) {
                continue;
            }
            SeenEvent event;
            event.kind = kind;
            event.from = textOfCode(signature);
            event.detail = connection;
            if (kind == SeenEvent::Kind::left) {
                owners_.erase(connection);
            } else {
                owners_[connection] = event.from;
            }
            seen(event);
        }
    }

    BusConnection bus_;
    std::map<std::string, std::string, std::less<>> owners_;  // signature as text, by connection
};

}  // namespace

std::unique_ptr<BusMonitor> makeBusMonitor(std::string& problem) {
    BusConnection bus = openUserBus(true, problem);
    if (bus == nullptr) {
        problem = "there is no message bus: " + problem;
        return nullptr;
    }
    auto monitor = std::make_unique<SessionMonitor>(std::move(bus));
    if (const int result = monitor->start(); result < 0) {
        problem = std::string("the message bus does not let this program watch: ") + std::strerror(-result);
        return nullptr;
    }
    return monitor;
}

}  // namespace platform
