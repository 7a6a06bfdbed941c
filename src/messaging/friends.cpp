#include "messaging/friends.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "messaging/globals.h"
#include "messaging/message_parameters.h"
#include "messaging/standard_messages.h"
#include "messaging/transport.h"
#include "messaging/transport_launch.h"
#include "platform/machine.h"

namespace quil {

namespace {
struct Friend {
    OSType signature;   // 0: the record is free
    OSType psig;        // under which it also presents itself
    char path[256];     // of its application
    char hwnd[256];     // "HWND" of its greeting
    std::int16_t utf8;  // 1: reads UTF-8, -1: does not, 0: not known
};
}  // namespace

// State of this file.
static Friend sFriend[6];  // in search order

static constexpr int kUseRunning = 2;  // mode of SignatureToApp

void ResetFriends() {
    std::fill(std::begin(sFriend), std::end(sFriend), Friend{});
}

void AddFriend(OSType signature, OSType psig, const char* path, const char* hwnd, short utf8) {
    const auto fill = [&](Friend& record) {
        record.signature = signature;
        record.psig = psig;
        copyInto(record.path, path);
        if (hwnd != nullptr && hwnd[0] != 0) {
            copyInto(record.hwnd, hwnd);
        }
    };
    bool found = false;
    for (Friend& record : sFriend) {
        if (record.signature != signature && record.psig != psig) {
            continue;
        }
        if (found) {
            record = {};
            continue;
        }
        found = true;
        fill(record);
        record.utf8 = utf8;
    }
    if (!found) {
        Friend* const free = std::find_if(std::begin(sFriend), std::end(sFriend),
                                          [](const Friend& record) { return record.signature == 0; });
        if (free != std::end(sFriend)) {
            fill(*free);  // `utf8` is left alone deliberately
        }
    }
}

template <typename Test>
static const Friend* findFriend(Test test) {
    const Friend* const found = std::find_if(std::begin(sFriend), std::end(sFriend), test);
    return found == std::end(sFriend) ? nullptr : found;
}

OSType ConnvertIfPSIG(OSType code) {
    const Friend* const found = findFriend([code](const Friend& record) { return record.psig == code; });
    return found == nullptr ? code : found->signature;
}

void GetFriendsPath(OSType code, char* buffer) {
    const Friend* const found =
        findFriend([code](const Friend& record) { return record.signature == code || record.psig == code; });
    my_strncpy(buffer, found == nullptr ? "" : found->path, sizeof found->path);
}

short FriendCanUseUtf8Iac(OSType signature) {
    const Friend* const found = findFriend([signature](const Friend& record) { return record.signature == signature; });
    return found == nullptr ? short{0} : found->utf8;
}

void strcpyAppNameFromPath(char* buffer, const char* path) {
    std::string_view name = path;
    for (const char separator : {'\\', ':', '/'}) {
        name.remove_prefix(name.rfind(separator) + 1);  // npos + 1 is 0
    }
    my_strncpy(buffer, name, 256);
}

void my_str2upper(char* text) {
    StrToUpper(text);
}

bool LooksLikeOldGeolens(const char* path) {
    char name[256];
    strcpyAppNameFromPath(name, path);
    my_str2upper(name);
    return std::strcmp(name, "GEOLENS") == 0 || std::strstr(name, "GEOLENS.EXE") != nullptr;
}

bool LooksLikeNewGeolens(const char* path) {
    char whole[256];
    char name[256];
    copyInto(whole, path);
    my_str2upper(whole);
    strcpyAppNameFromPath(name, whole);
    return std::strstr(whole, "GEOLENS") != nullptr &&
           (std::strstr(name, "SERVER") != nullptr || std::strstr(name, "CLIENT") != nullptr);
}

short GuessCanUseUtf8IacFromPath(const char* path) {
    return LooksLikeNewGeolens(path) ? 1 : 0;
}

// 0 when a process of the signature runs; the walk ends with -600.
static std::int32_t Sig2ProcessInfo(OSType signature) {
    platform::ProcessSerialNumber process = platform::noProcess;
    return FindRunningAppBySignature(signature, &process, nullptr);
}

bool AppIsRunning(OSType signature) {
    return Sig2ProcessInfo(signature) == 0;
}

static std::int32_t reach(OSType signature, bool* launched, std::uint16_t controlFlags) {
    platform::ProcessSerialNumber process = platform::noProcess;
    return SignatureToApp(signature, nullptr, &process, nullptr, launched, kUseRunning, controlFlags);
}

std::int32_t MakeSureAppIsRunning(OSType signature, bool* launched) {
    return reach(signature, launched, kLaunchContinue | kLaunchDontSwitch);
}

std::int32_t BringApplicationForward(OSType signature, bool* launched) {
    return reach(signature, launched, kLaunchContinue);
}

std::int32_t BringMeForward(OSType signature) {
    platform::Processes& processes = platform::machine().processes();
    platform::ProcessSerialNumber host = platform::noProcess;
    platform::Status status = processes.current(host);
    if (status == platform::noErr) {
        status = processes.setFront(host);
    }
    static_cast<void>(AskOtherApplicationToBringMeForward(signature));
    return status;
}

std::int32_t AskOtherApplicationToBringMeForward(OSType signature) {
    if (signature == 0 || !AppIsRunning(signature)) {
        return 0;
    }
    DisposeOutgoingMessageParameterList(kStdBehaviorList);
    char own[5];
    if (GetGlobalInListAsStr("App Signature", own, sizeof own) != 0) {
        return 1;
    }
    return SendStdMessage(signature, {{"MSSG", "FRWD"}, {"WHO ", own}, {"NAME", ""}});
}

std::int32_t SendMessageToApp(OSType signature, short selector) {
    return SendMessageFromOutgoingMessageParameters(signature, selector);
}

void SayHolaToAllFriends() {
    for (const Friend& record : sFriend) {
        const OSType signature = record.signature;
        if (signature != 0 && AppIsRunning(signature)) {
            static_cast<void>(GreetFriendAndSendMenus(signature, "HOLA", false));
        }
    }
}

void SayGoodbyeToAllFriends() {
    for (const Friend& record : sFriend) {
        if (record.signature != 0) {
            static_cast<void>(SayGoodbye(record.signature));
        }
    }
}

}  // namespace quil
