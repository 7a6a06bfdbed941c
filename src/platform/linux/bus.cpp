// The session bus through sd-bus: the own name and object, the table of partners, and what waits for each of them.
#include "platform/linux/bus.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "platform/linux/bus_connection.h"
#include "platform/linux/bus_message.h"
#include "platform/linux/bus_names.h"
#include "platform/linux/bus_receiver.h"
#include "platform/linux/errors.h"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kBetweenAttempts = 1s;          // to connect
constexpr auto kPatience = 1s;                 // with a partner that does not read, and with the bus at the end
constexpr int kMostAtOnce = 4096;              // messages of one pump
constexpr std::uint64_t kMostMessages = 1024;  // that a partner has not taken
constexpr std::uint64_t kMostBytes = 2 * std::uint64_t{largestEvent};
constexpr std::uint64_t kAskAfterMessages = 64;  // whether they were taken
constexpr std::uint64_t kAskAfterBytes = std::uint64_t{1} << 20;

Status statusOfBus(int result) {
    switch (-result) {
        case ENOMEM:
            return memFullErr;
        case EINVAL:
        case EMSGSIZE:
        case E2BIG:
            return paramErr;
        case ENOBUFS:
            return bufferIsSmall;
        default:
            return connectionInvalid;
    }
}

class SessionBus;

// One application, and how much of what it was sent it has not taken yet.
struct Partner {
    SessionBus* bus = nullptr;
    OSType signature = 0;
    std::string name;
    pid_t pid = 0;
    std::uint64_t messages = 0;  // sent
    std::uint64_t bytes = 0;
    std::uint64_t messagesTaken = 0;
    std::uint64_t bytesTaken = 0;
    std::uint64_t messagesAsked = 0;  // sent when it was last asked
    std::uint64_t bytesAsked = 0;
    BusSlot asking;      // the question whose answer is awaited
    bool stuck = false;  // did not answer in time
};

