// The hooks of the messaging module and what they look at.
#pragma once

#include <cstdint>

namespace quil {

// When the idle hook last queued the message-handling script, in ticks; kept for the record.
extern std::uint32_t gLastSentDoScriptTicks;

// Whether one of the waiting slots holds a message, or a double click's message was found and not yet read.
bool HaveUnprocessedIacOrDoubleClickMessage();

// Puts the state of the whole module back to what it is at load.
void ResetMessaging();

}  // namespace quil
