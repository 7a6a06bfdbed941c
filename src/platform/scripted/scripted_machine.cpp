#include "platform/scripted/scripted_machine.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <utility>

#include "platform/scripted/scripted_parts.h"
#include "platform/tick_clock.h"

namespace platform {

static constexpr std::array<std::string_view, 11> kFaultOperations = {
    "finderInfo", "open", "size", "seek", "read", "write", "create", "delete", "send", "launch", "front"};

bool isFaultOperation(std::string_view operation) {
    return std::find(kFaultOperations.begin(), kFaultOperations.end(), operation) != kFaultOperations.end();
}

Status ScriptedShared::meetFault(std::string_view operation) {
    for (auto fault = state.faults.begin(); fault != state.faults.end(); ++fault) {
        if (fault->operation != operation || fault->times == 0) {
            continue;
        }
        if (fault->after != 0) {
            --fault->after;
            return noErr;
        }
        const Status status = fault->status;
        if (--fault->times == 0) {
            state.faults.erase(fault);
        }
        return status;
    }
    return noErr;
}

void ScriptedWindows::drawProgress(WindowRef window, const ProgressBox& box) {
    shared_.effects.drawn.push_back({title(window), box.text, box.fraction});
}

std::uint32_t ScriptedInput::ticks() {
    return shared_.state.ticks ? *shared_.state.ticks : tickCount();
}

std::int64_t ScriptedInput::seconds() {
    return shared_.state.seconds ? *shared_.state.seconds : static_cast<std::int64_t>(::time(nullptr));
}

std::uint32_t ScriptedInput::doubleClickTicks() {
    return shared_.state.doubleClickTicks;
}

Point ScriptedInput::mouse() {
    return shared_.state.mouse;
}

void ScriptedInput::wait(std::uint32_t ticks) {
    if (shared_.state.ticks) {
        *shared_.state.ticks += ticks;
    } else {
        waitTicks(ticks);
    }
    shared_.passTime(ticks);
}

struct ScriptedMachine::Parts {
    Parts(Files& realFiles, Resources& bundleResources, const ScriptedOptions& options)
        : shared(realFiles, options), resources(bundleResources) {}

    ScriptedShared shared;
    ScriptedFiles files{shared};
    ScriptedEvents events{shared};
    ScriptedProcesses processes{shared};
    ScriptedDialogs dialogs{shared};
    ScriptedWindows windows{shared};
    MemoryMenus menus;
    ScriptedInput input{shared};
    Resources& resources;
};

ScriptedMachine::ScriptedMachine(Files& files, Resources& resources, const ScriptedOptions& options)
    : parts_(std::make_unique<Parts>(files, resources, options)) {}

ScriptedMachine::~ScriptedMachine() = default;

Files& ScriptedMachine::files() {
    return parts_->files;
}
Events& ScriptedMachine::events() {
    return parts_->events;
}
Processes& ScriptedMachine::processes() {
    return parts_->processes;
}
Dialogs& ScriptedMachine::dialogs() {
    return parts_->dialogs;
}
Windows& ScriptedMachine::windows() {
    return parts_->windows;
}
Menus& ScriptedMachine::menus() {
    return parts_->menus;
}
Input& ScriptedMachine::input() {
    return parts_->input;
}
Resources& ScriptedMachine::resources() {
    return parts_->resources;
}

ScriptedState& ScriptedMachine::state() {
    return parts_->shared.state;
}
MemoryWindows& ScriptedMachine::memoryWindows() {
    return parts_->windows;
}
MemoryMenus& ScriptedMachine::memoryMenus() {
    return parts_->menus;
}

Status ScriptedMachine::deliver(const Event& event) {
    return parts_->events.deliver(event);
}

Effects ScriptedMachine::takeEffects() {
    return std::exchange(parts_->shared.effects, Effects{});
}

}  // namespace platform
