#include "frame/entry.h"

#include <iterator>

#include "files/base_directory.h"
#include "frame/dispatcher.h"
#include "frame/modules.h"
#include "frame/strings.h"
#include "maplayers/sessions.h"
#include "menu/menu.h"
#include "messaging/hooks.h"
#include "messaging/transport.h"
#include "records/records.h"
#include "screening/model.h"
#include "util/alerts.h"
#include "util/app_path.h"
#include "util/fhandle.h"
#include "util/text.h"

namespace quil {

// State of this file.
fmx::CallRecord* gFMX_ExternCallPtr = nullptr;  // the host's call record
std::uint8_t gPlugInInitialized = 0;            // initialised and not yet shut down
std::uint8_t gPrefsOpen = 0;                    // never set

// 0xFF00: in all calculation dialogs; 0x0001: also on a server.
static constexpr unsigned long kFunctionFlags = 0xFF01;
static constexpr short kVersionFunction = 1;
static constexpr short kExternalFunction = 2;

void ResetPlugInState() {
    ResetAlerts();
    ResetAppPath();
    ResetLineCache();
    ResetScreening();
    ResetRecords();
    ResetMapIDs();
    ResetSessions();
    ResetMessaging();
    ResetMenu();
    ResetBaseDirectory();
    ReleaseKeptHandles();
}

// Whatever a hook raises for want of memory, the other modules still have their turn.
static void runHook(void (*hook)()) noexcept {
    try {
        hook();
    } catch (...) {
        return;
    }
}

std::int32_t Startup() {
    ResetPlugInState();  // also when the host did not shut down before
    SetOwnResourceFile(gFMX_ExternCallPtr == nullptr ? nullptr : GetPluginBundle());
    for (const ModuleHooks& module : gModules) {
        runHook(module.startup);
    }
    return 1;
}

void Shutdown() {
    for (const ModuleHooks& module : gModules) {
        runHook(module.shutdown);
    }
    ResetPlugInState();  // the sets and lists live no longer than the plug-in runs
}

std::int32_t Do_PluginInit(short hostVersion) {
    // One unsigned comparison refuses 49 and less as well as 256 and more.
    if (static_cast<std::uint16_t>(hostVersion - 50) > 205) {
        return fmx::kBadExtensionVersion;
    }
    if (Startup() == 0) {
        return fmx::kDoNotEnable;
    }
    if (RegisterExternalFunctions() == 0) {
        gPlugInInitialized = 0;
        Shutdown();
        return fmx::kDoNotEnable;
    }
    gPlugInInitialized = 1;
    return fmx::kExtensionVersion;
}

void Do_PluginShutdown() {
    gPlugInInitialized = 0;
    UnRegisterExternalFunctions();
    Shutdown();
}

void Do_PluginIdle(unsigned char idleLevel) {
    if (gPlugInInitialized == 0) {
        return;
    }
    switch (idleLevel) {
        case fmx::kIdleUserIdle:
            SafeIdle();
            break;
        case fmx::kIdleUnsafe:
            UnsafeIdle();
            break;
        default:
            SemiSafeIdle(idleLevel);
    }
}

void SafeIdle() {
    DoQuilIdleTasks();
}

void SemiSafeIdle(unsigned char idleLevel) {
    if (idleLevel == fmx::kIdleUserNotIdle) {
        DoQuilIdleTasks();
    }
}

void UnsafeIdle() {}  // no module work at this level, deliberately

void DoQuilIdleTasks() {
    for (const ModuleHooks& module : gModules) {
        runHook(module.idle);
    }
}

void ProvideNameString(unsigned short* buffer, unsigned long size) {
    ReadString(buffer, size, 1);
}

void ProvidePreferencesString(unsigned short* buffer, unsigned long size) {
    ReadString(buffer, size, 2);
}

void ProvideConfigString(unsigned short* buffer, unsigned long /*size*/) {
    static constexpr char kConfiguration[] = "QUIL1nnYYnn";  // plug-in ID, '1', the host's six option flags
    for (std::size_t i = 0; i < std::size(kConfiguration); ++i) {
        buffer[i] = static_cast<unsigned char>(kConfiguration[i]);
    }
}

void Do_PluginGetString() {
    auto* buffer = reinterpret_cast<unsigned short*>(gFMX_ExternCallPtr->result);
    const unsigned long size = gFMX_ExternCallPtr->parameter3;
    switch (gFMX_ExternCallPtr->parameter1) {
        case fmx::kStringName:
            ProvideNameString(buffer, size);
            break;
        case fmx::kStringPreferences:
            ProvidePreferencesString(buffer, size);
            break;
        case fmx::kStringOptions:
            ProvideConfigString(buffer, size);
            break;
        default:
            break;
    }
}

static fmx::QuadCharAutoPtr pluginID() {
    return fmx::QuadCharAutoPtr('Q', 'U', 'I', 'L');
}

fmx::errcode RegisterExternalFunction(short funcId, short minParams, short maxParams, unsigned long flags,
                                      fmx::ExternalFunction function) {
    const auto id = pluginID();
    fmx::TextAutoPtr name;
    fmx::TextAutoPtr prototype;
    const auto stringNumber = static_cast<unsigned long>(funcId) + 100;
    Do_GetString(stringNumber, name, true);
    Do_GetString(stringNumber, prototype, false);
    return fmx::ExprEnv::RegisterExternalFunction(*id, funcId, *name, *prototype, minParams, maxParams,
                                                  static_cast<std::uint32_t>(flags), function);
}

fmx::errcode UnRegisterExternalFunction(short funcId) {
    const auto id = pluginID();
    return fmx::ExprEnv::UnRegisterExternalFunction(*id, funcId);
}

std::int32_t RegisterExternalFunctions() {
    if (RegisterExternalFunction(kVersionFunction, 0, 1, kFunctionFlags, QUIL_Version) != 0) {
        return 0;
    }
    if (RegisterExternalFunction(kExternalFunction, 2, 2, kFunctionFlags, QUIL_External) == 0) {
        return 1;
    }
    UnRegisterExternalFunction(kVersionFunction);
    return 0;
}

void UnRegisterExternalFunctions() {
    UnRegisterExternalFunction(kExternalFunction);
    UnRegisterExternalFunction(kVersionFunction);
}

// One call of the host; what it raises is the caller's to catch.
static void serve(fmx::CallRecord& call) {
    switch (call.selector) {
        case fmx::kCallInit:
            call.result = Do_PluginInit(call.hostVersion);
            break;
        case fmx::kCallIdle:
            Do_PluginIdle(call.parameter1);
            break;
        case fmx::kCallShutdown:
            Do_PluginShutdown();
            break;
        case fmx::kCallGetString:
            Do_PluginGetString();
            break;
        default:
            break;
    }
}

}  // namespace quil

void FMExternCallProc(fmx::CallRecord* callStruct) {
    quil::gFMX_ExternCallPtr = callStruct;
    try {
        quil::serve(*callStruct);
    } catch (...) {
        // Memory ran out inside the call. An initialisation that was under way did not succeed.
        if (callStruct->selector == fmx::kCallInit) {
            callStruct->result = fmx::kDoNotEnable;
            try {
                quil::Do_PluginShutdown();
            } catch (...) {
                quil::ResetPlugInState();
            }
        }
    }
}
