// The machine as the plug-in sees it: one manager for each thing that the plug-in asks of the world.
//
// Whoever starts the process installs a machine before the plug-in is initialised and keeps it until after the plug-in
// was shut down. No exception leaves a manager. Everything here runs on the main thread.
#pragma once

#include "platform/dialogs.h"
#include "platform/events.h"
#include "platform/files.h"
#include "platform/input.h"
#include "platform/menus.h"
#include "platform/processes.h"
#include "platform/resources.h"
#include "platform/types.h"
#include "platform/windows.h"

namespace platform {

class Machine {
  public:
    virtual ~Machine() = default;

    virtual Files& files() = 0;
    virtual Events& events() = 0;
    virtual Processes& processes() = 0;
    virtual Dialogs& dialogs() = 0;
    virtual Windows& windows() = 0;
    virtual Menus& menus() = 0;
    virtual Input& input() = 0;
    virtual Resources& resources() = 0;
};

// Makes `machine` the one that machine() answers; null: none. Returns the one installed before.
Machine* installMachine(Machine* machine);
bool hasMachine();
// The installed machine. Asking before one is installed ends the process with a message.
Machine& machine();

}  // namespace platform
