// The managers of the machine on Linux, one by one.
#pragma once

#include <functional>
#include <memory>

#include "platform/linux/linux_machine.h"

namespace platform {

// Alerts and choosers as lines on the descriptor `output`, answered on `input` when that is a terminal. An alert
// without one takes its default button, a chooser cancels; either says so in one line. `files` must outlive the
// manager. `beforeOutput`, unless empty, is called before anything is written.
std::unique_ptr<Dialogs> makeTerminalDialogs(Files& files, const LinuxOptions& options, int input, int output,
                                             std::function<void()> beforeOutput = {});

// The clock that counts from start-up and never goes back; no mouse, and the usual double-click time of half a second.
std::unique_ptr<Input> makeLinuxInput();

class Bus;

// Events to the host itself and, by the bus that this makes, to and from other applications; `bus` stays null in a
// build that has none. `files` must outlive the manager, and the manager the bus.
std::unique_ptr<Events> makeLinuxEvents(Files& files, const LinuxOptions& options, std::unique_ptr<Bus>& bus);

// The host and the applications on the bus, which may be null. Both must outlive the manager.
std::unique_ptr<Processes> makeLinuxProcesses(Files& files, const LinuxOptions& options, Bus* bus);

}  // namespace platform
