#include "messaging/transport_launch.h"

#include <cstring>
#include <new>
#include <string>

#include "messaging/friends.h"
#include "messaging/script_queue.h"
#include "platform/machine.h"

namespace quil {

static constexpr std::size_t kPathSize = 256;
static constexpr int kPolls = 8;  // a second apart, for an application that was launched

std::int32_t FindRunningAppBySignature(OSType signature, platform::ProcessSerialNumber* process, FSSpec* application) {
    platform::Processes& processes = platform::machine().processes();
    *process = platform::noProcess;
    for (;;) {
        platform::ProcessInfo info;
        platform::Status status = processes.next(*process);
        if (status == platform::noErr) {
            status = processes.signature(*process, info.signature);
        }
        const bool found = status == platform::noErr && info.signature == signature;
        if (found && application != nullptr) {
            status = processes.information(*process, info);
        }
        if (status != platform::noErr) {
            if (application != nullptr) {
                application->name[0] = 0;
            }
            return status;
        }
        if (found) {
            if (application != nullptr) {
                *application = info.application;
            }
            return 0;
        }
    }
}

std::int32_t BuildODoc(const FSSpec& document, OSType signature, platform::ProcessSerialNumber process,
                       platform::Event* event) {
    *event = {};
    event->target = signature;
    if (process != platform::noProcess) {
        platform::ProcessInfo info;
        if (const platform::Status status = platform::machine().processes().information(process, info);
            status != platform::noErr) {
            return status;
        }
        event->target = info.signature;
    }
    event->eventClass = "aevt"_4;
    event->eventID = "odoc"_4;
    try {
        event->parameters.push_back(
            {"----"_4, "fss "_4, {reinterpret_cast<const char*>(&document), sizeof document}, false});
    } catch (const std::bad_alloc&) {
        *event = {};
        return platform::memFullErr;
    }
    return 0;
}

std::int32_t LaunchIt(const FSSpec& application, std::uint16_t controlFlags, const platform::Event* /*openDocument*/,
                      platform::ProcessSerialNumber* process) {
    // An open-document event becomes launch parameters only where it coerces to 24 bytes, which one of this machine's
    // never does: the application is launched without.
    const auto flags = static_cast<std::uint16_t>(controlFlags | kLaunchNoFileFlags);
    return platform::machine().processes().launch(application, flags, *process);
}

std::int32_t LaunchApplicationFromSpec(OSType signature, const FSSpec& application, const FSSpec* document,
                                       std::uint16_t controlFlags, platform::ProcessSerialNumber* process,
                                       bool* launched) {
    *launched = false;
    platform::Event openDocument;
    if (document != nullptr) {
        if (const std::int32_t status = BuildODoc(*document, signature, platform::noProcess, &openDocument);
            status != 0) {
            return status;
        }
    }
    const std::int32_t status =
        LaunchIt(application, controlFlags, document == nullptr ? nullptr : &openDocument, process);
    if (status != 0) {
        return status;
    }
    for (int poll = 0; poll < kPolls && FindRunningAppBySignature(signature, process, nullptr) != 0; ++poll) {
        WaitOneSecond();
    }
    *launched = true;
    return 0;
}

// Registers the friend under the path and launches it from there.
static std::int32_t launchFromPath(OSType signature, const char* path, const FSSpec* document,
                                   platform::ProcessSerialNumber* process, FSSpec* application, bool* launched,
                                   std::uint16_t controlFlags) {
    FSSpec found;
    if (path[0] == 0 || GetFSSpecFromFullPath(path, &found) != platform::noErr) {
        return kCannotLaunch;
    }
    if (application != nullptr) {
        *application = found;
    }
    AddFriend(signature, signature, path, "", GuessCanUseUtf8IacFromPath(path));
    return LaunchApplicationFromSpec(signature, found, document, controlFlags, process, launched);
}

static std::int32_t useRunning(OSType signature, const FSSpec* document, platform::ProcessSerialNumber process,
                               std::uint16_t controlFlags) {
    platform::Machine& machine = platform::machine();
    if ((controlFlags & kLaunchDontSwitch) == 0) {
        if (const platform::Status status = machine.processes().setFront(process); status != platform::noErr) {
            return status;
        }
    }
    if (document == nullptr) {
        return 0;
    }
    platform::Event event;
    const std::int32_t status = BuildODoc(*document, signature, process, &event);
    return status != 0 ? status : machine.events().send(event);
}

std::int32_t SignatureToApp(OSType signature, const FSSpec* document, platform::ProcessSerialNumber* process,
                            FSSpec* application, bool* launched, int mode, std::uint16_t controlFlags) {
    *launched = false;
    const std::int32_t status = FindRunningAppBySignature(signature, process, application);
    if (status == 0) {
        return mode == 2 ? useRunning(signature, document, *process, controlFlags) : 0;
    }
    if (status != kProcessNotRunning || mode <= 0) {
        return status;
    }
    char path[kPathSize];
    GetFriendsPath(signature, path);
    if (launchFromPath(signature, path, document, process, application, launched, controlFlags) == 0) {
        return 0;
    }
    if (GetDefaultPath(signature, path) != 0 ||
        launchFromPath(signature, path, document, process, application, launched, controlFlags) != 0) {
        return kCannotLaunch;
    }
    return 0;
}

// Where the partners' applications lie in the Applications folder; the first of a signature that exists counts.
namespace {
struct Location {
    OSType signature;
    const char* path;
};
}  // namespace
static constexpr Location kLocations[] = {
    {"SRC5"_4, "SIROC Folder:SIROC.app:Contents:MacOS:SIROC"},
    {"SRC5"_4, "SIROC Folder:SIROC"},
    {"GLN1"_4, "GEOLENS Folder:GEOLENS.app:Contents:MacOS:GEOLENS"},
    {"GLN1"_4, "GEOLENS Folder:GEOLENS"},
    {"VCHM"_4, "VESTA Chemicals.app:Contents:MacOS:VESTA Chemicals"},
    {"VCHM"_4, "VESTA Chemicals.app:Contents:MacOS:VESTAChemicals"},
    {"VCHM"_4, "VESTAChemicals.app:Contents:MacOS:VESTAChemicals"},
};

int GetDefaultPath(OSType signature, char* dst) {
    dst[0] = 0;
    std::int16_t vRefNum = 0;
    std::int32_t dirID = 0;
    platform::Status status = platform::machine().files().findFolder("apps"_4, vRefNum, dirID);
    if (status != platform::noErr) {
        return status;
    }
    unsigned char prefixed[kPathSize];
    status = GetClassicPathWithDelimiterAsPStringFromDirID(dirID, vRefNum, reinterpret_cast<char*>(prefixed));
    if (status != platform::noErr) {
        return status;
    }
    char folder[kPathSize];
    myp2cstr(prefixed, folder);
    const std::size_t folderLength = std::strlen(folder);
    for (const Location& location : kLocations) {
        if (location.signature != signature || folderLength + std::strlen(location.path) >= kPathSize) {
            continue;
        }
        my_strncpy(dst, folder, kPathSize);
        my_strncpy(dst + folderLength, location.path, kPathSize - folderLength);
        if (FileExists(dst)) {
            return 0;
        }
    }
    dst[0] = 0;
    return -1;
}

}  // namespace quil
