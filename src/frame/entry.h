// The plug-in's entry point and life: initialise, idle, strings, shutdown, and the registration of the two functions.
#pragma once

#include <cstdint>

#include "fmx/call_record.h"
#include "fmx/fmx.h"

extern "C" __attribute__((visibility("default"))) void FMExternCallProc(fmx::CallRecord* callStruct);

namespace quil {

// The host's call record of the call in progress; it stays valid until the next one.
extern fmx::CallRecord* gFMX_ExternCallPtr;
extern std::uint8_t gPlugInInitialized;  // 1 between a successful initialisation and the shutdown
extern std::uint8_t gPrefsOpen;          // never set: there is no preferences dialog

std::int32_t Do_PluginInit(short hostVersion);  // 52, -1 (version outside 50 to 255) or -2 (registration failed)
void Do_PluginShutdown();
void Do_PluginIdle(unsigned char idleLevel);
void Do_PluginGetString();

void SafeIdle();
void SemiSafeIdle(unsigned char idleLevel);
void UnsafeIdle();
void DoQuilIdleTasks();
std::int32_t Startup();  // 1
void Shutdown();

void ProvideNameString(unsigned short* buffer, unsigned long size);
void ProvidePreferencesString(unsigned short* buffer, unsigned long size);
void ProvideConfigString(unsigned short* buffer, unsigned long size);  // always 12 units

std::int32_t RegisterExternalFunctions();  // nonzero on success
fmx::errcode RegisterExternalFunction(short funcId, short minParams, short maxParams, unsigned long flags,
                                      fmx::ExternalFunction function);
fmx::errcode UnRegisterExternalFunction(short funcId);
void UnRegisterExternalFunctions();

// Puts every module's state back to what it is at load.
void ResetPlugInState();

}  // namespace quil
