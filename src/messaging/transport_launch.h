// Partner applications: finding those that run, launching those that do not.
//
// Status codes: 0 success, -600 not running, 4321 not found or not launchable; others are the machine's.
#pragma once

#include <cstdint>

#include "platform/events.h"
#include "platform/processes.h"
#include "util/paths.h"
#include "util/text.h"

namespace quil {

inline constexpr std::int32_t kProcessNotRunning = -600;
inline constexpr std::int32_t kCannotLaunch = 4321;

// Launch control flags.
inline constexpr std::uint16_t kLaunchDontSwitch = 0x0200;
inline constexpr std::uint16_t kLaunchNoFileFlags = 0x0800;
inline constexpr std::uint16_t kLaunchContinue = 0x4000;

// The first process of that signature and the application's file, whose name is empty when there is none. Without
// `application` (null) no file is looked up, here and in SignatureToApp.
std::int32_t FindRunningAppBySignature(OSType signature, platform::ProcessSerialNumber* process, FSSpec* application);

// An open-document event for a process or, without one (0), for a signature. Its direct object, of type 'fss ', is the
// file specification's bytes as they stand in memory.
std::int32_t BuildODoc(const FSSpec& document, OSType signature, platform::ProcessSerialNumber process,
                       platform::Event* event);
std::int32_t LaunchIt(const FSSpec& application, std::uint16_t controlFlags, const platform::Event* openDocument,
                      platform::ProcessSerialNumber* process);
// Launches, and waits up to eight seconds until the application runs.
std::int32_t LaunchApplicationFromSpec(OSType signature, const FSSpec& application, const FSSpec* document,
                                       std::uint16_t controlFlags, platform::ProcessSerialNumber* process,
                                       bool* launched);

// Finds the running application; mode 2 brings it to the front, unless the flags hold kLaunchDontSwitch, and hands it
// the document (null: none). One that does not run is launched when the mode is above 0: from the path that is
// remembered of it, else from its default location.
std::int32_t SignatureToApp(OSType signature, const FSSpec* document, platform::ProcessSerialNumber* process,
                            FSSpec* application, bool* launched, int mode, std::uint16_t controlFlags);

// Full path of a known partner's application in the Applications folder; `dst` holds 256 bytes. -1 when there is none.
int GetDefaultPath(OSType signature, char* dst);

}  // namespace quil
