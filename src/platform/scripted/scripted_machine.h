// The scripted machine: real files, and everything else is what a test or an automation request says it is. What the
// plug-in does to it is recorded as effects.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine.h"
#include "platform/memory_windows.h"

namespace platform {

struct AlertEffect {
    char kind = 'M';
    std::string heading;
    std::string message;
    std::vector<std::string> buttons;  // visible ones
    std::int16_t defaultItem = 1;
    std::int16_t cancelItem = 1;
    std::int16_t pressed = 1;
};

struct ChooserEffect {
    Chooser::Kind kind = Chooser::Kind::read;
    std::string title;
    std::string proposed;
};

struct DrawnEffect {
    std::string window;
    std::string text;
    std::optional<double> fraction;
};

// What the plug-in did since the effects were last taken, each kind in order.
struct Effects {
    std::vector<AlertEffect> alerts;
    int beeps = 0;
    std::vector<std::string> scripts;   // asked of the host by misc/dosc events sent to itself
    std::vector<Event> sent;            // the other events
    std::vector<std::string> launched;  // classic paths
    std::vector<OSType> fronted;
    std::vector<ChooserEffect> choosers;
    std::vector<DrawnEffect> drawn;
};

struct RunningApplication {
    OSType signature = 0;
    std::string path;  // classic
};

struct Launch {
    OSType signature = 0;
    std::uint32_t afterSeconds = 0;  // runs once the plug-in has waited so long since the launch
};

struct ScriptedChoice {
    std::string folder;  // classic path with closing ':'
    std::string name;
};

// After `after` calls of the operation have passed, the next `times` calls of it fail with `status`.
struct Fault {
    std::string operation;  // finderInfo, open, size, seek, read, write, create, delete, send, launch, front
    Status status = 0;
    std::uint32_t times = 1;
    std::uint32_t after = 0;
};

// Whether `operation` is one that a fault can name.
bool isFaultOperation(std::string_view operation);

// The state that requests set. Fields as in the automation interface's `machine` method.
struct ScriptedState {
    std::optional<std::uint32_t> ticks;   // none: the real clock
    std::optional<std::int64_t> seconds;  // none: the real clock
    std::uint32_t doubleClickTicks = 30;
    Point mouse;
    std::vector<RunningApplication> running;            // beside the host, which always runs
    std::map<std::string, Launch> launches;             // by classic path
    std::deque<std::int16_t> answers;                   // buttons of the coming alerts
    std::deque<std::optional<ScriptedChoice>> choices;  // of the coming choosers; none: cancel
    std::vector<Fault> faults;
};

struct ScriptedOptions {
    std::string application;      // classic path of the host's executable
    OSType signature = "FMP7"_4;  // the host's own
};

class ScriptedMachine : public Machine {
  public:
    // `files` and `resources` do the real work and must outlive the machine.
    ScriptedMachine(Files& files, Resources& resources, const ScriptedOptions& options);
    ~ScriptedMachine() override;
    ScriptedMachine(const ScriptedMachine&) = delete;
    ScriptedMachine& operator=(const ScriptedMachine&) = delete;

    Files& files() override;
    Events& events() override;
    Processes& processes() override;
    Dialogs& dialogs() override;
    Windows& windows() override;
    Menus& menus() override;
    Input& input() override;
    Resources& resources() override;

    ScriptedState& state();
    MemoryWindows& memoryWindows();
    MemoryMenus& memoryMenus();

    // Hands an event to the installed handler: its status, or errAEEventNotHandled when there is none for it.
    Status deliver(const Event& event);
    // The effects so far; forgets them.
    Effects takeEffects();

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace platform
