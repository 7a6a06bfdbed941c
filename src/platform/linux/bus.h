// The message bus that connects applications, as the managers of events and processes use it. A build without the bus's
// library has none.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/events.h"
#include "platform/processes.h"

namespace platform {

// The largest event, parameters and what frames them; larger ones are neither sent nor taken.
inline constexpr std::size_t largestEvent = std::size_t{16} << 20;

// An event that came from the bus.
struct ArrivedEvent {
    Event event;
    std::string sender;                  // who, for the log
    std::function<void(Status)> answer;  // tells a sender that waits for it how the event fared; empty: none waits
};

struct BusPartner {
    OSType signature = 0;
    pid_t pid = 0;  // 0: not known
};

struct BusOptions {
    OSType signature = 0;  // the own one
    // Events in order of arrival. False: there is no room for it.
    std::function<bool(ArrivedEvent&&)> arrived;
    // Lines about what was dropped, and why. `reason` is the same text for what is alike.
    std::function<void(const char* reason, const std::string& detail)> log;
};

// Everything happens inside the calls, on the caller's thread; nothing waits for longer than is said.
class Bus {
  public:
    virtual ~Bus() = default;

    // Connects to the user's session bus, unless that is done. connectionInvalid when there is none, or when it is not
    // this user's. A connection that is lost is made again, at most once a second.
    virtual Status connect() = 0;
    // The same, and owns the name of the own signature from then on; when another application has it, as soon as that
    // one ends.
    virtual Status serve() = 0;

    // Takes in what has arrived, without waiting.
    virtual void pump() = 0;
    // Readable when there may be something to take in, or after setWaiting(true).
    virtual int descriptor() const = 0;
    virtual void setWaiting(bool waiting) = 0;

    // Sends an event to a partner. procNotFound: it does not run; connectionInvalid: no bus; bufferIsSmall: it does not
    // read, and as much as is allowed waits for it already (known after a second without progress); paramErr: the event
    // is too large or has codes with a NUL.
    virtual Status send(const Event& event) = 0;
    // Asks a partner to show itself, or to open the file of a URI.
    virtual Status activate(ProcessSerialNumber process) = 0;
    virtual Status open(OSType target, const std::string& uri) = 0;

    // The next partner that runs, in order of arrival; the one after hostProcess is the first. procNotFound at the end,
    // after having asked the bus whether that is still true.
    virtual Status nextPartner(ProcessSerialNumber& process) = 0;
    virtual Status partner(ProcessSerialNumber process, BusPartner& partner) = 0;
    // Asks the bus to start the service that declares a name.
    virtual Status startService(const std::string& name) = 0;
    // Waits until a partner arrives, at most until then.
    virtual void awaitArrival(std::chrono::steady_clock::time_point until) = 0;
};

// The serial number of the host's own process; partners have greater ones.
inline constexpr ProcessSerialNumber hostProcess = 1;

// Null: this build has no bus.
std::unique_ptr<Bus> makeBus(BusOptions options);

// What passes between applications, for people to watch.
struct SeenEvent {
    enum class Kind { event, activate, open, arrived, left, broken };
    Kind kind = Kind::event;
    std::string from;  // partner's signature as text, or the connection's name
    std::string to;
    Event event;
    std::string detail;  // of `open` the URI, of `broken` what is wrong
};

class BusMonitor {
  public:
    virtual ~BusMonitor() = default;
    virtual int descriptor() const = 0;
    // Hands over what passed. False: the bus is gone.
    virtual bool pump(const std::function<void(const SeenEvent&)>& seen) = 0;
};

// Null, with the reason, when it cannot watch.
std::unique_ptr<BusMonitor> makeBusMonitor(std::string& problem);

}  // namespace platform
