// The managers of the machine on Linux, one by one.
#pragma once

#include <memory>

#include "platform/linux/linux_machine.h"

namespace platform {

// Alerts and choosers as lines on the descriptor `output`, answered on `input` when that is a terminal. An alert
// without one takes its default button, a chooser cancels; either says so in one line. `files` must outlive the
// manager.
std::unique_ptr<Dialogs> makeTerminalDialogs(Files& files, const LinuxOptions& options, int input, int output);

// The clock that counts from start-up and never goes back; no mouse, and the usual double-click time of half a second.
std::unique_ptr<Input> makeLinuxInput();

// The host is the only application of this machine. `files` must outlive the manager.
std::unique_ptr<Processes> makeLinuxProcesses(Files& files, const LinuxOptions& options);

// Events to the host itself are handled at once; there is no other application to send one to.
std::unique_ptr<Events> makeLinuxEvents(OSType signature);

}  // namespace platform
