#include "platform/linux/linux_machine.h"

#include <unistd.h>

#include "platform/bundle.h"
#include "platform/linux/bus.h"
#include "platform/linux/linux_managers.h"
#include "platform/linux/terminal_windows.h"
#include "platform/memory_windows.h"

namespace platform {

namespace {

class LinuxMachine : public Machine {
  public:
    explicit LinuxMachine(const LinuxOptions& options)
        : files_(makeLinuxFiles(options)),
          events_(makeLinuxEvents(*files_, options, bus_)),
          processes_(makeLinuxProcesses(*files_, options, bus_.get())),
          dialogs_(makeTerminalDialogs(*files_, options, options.asksUser ? STDIN_FILENO : -1, STDERR_FILENO,
                                       [this] { windows_.beforeOutput(STDERR_FILENO); })),
          input_(makeLinuxInput()),
          resources_(makeBundleResources()) {}

    ~LinuxMachine() override { bus_.reset(); }  // what it takes in at the end goes to the events
    LinuxMachine(const LinuxMachine&) = delete;
    LinuxMachine& operator=(const LinuxMachine&) = delete;

    Files& files() override { return *files_; }
    Events& events() override { return *events_; }
    Processes& processes() override { return *processes_; }
    Dialogs& dialogs() override { return *dialogs_; }
    Windows& windows() override { return windows_; }
    Menus& menus() override { return menus_; }
    Input& input() override { return *input_; }
    Resources& resources() override { return *resources_; }

  private:
    std::unique_ptr<Files> files_;
    std::unique_ptr<Bus> bus_;
    std::unique_ptr<Events> events_;
    std::unique_ptr<Processes> processes_;
    TerminalWindows windows_{STDERR_FILENO};
    std::unique_ptr<Dialogs> dialogs_;  // takes away what windows_ drew
    MemoryMenus menus_;
    std::unique_ptr<Input> input_;
    std::unique_ptr<Resources> resources_;
};

}  // namespace

std::unique_ptr<Machine> makeLinuxMachine(const LinuxOptions& options) {
    return std::make_unique<LinuxMachine>(options);
}

}  // namespace platform
