// The `machine` method: what a request says about the scripted machine.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "platform/scripted/scripted_machine.h"

namespace host {

// Reads the whole of `params` and only then changes the machine. Throws RpcError, with nothing changed, for fields that
// are unknown, of the wrong type or out of range.
void changeMachine(const nlohmann::json& params, platform::ScriptedMachine& machine);

}  // namespace host
