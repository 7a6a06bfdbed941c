// Processes of the machine on Linux: the host. Other applications become known when the message bus connects them;
// until then there are none, and launching or fronting one says so.
#include "platform/linux/errors.h"
#include "platform/linux/linux_managers.h"
#include "platform/linux/volumes.h"

namespace platform {

static constexpr ProcessSerialNumber hostProcess = 1;

namespace {

class LinuxProcesses : public Processes {
  public:
    LinuxProcesses(Files& files, const LinuxOptions& options)
        : files_(files), signature_(options.signature), application_(applicationOf(options)) {}

    Status current(ProcessSerialNumber& process) override {
        process = hostProcess;
        return noErr;
    }

    Status next(ProcessSerialNumber& process) override {
        process = process == noProcess ? hostProcess : noProcess;
        return process == noProcess ? procNotFound : noErr;
    }

    // A host whose executable lies on no volume, or is not there, has an empty application file.
    Status information(ProcessSerialNumber process, ProcessInfo& info) override {
        return guarded([&]() -> Status {
            if (process != hostProcess) {
                return procNotFound;
            }
            info = {signature_, currentApplicationName(), {}};
            FSSpec application;
            if (files_.makeSpec(0, 0, application_, application) == noErr) {
                info.application = application;
            }
            return noErr;
        });
    }

    std::string currentApplicationName() override try {
        return application_.substr(application_.rfind(':') + 1);
    } catch (const std::bad_alloc&) {
        return {};
    }

    Status launch(const FSSpec&, std::uint16_t, ProcessSerialNumber& process) override {
        process = noProcess;
        return procNotFound;
    }

    Status setFront(ProcessSerialNumber process) override { return process == hostProcess ? noErr : procNotFound; }

  private:
    Files& files_;
    OSType signature_;
    std::string application_;  // classic path
};

}  // namespace

std::unique_ptr<Processes> makeLinuxProcesses(Files& files, const LinuxOptions& options) {
    return std::make_unique<LinuxProcesses>(files, options);
}

}  // namespace platform
