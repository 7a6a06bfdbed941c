// The partner applications that the plug-in knows: up to six friends by signature, and reaching their processes.
//
// Codes: 0 success, 1 (AskOtherApplicationToBringMeForward) the own signature is longer than four characters; others
// are the transport's and the machine's.
#pragma once

#include <cstdint>

#include "util/text.h"

namespace quil {

inline constexpr OSType kGeolens = "GLN1"_4;  // the mapping application
inline constexpr OSType kSiroc = "SRC5"_4;    // the dispersion-model application

// Registers a friend, or updates the one that has the signature or the psig. `utf8`: 1 it reads UTF-8, -1 it does not,
// 0 not known; a friend that is new stays "not known" until it is added again. An empty hwnd leaves the old one. With
// six friends a seventh is ignored.
void AddFriend(OSType signature, OSType psig, const char* path, const char* hwnd, short utf8);
OSType ConnvertIfPSIG(OSType code);  // a friend's psig to its signature (the name is spelled so)
// Path of the friend with that signature or psig, empty when there is none; `buffer` holds 256 bytes.
void GetFriendsPath(OSType code, char* buffer);
short FriendCanUseUtf8Iac(OSType signature);  // by signature alone

// What stands in a path behind its last '\', ':' and '/'; `buffer` holds 256 bytes.
void strcpyAppNameFromPath(char* buffer, const char* path);
bool LooksLikeOldGeolens(const char* path);
bool LooksLikeNewGeolens(const char* path);
short GuessCanUseUtf8IacFromPath(const char* path);  // 1 or 0
void my_str2upper(char* text);                       // in place

bool AppIsRunning(OSType signature);
// Each launches when needed; the second also brings the application to the front.
std::int32_t MakeSureAppIsRunning(OSType signature, bool* launched);
std::int32_t BringApplicationForward(OSType signature, bool* launched);
// Brings the host to the front, itself and by asking the application. The status of the former.
std::int32_t BringMeForward(OSType signature);
std::int32_t AskOtherApplicationToBringMeForward(OSType signature);  // nothing when it does not run

// Sends the outgoing list of the selector.
std::int32_t SendMessageToApp(OSType signature, short selector);

// Greetings and farewells to friends that run.
void SayHolaToAllFriends();
void SayGoodbyeToAllFriends();

// Forgets all friends.
void ResetFriends();

}  // namespace quil
