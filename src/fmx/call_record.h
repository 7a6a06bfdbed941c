// The call record: what the host passes to a plug-in's one entry point, FMExternCallProc.
//
// The host fills the record, calls, and reads `result` afterwards. It belongs to the host; the last one passed stays
// valid until the plug-in's shutdown call has returned, so the plug-in may keep the pointer. Fields are only ever
// appended, and `recordVersion` tells which are there.
#pragma once

#include <cstdint>

namespace fmx {

inline constexpr std::uint32_t kCallRecordVersion = 1;

// Call selectors.
inline constexpr std::uint8_t kCallInit = 0;
inline constexpr std::uint8_t kCallIdle = 1;
inline constexpr std::uint8_t kCallShutdown = 4;
inline constexpr std::uint8_t kCallAppPreferences = 5;
inline constexpr std::uint8_t kCallGetString = 7;

// Idle levels, the first parameter of the idle call.
inline constexpr std::uint8_t kIdleUserIdle = 0;
inline constexpr std::uint8_t kIdleUserNotIdle = 1;
inline constexpr std::uint8_t kIdleScriptPaused = 2;
inline constexpr std::uint8_t kIdleScriptRunning = 3;
inline constexpr std::uint8_t kIdleUnsafe = 4;

// String kinds, the first parameter of the get-string call.
inline constexpr std::uint8_t kStringName = 128;
inline constexpr std::uint8_t kStringPreferences = 129;
inline constexpr std::uint8_t kStringHelpURL = 130;
inline constexpr std::uint8_t kStringOptions = 131;

// Results of the initialise call: the extension version that the plug-in speaks, or a refusal.
inline constexpr std::int32_t kExtensionVersion = 52;
inline constexpr std::int32_t kBadExtensionVersion = -1;
inline constexpr std::int32_t kDoNotEnable = -2;

struct CallRecord {
    std::uint32_t recordVersion = kCallRecordVersion;
    std::int16_t hostVersion = 0;    // host extension version, at initialisation
    std::uint8_t selector = 0;       // one of the call selectors
    std::uint8_t parameter1 = 0;     // idle level, or string kind
    std::uint32_t parameter3 = 0;    // size of the output buffer in UTF-16 units (get-string)
    const void* instance = nullptr;  // the plug-in's own bundle (platform::BundleRef)
    std::intptr_t result = 0;        // out: result of the initialise call; in: the output buffer (get-string)
};

// Name and type of the entry point.
inline constexpr char kEntryPointName[] = "FMExternCallProc";
using EntryPoint = void (*)(CallRecord* call);

}  // namespace fmx
