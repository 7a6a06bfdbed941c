// Standard messages: those that the plug-in composes itself (greetings, sharing menus, map folders, answers), and what
// it does by itself when a message arrives.
//
// Codes: 0 success, -234 the partner does not run, -3 all map folders are in use, 1 no message for that action; others
// are those of the lists and the transport.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "messaging/named_lists.h"

namespace quil {

inline constexpr std::size_t kHandledMessages = 30;
inline constexpr std::size_t kMenuActions = 10;
inline constexpr std::size_t kMapFolders = 5;

// A menu that a partner shows for the solution.
struct SharingMenu {
    char name[64];
    char items[512];                     // as the partner expects them
    std::int16_t actions[kMenuActions];  // standard actions of items 1 to 10
};

// A folder with maps for the mapping application.
struct MapFolder {
    char folder[256];  // empty: the record is free
    char options[256];
};

// Standard actions.
inline constexpr std::int16_t kGetInfo = 1;
inline constexpr std::int16_t kGoToMe = 2;
inline constexpr std::int16_t kGetInfoFile = 3;
inline constexpr std::int16_t kGetRidsInfo = 4;
inline constexpr std::int16_t kLink = 5;
inline constexpr std::int16_t kUnlink = 6;
std::int16_t StringToStdAction(const char* word);  // 0 for any other word

// What scripts set and the messages tell.
extern OSType sHandledMessage[kHandledMessages];  // messages that the solution has a script for; 0: empty entry
extern SharingMenu sGeolensMenuInfo;
extern SharingMenu sSirocMenuInfo;
extern MapFolder sGeolensMapInfo[kMapFolders];
extern char sGeolensFirstViewLLAT[32];
extern char sGeolensFirstViewLLNG[32];
extern char sGeolensFirstViewHLAT[32];
extern char sGeolensFirstViewHLNG[32];
// Alerts, empty for none. Nothing shows the last one.
extern char sGeolensZeroYRODGetInfoMessage[256];
extern char sGeolensZeroYRODUnlinkMessage[256];
extern char sGeolensZeroYRODLinkMessage[256];
extern char sGeolensMoreThanOneYRODLinkMessage[256];
extern char sSirocNoChemicalSelectedMessage[256];

// Adds parameters to the standard-behaviour list and sends it.
struct StdParameter {
    const char* name;
    const char* text;
};
std::int32_t SendStdMessage(OSType receiver, std::initializer_list<StdParameter> parameters);

std::int32_t SendStdGreetingTo(OSType signature, const char* name);  // name: "HOLA" or "OKHI"
std::int32_t SendMenuToSiroc();                                      // beeps when it cannot be sent
std::int32_t SendMenuAndMapsToGeolens();
std::int32_t SendFirstViewToGeolens();
// A greeting, and behind it what the partner has to know. The first failure; without the greeting nothing else is sent.
std::int32_t GreetFriendAndSendMenus(OSType signature, const char* name, bool firstView);
std::int32_t SendStdMYODToGeolens(std::int16_t action);  // asks for the selected objects
std::int32_t SendStdCHMQToSIROC();                       // asks for the selected chemical
std::int32_t SendStopAlertToGeolens(const char* text);
std::int32_t SayGoodbye(OSType signature);  // to a partner that runs

// Does what is to be done by itself for an arriving message. `consumed`: it needs nothing further.
std::int32_t HandleKnownMessage(OSType message, DataNode* parameters, bool* consumed);
bool HaveFilemakerScriptForMessage(OSType message);

// Forgets what scripts have set.
void ResetStandardMessages();

}  // namespace quil
