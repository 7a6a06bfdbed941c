#include "platform/linux/bus_connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "platform/linux/bus_message.h"

namespace platform {

static bool isOwnUsers(sd_bus* bus) {
    ucred peer{};
    socklen_t size = sizeof peer;
    const int socket = sd_bus_get_fd(bus);
    return socket >= 0 && getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

static int awaitReady(sd_bus* bus) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + busPatience;
    for (;;) {
        int result = sd_bus_is_ready(bus);
        if (result != 0) {
            return result;
        }
        result = sd_bus_process(bus, nullptr);
        if (result < 0) {
            return result;
        }
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now()).count();
        if (left <= 0) {
            return -ETIMEDOUT;
        }
        if (result == 0) {
            sd_bus_wait(bus, static_cast<std::uint64_t>(left));
        }
    }
}

BusConnection openUserBus(bool monitor, std::string& problem) {
    sd_bus* opened = nullptr;
    int result = sd_bus_open_user_with_description(&opened, "quil");
    BusConnection bus(opened);
    if (result >= 0 && !isOwnUsers(bus.get())) {
        problem = "another user runs it, or it is not on this computer";
        return nullptr;
    }
    if (result >= 0) {
        result = awaitReady(bus.get());
    }
    if (result < 0) {
        problem = result == -ENOMEDIUM ? "neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR tells where it is"
                                       : std::strerror(-result);
        return nullptr;
    }
    if (monitor) {
        sd_bus_set_method_call_timeout(bus.get(), static_cast<std::uint64_t>(busPatience.count()));
    }
    return bus;
}

int callBus(sd_bus* bus, const char* member, sd_bus_message** reply, const char* types, ...) {
    sd_bus_message* made = nullptr;
    int result = sd_bus_message_new_method_call(bus, &made, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                "org.freedesktop.DBus", member);
    const BusMessage call(made);
    if (result >= 0 && types != nullptr) {
        va_list arguments;
        va_start(arguments, types);
        result = sd_bus_message_appendv(call.get(), types, arguments);
        va_end(arguments);
    }
    if (result < 0) {
        return result;
    }
    return sd_bus_call(bus, call.get(), static_cast<std::uint64_t>(busPatience.count()), nullptr, reply);
}

}  // namespace platform
