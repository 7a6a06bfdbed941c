#include "frame/modules.h"

#include <algorithm>
#include <iterator>

namespace quil {

static constexpr ModuleHooks kModules[4] = {
    {"MENU", MENU_Plugin_Startup, MENU_Plugin_Idle, MENU_Plugin_Shutdown},
    {"GLN1", GLN1_Plugin_Startup, GLN1_Plugin_Idle, GLN1_Plugin_Shutdown},
    {"VSTA", VSTA_Plugin_Startup, VSTA_Plugin_Idle, VSTA_Plugin_Shutdown},
    {"HBT", HBT_Plugin_Startup, HBT_Plugin_Idle, HBT_Plugin_Shutdown},
};

ModuleHooks gModules[4] = {kModules[0], kModules[1], kModules[2], kModules[3]};

void resetModules() {
    std::copy(std::begin(kModules), std::end(kModules), std::begin(gModules));
}

// The calculator keeps nothing between calls, and these modules have nothing to start, to do while the host idles, or
// to stop.
void VSTA_Plugin_Startup() {}
void VSTA_Plugin_Shutdown() {}
void HBT_Plugin_Idle() {}
void HBT_Plugin_Shutdown() {}

}  // namespace quil