class SessionBus : public Bus {
  public:
    explicit SessionBus(BusOptions options)
        : options_(std::move(options)),
          poller_(epoll_create1(EPOLL_CLOEXEC)),
          wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        epoll_event watched{};
        watched.events = EPOLLIN;
        watched.data.fd = wake_;
        epoll_ctl(poller_, EPOLL_CTL_ADD, wake_, &watched);
    }

    ~SessionBus() override {
        flush();
        partners_.clear();
        bus_.reset();
        close(wake_);
        close(poller_);
    }

    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    Status connect() override {
        wanted_ = true;
        if (bus_ != nullptr && sd_bus_is_open(bus_.get()) > 0) {
            return noErr;
        }
        lose();
        const auto now = Clock::now();
        if (lastAttempt_ && now - *lastAttempt_ < kBetweenAttempts) {
            return connectionInvalid;
        }
        lastAttempt_ = now;
        std::string problem;
        bus_ = openUserBus(false, problem);
        const int result = bus_ == nullptr ? -ENOTCONN : setUp();
        if (result < 0) {
            if (!std::exchange(told_, true)) {
                receiver_.log("no message bus", bus_ == nullptr ? problem : std::strerror(-result));
            }
            lose();
            return connectionInvalid;
        }
        told_ = false;
        if (std::exchange(lost_, false)) {
            receiver_.log("the message bus is there again", "");
        }
        lastAttempt_.reset();
        watch();
        return noErr;
    }

    Status serve() override {
        const bool connected = bus_ != nullptr;  // else connecting does it
        const bool before = std::exchange(serving_, true);
        const Status status = connect();
        if (status == noErr && connected && !before) {
            own();
        }
        return status;
    }

    void pump() override {
        if (bus_ == nullptr) {
            if (wanted_) {
                connect();
            }
            return;
        }
        takeIn(kMostAtOnce);
        watch();
    }

    int descriptor() const override { return poller_; }

    void setWaiting(bool waiting) override {
        waiting_ = waiting;
        watch();
    }

    Status send(const Event& event) override {
        Partner* partner = nullptr;
        if (const Status status = find(event.target, partner); status != noErr) {
            return status;
        }
        const std::size_t size = sizeOfEvent(event);
        if (size > largestEvent || event.parameters.size() > mostParameters) {
            return paramErr;
        }
        sd_bus_message* made = nullptr;
        int result = sd_bus_message_new_method_call(bus_.get(), &made, partner->name.c_str(),
                                                    partnerPath(event.target).c_str(), partnerInterface, "Event");
        const BusMessage message(made);
        if (result >= 0) {
            result = appendEvent(message.get(), event);
        }
        return result < 0 ? statusOfBus(result) : sendTo(*partner, message.get(), size);
    }

    Status activate(ProcessSerialNumber process) override {
        const auto found = partners_.find(process);
        if (found == partners_.end() || bus_ == nullptr) {
            return procNotFound;
        }
        sd_bus_message* made = nullptr;
        int result = newCall(found->second, "Activate", made);
        const BusMessage message(made);
        if (result >= 0) {
            result = sd_bus_message_append(message.get(), "a{sv}", 0);
        }
        return result < 0 ? statusOfBus(result) : sendTo(found->second, message.get(), 1);
    }

    Status open(OSType target, const std::string& uri) override {
        Partner* partner = nullptr;
        if (const Status status = find(target, partner); status != noErr) {
            return status;
        }
        sd_bus_message* made = nullptr;
        int result = newCall(*partner, "Open", made);
        const BusMessage message(made);
        if (result >= 0) {
            result = sd_bus_message_append(message.get(), "asa{sv}", 1, uri.c_str(), 0);
        }
        return result < 0 ? statusOfBus(result) : sendTo(*partner, message.get(), uri.size());
    }

    Status nextPartner(ProcessSerialNumber& process) override {
        const ProcessSerialNumber before = std::exchange(process, noProcess);
        if (const Status status = connect(); status != noErr) {
            return status;
        }
        if (before == hostProcess) {
            pump();
        }
        auto next = partners_.upper_bound(before);
        if (next == partners_.end()) {
            if (const int result = refresh(); result < 0) {
                return statusOfBus(result);
            }
            next = partners_.upper_bound(before);
        }
        if (next == partners_.end()) {
            return procNotFound;
        }
        process = next->first;
        return noErr;
    }

    Status partner(ProcessSerialNumber process, BusPartner& partner) override {
        const auto found = partners_.find(process);
        if (found == partners_.end()) {
            return procNotFound;
        }
        Partner& known = found->second;
        if (known.pid == 0 && bus_ != nullptr) {
            sd_bus_message* reply = nullptr;
            if (callBus(bus_.get(), "GetConnectionUnixProcessID", &reply, "s", known.name.c_str()) >= 0) {
                std::uint32_t pid = 0;
                sd_bus_message_read(reply, "u", &pid);
                known.pid = static_cast<pid_t>(pid);
            }
            sd_bus_message_unref(reply);
            watch();
        }
        partner = {known.signature, known.pid};
        return noErr;
    }

    Status startService(const std::string& name) override {
        if (const Status status = connect(); status != noErr) {
            return status;
        }
        sd_bus_message* reply = nullptr;
        const int result = callBus(bus_.get(), "StartServiceByName", &reply, "su", name.c_str(), 0);
        sd_bus_message_unref(reply);
        watch();
        return result < 0 ? procNotFound : noErr;
    }

    void awaitArrival(Clock::time_point until) override {
        const std::uint64_t before = arrivals_;
        while (bus_ != nullptr && arrivals_ == before) {
            const auto left = std::chrono::duration_cast<std::chrono::microseconds>(until - Clock::now()).count();
            if (left <= 0) {
                break;
            }
            takeIn(kMostAtOnce);
            if (bus_ != nullptr && arrivals_ == before) {
                sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left));
            }
        }
        watch();
    }

  private:
    int setUp() {
        sd_bus* const bus = bus_.get();
        int result = receiver_.attach(bus);
        if (result >= 0) {
            result = sd_bus_set_method_call_timeout(bus, static_cast<std::uint64_t>(busPatience.count()));
        }
        if (result >= 0) {
            result = sd_bus_add_match(bus, nullptr,
                                      "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                                      "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
                                      "arg0namespace='org.quil.Partner'",
                                      onOwnerChanged, this);
        }
        if (result >= 0 && serving_) {
            own();
        }
        return result < 0 ? result : refresh();
    }

    void own() {
        const std::string name = partnerName(options_.signature);
        int result = sd_bus_request_name(bus_.get(), name.c_str(), SD_BUS_NAME_QUEUE);
        result = result == -EALREADY ? 1 : result;
        owned_ = result > 0;
        if (result < 0) {
            receiver_.log("the own name cannot be had", name + ": " + std::strerror(-result));
        } else if (result == 0) {
            receiver_.log("another application has the own name; its events come here once that one ends", name);
        }
        watch();
    }

    void add(const std::string& name) {
        OSType signature = 0;
        if (!signatureOfName(name, signature)) {
            return;
        }
        Partner& partner = partners_[++lastProcess_];
        partner.bus = this;
        partner.signature = signature;
        partner.name = name;
        ++arrivals_;
    }

    void remove(std::string_view name) {
        std::erase_if(partners_, [name](const auto& entry) { return entry.second.name == name; });
    }

    // Asks the bus for the names that there are.
    int refresh() {
        sd_bus_message* answer = nullptr;
        int result = callBus(bus_.get(), "ListNames", &answer, nullptr);
        const BusMessage reply(answer);
        if (result >= 0) {
            result = sd_bus_message_enter_container(reply.get(), 'a', "s");
        }
        std::set<std::string, std::less<>> names;
        const char* name = nullptr;
        while (result >= 0 && (result = sd_bus_message_read_basic(reply.get(), 's', &name)) > 0) {
            if (std::string_view(name).starts_with(partnerPrefix)) {
                names.emplace(name);
            }
        }
        watch();
        if (result < 0) {
            return result;
        }
        if (owned_) {
            names.erase(partnerName(options_.signature));
        }
        std::erase_if(partners_, [&names](const auto& entry) { return !names.contains(entry.second.name); });
        for (const auto& entry : partners_) {
            names.erase(entry.second.name);
        }
        for (const std::string& fresh : names) {
            add(fresh);
        }
        return 0;
    }

    // Takes in what is there, and gives the connection up when it is lost. Whether there was anything.
    bool takeIn(int most) {
        int result = 1;
        int count = 0;
        while (count < most && bus_ != nullptr && (result = sd_bus_process(bus_.get(), nullptr)) > 0) {
            ++count;
        }
        if (bus_ != nullptr && (result < 0 || sd_bus_is_open(bus_.get()) <= 0)) {
            receiver_.log("the message bus is lost", "");
            lost_ = true;
            lose();
        }
        return count > 0;
    }

    void lose() {
        partners_.clear();  // their questions first
        bus_.reset();
        owned_ = false;
    }

    // The descriptor follows what the connection waits for.
    void watch() {
        const std::uint64_t one = 1;
        std::uint64_t unread = 0;
        bool ready = waiting_;
        if (bus_ != nullptr) {
            const int socket = sd_bus_get_fd(bus_.get());
            const int events = sd_bus_get_events(bus_.get());
            std::uint64_t queued = 0;
            ready |= sd_bus_get_n_queued_read(bus_.get(), &queued) >= 0 && queued > 0;
            epoll_event watched{};
            watched.events = events < 0 ? EPOLLIN : static_cast<std::uint32_t>(events);
            watched.data.fd = socket;
            if (socket != watched_ || watched.events != watchedEvents_) {
                if (epoll_ctl(poller_, EPOLL_CTL_MOD, socket, &watched) != 0) {
                    epoll_ctl(poller_, EPOLL_CTL_ADD, socket, &watched);
                }
                watched_ = socket;
                watchedEvents_ = watched.events;
            }
        } else {
            watched_ = -1;  // closed, and forgotten with it
        }
        if (ready != ready_) {
            ready_ = ready;
            [[maybe_unused]] const ssize_t done =
                ready ? write(wake_, &one, sizeof one) : read(wake_, &unread, sizeof unread);
        }
    }

    // What is written but not sent yet, within a bounded time.
    void flush() {
        const auto end = Clock::now() + kPatience;
        std::uint64_t queued = 0;
        while (bus_ != nullptr && sd_bus_get_n_queued_write(bus_.get(), &queued) >= 0 && queued > 0) {
            const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now()).count();
            if (left <= 0) {
                break;
            }
            if (!takeIn(1) && bus_ != nullptr) {
                sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left));
            }
        }
    }

    Status find(OSType signature, Partner*& partner) {
        if (const Status status = connect(); status != noErr) {
            return status;
        }
        pump();
        const auto running = [&] {
            const auto found = std::find_if(partners_.begin(), partners_.end(), [signature](const auto& entry) {
                return entry.second.signature == signature;
            });
            partner = found == partners_.end() ? nullptr : &found->second;
            return partner != nullptr;
        };
        if (bus_ == nullptr) {
            return connectionInvalid;
        }
        return running() || (refresh() >= 0 && running()) ? noErr : procNotFound;
    }

    int newCall(const Partner& partner, const char* member, sd_bus_message*& message) {
        return sd_bus_message_new_method_call(bus_.get(), &message, partner.name.c_str(),
                                              partnerPath(partner.signature).c_str(), applicationInterface, member);
    }

    static bool isFull(const Partner& partner, std::uint64_t size) {
        const std::uint64_t bytes = partner.bytes - partner.bytesTaken;
        return partner.messages - partner.messagesTaken >= kMostMessages || (bytes > 0 && bytes + size > kMostBytes);
    }

    // Waits while the partner takes what was sent to it. Partners come and go meanwhile.
    Status makeRoom(ProcessSerialNumber process, std::uint64_t size) {
        auto end = Clock::now() + kPatience;
        std::uint64_t taken = 0;
        for (;;) {
            takeIn(kMostAtOnce);
            if (bus_ == nullptr) {
                return connectionInvalid;
            }
            const auto found = partners_.find(process);
            if (found == partners_.end()) {
                return procNotFound;
            }
            Partner& partner = found->second;
            if (!isFull(partner, size)) {
                return noErr;
            }
            if (partner.stuck) {
                return bufferIsSmall;
            }
            ask(partner);
            const auto now = Clock::now();
            if (partner.messagesTaken != taken) {
                taken = partner.messagesTaken;
                end = now + kPatience;
            }
            if (now >= end) {
                partner.stuck = true;
                receiver_.log("does not read its messages; nothing more is sent to it until it does", partner.name);
                return bufferIsSmall;
            }
            const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - now).count();
            sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left));
        }
    }

    Status sendTo(Partner& receiver, sd_bus_message* message, std::size_t size) {
        const auto process = std::find_if(partners_.begin(), partners_.end(), [&](const auto& entry) {
                                 return &entry.second == &receiver;
                             })->first;
        if (isFull(receiver, size)) {
            if (const Status status = makeRoom(process, size); status != noErr) {
                watch();
                return status;
            }
        }
        Partner& partner = receiver;  // makeRoom found it there
        sd_bus_message_set_expect_reply(message, 0);
        sd_bus_message_set_auto_start(message, 0);
        const int result = sd_bus_send(bus_.get(), message, nullptr);
        if (result < 0) {
            watch();
            return statusOfBus(result);
        }
        ++partner.messages;
        partner.bytes += size;
        if (partner.messages - partner.messagesAsked >= kAskAfterMessages ||
            partner.bytes - partner.bytesAsked >= kAskAfterBytes) {
            ask(partner);
        }
        watch();
        return noErr;
    }

    // The answer to a ping tells that everything before it was read.
    void ask(Partner& partner) {
        if (partner.asking != nullptr || partner.messages == partner.messagesTaken) {
            return;
        }
        sd_bus_message* made = nullptr;
        sd_bus_slot* slot = nullptr;
        if (sd_bus_message_new_method_call(bus_.get(), &made, partner.name.c_str(), "/", "org.freedesktop.DBus.Peer",
                                           "Ping") < 0) {
            return;
        }
        const BusMessage ping(made);
        sd_bus_message_set_auto_start(ping.get(), 0);
        if (sd_bus_call_async(bus_.get(), &slot, ping.get(), onPong, &partner, UINT64_MAX) >= 0) {
            partner.asking.reset(slot);
            partner.messagesAsked = partner.messages;
            partner.bytesAsked = partner.bytes;
        }
    }

    static int onPong(sd_bus_message*, void* data, sd_bus_error*) {
        auto& partner = *static_cast<Partner*>(data);
        partner.asking.reset();
        partner.messagesTaken = partner.messagesAsked;
        partner.bytesTaken = partner.bytesAsked;
        partner.stuck = false;
        if (partner.messages - partner.messagesTaken >= kAskAfterMessages) {
            partner.bus->ask(partner);
        }
        return 1;
    }

    static int onOwnerChanged(sd_bus_message* message, void* self, sd_bus_error*) {
        auto& bus = *static_cast<SessionBus*>(self);
        return bus.receiver_.inside(message, [&] {
            const char* name = nullptr;
            const char* before = nullptr;
            const char* after = nullptr;
            if (sd_bus_message_read(message, "sss", &name, &before, &after) < 0) {
                return 0;
            }
            const char* own = nullptr;
            sd_bus_get_unique_name(bus.bus_.get(), &own);
            const bool ours = own != nullptr && *after != 0 && std::strcmp(own, after) == 0;
            if (partnerName(bus.options_.signature) == name) {
                bus.owned_ = ours;
            }
            const bool known =
                *before == 0 && std::any_of(bus.partners_.begin(), bus.partners_.end(),
                                            [name](const auto& entry) { return entry.second.name == name; });
            if (!known) {  // a list of names told it already
                bus.remove(name);
            }
            if (*after != 0 && !ours && !known) {
                bus.add(name);
            }
            return 0;
        });
    }

    BusOptions options_;
    BusReceiver receiver_{options_};
    int poller_;
    int wake_;
    BusConnection bus_;
    std::map<ProcessSerialNumber, Partner> partners_;
    ProcessSerialNumber lastProcess_ = hostProcess;
    std::uint64_t arrivals_ = 0;
    std::optional<Clock::time_point> lastAttempt_;  // that failed
    bool wanted_ = false;                           // connect again when it is lost
    bool serving_ = false;                          // the own name is wanted
    bool owned_ = false;
    bool lost_ = false;
    bool told_ = false;     // that there is no bus
    bool waiting_ = false;  // somebody else's reason to be readable
    bool ready_ = false;    // the wake-up descriptor is readable
    int watched_ = -1;
    std::uint32_t watchedEvents_ = 0;
};

}  // namespace

std::unique_ptr<Bus> makeBus(BusOptions options) {
    return std::make_unique<SessionBus>(std::move(options));
}

}  // namespace platform
