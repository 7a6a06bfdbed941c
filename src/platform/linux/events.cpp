// Events of the machine on Linux. What arrives, from other applications by the message bus and from the host itself,
// waits in one queue until the host hands it out.
#include <chrono>
#include <cstdio>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "platform/linux/bus.h"
#include "platform/linux/bus_names.h"
#include "platform/linux/errors.h"
#include "platform/linux/linux_managers.h"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostWaiting = 20000;                       // events
constexpr std::size_t kMostWaitingBytes = std::size_t{64} << 20;  // of all of them; one may be as large as any
constexpr std::size_t kEventBytes = 256;                          // what an event takes beside its data
constexpr auto kAtOnce = std::chrono::milliseconds(100);          // the host has other things to do

std::size_t bytesOf(const Event& event) {
    std::size_t bytes = kEventBytes;
    for (const EventParameter& parameter : event.parameters) {
        bytes += sizeof parameter + parameter.data.size();
    }
    return bytes;
}

// Lines for the log: of those that are alike one a second, with the number of those between.
class Log {
  public:
    explicit Log(std::function<void(const std::string&)> write) : write_(std::move(write)) {}

    void note(const char* reason, const std::string& detail) {
        Line& line = lines_[reason];
        const auto now = Clock::now();
        if (line.told && now - *line.told < std::chrono::seconds(1)) {
            ++line.untold;
            return;
        }
        tell(reason, line, now);
        write(detail.empty() ? reason : std::string(reason) + ": " + detail);
    }

    void flush(bool all) {
        const auto now = Clock::now();
        for (auto& [reason, line] : lines_) {
            if (line.untold > 0 && (all || now - *line.told >= std::chrono::seconds(1))) {
                tell(reason, line, now);
            }
        }
    }

  private:
    struct Line {
        std::optional<Clock::time_point> told;
        std::uint64_t untold = 0;
    };

    void tell(const std::string& reason, Line& line, Clock::time_point now) {
        if (line.untold > 0) {
            write(reason + ": " + std::to_string(line.untold) + " more times");
        }
        line = {now, 0};
    }

    void write(const std::string& text) {
        if (write_) {
            write_(text);
        } else {
            std::fprintf(stderr, "quil: %s\n", text.c_str());
        }
    }

    std::function<void(const std::string&)> write_;
    std::map<std::string, Line> lines_;  // by reason; there are few
};

class LinuxEvents : public Events {
  public:
    LinuxEvents(Files& files, const LinuxOptions& options, std::unique_ptr<Bus>& bus)
        : files_(files), options_(options), log_(options.log) {
        bus = makeBus({.signature = options.signature,
                       .arrived = [this](ArrivedEvent&& event) { return arrived(std::move(event)); },
                       .log = [this](const char* reason, const std::string& detail) { log_.note(reason, detail); }});
        bus_ = bus.get();
    }

    ~LinuxEvents() override {
        try {
            log_.flush(true);
        } catch (...) {  // the log ends here in any case
        }
    }

    LinuxEvents(const LinuxEvents&) = delete;
    LinuxEvents& operator=(const LinuxEvents&) = delete;

    // Events of the class misc come from the host itself alone; for all others the host has to be reachable. Where it
    // is not, the handler is installed all the same, for when it will be.
    Status installHandler(OSType eventClass, OSType eventID, EventHandler handler, long reference) override {
        return guarded([&] {
            if (handler == nullptr) {
                handlers_.erase({eventClass, eventID});
                return noErr;
            }
            handlers_.insert_or_assign({eventClass, eventID}, Installed{handler, reference});
            return eventClass == "misc"_4 ? noErr : bus_ == nullptr ? connectionInvalid : bus_->serve();
        });
    }

    Status send(const Event& event) override {
        return guarded([&]() -> Status {
            if (bytesOf(event) > largestEvent) {
                return paramErr;
            }
            if (event.target == options_.signature) {
                if (bus_ != nullptr) {
                    bus_->pump();  // what came before
                }
                return arrived({event, "the host itself", {}}) ? noErr : bufferIsSmall;
            }
            if (bus_ == nullptr) {
                return connectionInvalid;
            }
            if (event.eventClass == "aevt"_4 && event.eventID == "odoc"_4) {
                return sendOpen(event);
            }
            return bus_->send(event);
        });
    }

