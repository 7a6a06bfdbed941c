// What comes to the own object: events, and what every application of the desktop understands.
#pragma once

#include <systemd/sd-bus.h>

#include <cerrno>
#include <string>

#include "platform/linux/bus.h"

namespace platform {

// Who sent a message, for the log.
std::string senderOf(sd_bus_message* message);

class BusReceiver {
  public:
    // The options must outlive it.
    explicit BusReceiver(const BusOptions& options) : options_(options) {}

    // Serves the object on a connection. Negative: a system error number.
    int attach(sd_bus* bus);

    void log(const char* reason, const std::string& detail) noexcept {
        try {
            options_.log(reason, detail);
        } catch (...) {  // a line that cannot be written is no reason to fail
        }
    }

    // Work inside a callback of the library: nothing is thrown through it.
    template <typename Work>
    int inside(sd_bus_message* message, Work work) noexcept {
        try {
            return work();
        } catch (...) {
            log("dropped for want of memory", senderOf(message));
            return -ENOMEM;
        }
    }

  private:
    int takeEvent(sd_bus_message* message, sd_bus_error* error);
    int deliver(sd_bus_message* message, ArrivedEvent&& arrived, sd_bus_error* error);

    static int onMessage(sd_bus_message* message, void* self, sd_bus_error* error);
    static int onActivate(sd_bus_message* message, void* self, sd_bus_error* error);
    static int onOpen(sd_bus_message* message, void* self, sd_bus_error* error);
    static int onVersion(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*);
    static int onEvent(sd_bus_message*, void*, sd_bus_error*);

    static const sd_bus_vtable kPartnerTable[];
    static const sd_bus_vtable kApplicationTable[];

    const BusOptions& options_;
};

}  // namespace platform
