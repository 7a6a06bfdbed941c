#include "messaging/hooks.h"

#include <algorithm>
#include <iterator>

#include "frame/modules.h"
#include "menu/menu.h"
#include "messaging/friends.h"
#include "messaging/globals.h"
#include "messaging/message_functions.h"
#include "messaging/script_queue.h"
#include "messaging/standard_messages.h"
#include "messaging/transport.h"
#include "platform/machine.h"
#include "util/running_flag.h"

namespace quil {

// State of this file.
std::uint32_t gLastSentDoScriptTicks = 0;         // when the message-handling script was last queued
static std::uint8_t sInMessagingPlugin_Idle = 0;  // the idle hook is running

void GLN1_Plugin_Startup() {
    InitDataLists();
    CreateStartupGlobals();
}

bool HaveUnprocessedIacOrDoubleClickMessage() {
    return HaveDoubleClickString() || std::any_of(std::begin(gArchivedIncomingMessageParameterDataNodeList),
                                                  std::end(gArchivedIncomingMessageParameterDataNodeList),
                                                  [](const DataNode* message) { return message != nullptr; });
}

void GLN1_Plugin_Idle() {
    if (sInMessagingPlugin_Idle != 0) {
        return;
    }
    const RunningFlag running(sInMessagingPlugin_Idle);
    if (HaveUnprocessedIacOrDoubleClickMessage() && !HaveDeferedScript()) {
        char script[256];
        GetGlobalInListAsStr("Handle Message Script", script, sizeof script);
        AddScriptToDoScriptQueue(script);
        gLastSentDoScriptTicks = platform::machine().input().ticks();
    }
    ProcessDoScriptQueue();
}

void GLN1_Plugin_Shutdown() {
    SayGoodbyeToAllFriends();
    DisposeDataLists();
    RemoveIac();  // the host may unload the code from here on
}

void ResetMessaging() {
    ResetNamedLists();
    ResetScriptQueue();
    ResetTransport();
    ResetFriends();
    ResetStandardMessages();
    ResetMessageFunctions();
    gLastSentDoScriptTicks = 0;
    sInMessagingPlugin_Idle = 0;
}

}  // namespace quil
