#include "platform/scripted/scripted_machine.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>
#include <utility>

#include "platform/scripted/scripted_parts.h"

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
    if (shared_.state.ticks) {
        return *shared_.state.ticks;
    }
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 60>>;
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(std::chrono::duration_cast<Ticks>(now).count());
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
        // Slept to a nanosecond above the exact time, so that the counter has moved by all of the ticks.
        std::this_thread::sleep_for(std::chrono::nanoseconds(std::uint64_t{ticks} * 1'000'000'000 / 60 + 1));
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
