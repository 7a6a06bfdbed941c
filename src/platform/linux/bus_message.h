// Events as messages of the bus: `Event(s class, s id, a(say) parameters)`.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

#include "platform/events.h"

namespace platform {

struct UnrefMessage {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusMessage = std::unique_ptr<sd_bus_message, UnrefMessage>;

inline constexpr char eventSignature[] = "ssa(say)";
inline constexpr std::size_t mostParameters = 4096;

// Bytes that an event takes, roughly as the bus counts them.
std::size_t sizeOfEvent(const Event& event);

// Adds the arguments of an event. Negative: a system error number; -EINVAL for a code with a NUL.
int appendEvent(sd_bus_message* message, const Event& event);

// Reads the arguments. Returns what is wrong with them, or the empty text. The event's texts are of type "TEXT" and its
// target is left alone.
std::string readEvent(sd_bus_message* message, Event& event);

}  // namespace platform
