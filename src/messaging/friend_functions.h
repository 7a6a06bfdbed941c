// Script functions about partner applications: friends, sharing menus, map folders, alerts, bringing to the front.
#pragma once

#include <cstdint>

namespace quil {

std::int32_t GLN1SetKnownFriend(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetHandledMessages(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetMessageHandlingScriptTo(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGeolensSharingMenu(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetSirocSharingMenu(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGeolensSharingMenuActions(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetSirocSharingMenuActions(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGeolensNoneSelectedGetInfoAlert(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGeolensNoneSelectedUnlinkAlert(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGeolensNoneSelectedLinkAlert(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGeolensMoreThanOneSelectedLinkAlert(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetSirocNoneSelectedGetInfoAlert(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGeolensMapInfo(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetGeolensFirstView(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GeolensCanAutoplot(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1BringMeForward(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GoToApp(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1IsAppRunning(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SayGoodbyeToAllFriends(long funcNum, char** paramHandle, char** resultHandle);

}  // namespace quil