    void dispatch() override {
        static_cast<void>(guarded([&] {
            if (std::exchange(dispatching_, true)) {
                return noErr;
            }
            const struct Done {
                bool& flag;
                ~Done() { flag = false; }
            } done{dispatching_};
            if (bus_ != nullptr) {
                bus_->pump();
            }
            const auto end = Clock::now() + kAtOnce;
            // Those that arrive meanwhile come in the next round.
            for (std::size_t count = waiting_.size(); count > 0 && Clock::now() < end; --count) {
                ArrivedEvent event = std::move(waiting_.front());
                waiting_.pop_front();
                bytes_ -= bytesOf(event.event);
                const Status status = guarded([&] { return handle(event.event); });
                if (event.answer) {
                    event.answer(status);
                }
                if (status != noErr) {
                    log_.note("an event was not handled",
                              "from " + event.sender + ", status " + std::to_string(status));
                }
            }
            log_.flush(false);
            if (bus_ != nullptr) {
                bus_->setWaiting(!waiting_.empty());
            }
            return noErr;
        }));
    }

    int descriptor() override { return bus_ == nullptr ? -1 : bus_->descriptor(); }

  private:
    struct Installed {
        EventHandler handler = nullptr;
        long reference = 0;
    };

    bool arrived(ArrivedEvent&& event) {
        const std::size_t bytes = bytesOf(event.event);
        if (waiting_.size() == kMostWaiting || (bytes_ > 0 && bytes_ + bytes > kMostWaitingBytes)) {
            return false;
        }
        waiting_.push_back(std::move(event));
        bytes_ += bytes;
        if (bus_ != nullptr && waiting_.size() == 1 && !dispatching_) {
            bus_->setWaiting(true);
        }
        return true;
    }

    Status handle(Event& event) {
        if (event.eventClass == "aevt"_4 && event.eventID == "odoc"_4 && !specify(event)) {
            return fnfErr;
        }
        const auto found = handlers_.find({event.eventClass, event.eventID});
        if (found == handlers_.end()) {
            // A host in a terminal is as much in front as it can be.
            return event.eventClass == "misc"_4 && event.eventID == "actv"_4 ? noErr : errAEEventNotHandled;
        }
        const Installed installed = found->second;  // the handler may remove itself
        Event reply;
        return installed.handler(event, reply, installed.reference);
    }

    // Files come by their paths.
    bool specify(Event& event) {
        for (EventParameter& parameter : event.parameters) {
            if (parameter.type != "furl"_4) {
                continue;
            }
            const std::string classic = classicPathOf(options_, parameter.data);
            FSSpec spec;
            if (classic.empty() || files_.makeSpec(0, 0, classic, spec) != noErr) {
                return false;
            }
            parameter.type = "fss "_4;
            parameter.data.assign(reinterpret_cast<const char*>(&spec), sizeof spec);
        }
        return true;
    }

    Status sendOpen(const Event& event) {
        FSSpec spec;
        if (event.parameters.size() != 1 || event.parameters.front().type != "fss "_4 ||
            event.parameters.front().data.size() != sizeof spec) {
            return paramErr;
        }
        event.parameters.front().data.copy(reinterpret_cast<char*>(&spec), sizeof spec);
        std::string path;
        const Status status = files_.posixPath(spec, path);
        return status != noErr ? status : bus_->open(event.target, uriOfPath(path));
    }

    Files& files_;
    LinuxOptions options_;
    Log log_;
    Bus* bus_ = nullptr;
    std::map<std::pair<OSType, OSType>, Installed> handlers_;  // by class and id
    std::deque<ArrivedEvent> waiting_;
    std::size_t bytes_ = 0;
    bool dispatching_ = false;
};

}  // namespace

std::unique_ptr<Events> makeLinuxEvents(Files& files, const LinuxOptions& options, std::unique_ptr<Bus>& bus) {
    return std::make_unique<LinuxEvents>(files, options, bus);
}

}  // namespace platform
