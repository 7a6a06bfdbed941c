// Processes of the machine on Linux: the host, and the applications that own a partner's name on the message bus.
#include <unistd.h>

#include <climits>
#include <map>
#include <optional>

#include "platform/linux/bus.h"
#include "platform/linux/errors.h"
#include "platform/linux/launch.h"
#include "platform/linux/linux_managers.h"
#include "platform/linux/volumes.h"

namespace platform {

namespace {

// An application that was just started is given so long to appear before the first look for it.
constexpr auto kFirstWait = std::chrono::milliseconds(1000);

class LinuxProcesses : public Processes {
  public:
    LinuxProcesses(Files& files, const LinuxOptions& options, Bus* bus)
        : files_(files), options_(options), application_(applicationOf(options)), bus_(bus) {}

    Status current(ProcessSerialNumber& process) override {
        process = hostProcess;
        return noErr;
    }

    Status next(ProcessSerialNumber& process) override {
        return guarded([&]() -> Status {
            if (process == noProcess) {
                process = hostProcess;
                return noErr;
            }
            if (bus_ == nullptr) {
                process = noProcess;
                return connectionInvalid;
            }
            return bus_->nextPartner(process);
        });
    }

    // A host whose executable lies on no volume, or is not there, has an empty application file; other applications as
    // well.
    Status information(ProcessSerialNumber process, ProcessInfo& info) override {
        return guarded([&]() -> Status {
            if (process == hostProcess && !host_) {
                ProcessInfo own{options_.signature, currentApplicationName(), {}};
                if (specify(application_, own.application)) {
                    host_ = own;  // a running program stays where it is
                }
                info = own;
                return noErr;
            }
            if (process == hostProcess) {
                info = *host_;
                return noErr;
            }
            if (const auto found = known_.find(process); found != known_.end()) {
                info = found->second;
                return noErr;
            }
            BusPartner partner;
            const Status status = bus_ == nullptr ? procNotFound : bus_->partner(process, partner);
            if (status != noErr) {
                return status;
            }
            const std::string path = pathOf(partner.pid);
            info = {partner.signature, path.substr(path.rfind('/') + 1), {}};
            specify(classicPathOf(options_, path), info.application);
            if (known_.size() >= kMostKnown) {
                known_.clear();
            }
            known_[process] = info;
            return noErr;
        });
    }

    Status signature(ProcessSerialNumber process, OSType& signature) override {
        return guarded([&]() -> Status {
            BusPartner partner;
            partner.signature = options_.signature;
            if (const auto found = known_.find(process); found != known_.end()) {
                partner.signature = found->second.signature;
            } else if (process != hostProcess) {
                const Status status = bus_ == nullptr ? procNotFound : bus_->partner(process, partner);
                if (status != noErr) {
                    return status;
                }
            }
            signature = partner.signature;
            return noErr;
        });
    }

    std::string currentApplicationName() override try {
        return application_.substr(application_.rfind(':') + 1);
    } catch (const std::bad_alloc&) {
        return {};
    }

    // The number of an application that has not told its name yet is not known: a launch that succeeded leaves none.
    Status launch(const FSSpec& application, std::uint16_t, ProcessSerialNumber& process) override {
        process = noProcess;
        return guarded([&]() -> Status {
            if (bus_ == nullptr) {
                return connectionInvalid;
            }
            if (const Status status = bus_->connect(); status != noErr) {
                return status;
            }
            std::string path;
            if (const Status status = files_.posixPath(application, path); status != noErr) {
                return status;
            }
            bus_->pump();
            const std::string executable = executableOf(path);
            if (executable.empty()) {
                return fnfErr;
            }
            const std::string service = serviceOf(executable);
            const Status status = service.empty() ? startDetached(executable) : bus_->startService(service);
            if (status == noErr) {
                bus_->awaitArrival(std::chrono::steady_clock::now() + kFirstWait);
            }
            return status;
        });
    }

    Status setFront(ProcessSerialNumber process) override {
        return guarded([&]() -> Status {
            if (process == hostProcess) {
                return noErr;
            }
            return bus_ == nullptr ? procNotFound : bus_->activate(process);
        });
    }

  private:
    static constexpr std::size_t kMostKnown = 64;

    static std::string pathOf(pid_t process) {
        if (process <= 0) {
            return {};
        }
        std::string path(PATH_MAX, '\0');
        const ssize_t length =
            readlink(("/proc/" + std::to_string(process) + "/exe").c_str(), path.data(), path.size());
        path.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
        return path;
    }

    bool specify(const std::string& classicPath, FSSpec& application) {
        FSSpec found;
        if (classicPath.empty() || files_.makeSpec(0, 0, classicPath, found) != noErr) {
            return false;
        }
        application = found;
        return true;
    }

    Files& files_;
    LinuxOptions options_;
    std::string application_;  // classic path
    Bus* bus_;
    std::optional<ProcessInfo> host_;
    std::map<ProcessSerialNumber, ProcessInfo> known_;  // numbers are never used twice
};

}  // namespace

std::unique_ptr<Processes> makeLinuxProcesses(Files& files, const LinuxOptions& options, Bus* bus) {
    return std::make_unique<LinuxProcesses>(files, options, bus);
}

}  // namespace platform
