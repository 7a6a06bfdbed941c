// The four modules and their hooks, run in the fixed order MENU, GLN1, VSTA, HBT.
#pragma once

namespace quil {

struct ModuleHooks {
    const char* name;
    void (*startup)();
    void (*idle)();
    void (*shutdown)();
};

// The order of every start, idle pass and shutdown. Tests may exchange the hooks; resetModules puts them back.
extern ModuleHooks gModules[4];
void resetModules();

void MENU_Plugin_Startup();
void MENU_Plugin_Idle();
void MENU_Plugin_Shutdown();
void GLN1_Plugin_Startup();
void GLN1_Plugin_Idle();
void GLN1_Plugin_Shutdown();
void VSTA_Plugin_Startup();
void VSTA_Plugin_Idle();
void VSTA_Plugin_Shutdown();
void HBT_Plugin_Startup();
void HBT_Plugin_Idle();
void HBT_Plugin_Shutdown();

}  // namespace quil
