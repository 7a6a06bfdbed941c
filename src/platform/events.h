// Apple Event Manager: events of a class and an id, made of keyed parameters, sent to an application by its signature.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace platform {

struct EventParameter {
    OSType keyword = 0;
    OSType type = 0;  // "TEXT" for texts
    std::string data;
    mutable bool wasRead = false;  // for the missed-keyword attribute
};

struct Event {
    OSType eventClass = 0;
    OSType eventID = 0;
    OSType target = 0;  // signature of the receiver
    std::vector<EventParameter> parameters;
};

// An event handler. Called on the main thread between host calls; returns a status for the sender.
using EventHandler = Status (*)(const Event& event, Event& reply, long reference);

class Events {
  public:
    virtual ~Events() = default;

    // AEInstallEventHandler; replaces a handler for the same class and id. A null handler removes it.
    virtual Status installHandler(OSType eventClass, OSType eventID, EventHandler handler, long reference) = 0;
    // AESend without a reply. The receiver's handler runs later, also when that is the host itself.
    virtual Status send(const Event& event) = 0;

    // For the host, whose event loop it is: hands the events that have arrived to their handlers, in order of arrival.
    // To be called between calls into plug-ins; it does not wait.
    virtual void dispatch() {}
    // Readable when dispatch may have work; -1: nothing tells.
    virtual int descriptor() { return -1; }
};

}  // namespace platform
