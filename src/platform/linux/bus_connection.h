// Connections to the user's session bus.
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <memory>
#include <string>

namespace platform {

struct CloseBus {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using BusConnection = std::unique_ptr<sd_bus, CloseBus>;
struct UnrefSlot {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using BusSlot = std::unique_ptr<sd_bus_slot, UnrefSlot>;

// How long a call to the bus itself may take before the bus counts as gone.
inline constexpr std::chrono::microseconds busPatience = std::chrono::seconds(5);

// Connects and says hello. Null, with what is wrong, when there is no bus, when it does not answer, or when another
// user runs it. `monitor`: for watching.
BusConnection openUserBus(bool monitor, std::string& problem);

// A method of the bus itself, answered at most busPatience later. `types` and what follows as sd_bus_message_append
// takes them. Negative: a system error number.
int callBus(sd_bus* bus, const char* member, sd_bus_message** reply, const char* types, ...);

}  // namespace platform
