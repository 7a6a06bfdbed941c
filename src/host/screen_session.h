// The plug-in as the commands about screening use it.
#pragma once

#include <memory>
#include <string>

#include "host/commands.h"
#include "host/screening_run.h"
#include "platform/scripted/scripted_machine.h"

namespace host {

// The plug-in on a machine that keeps its alerts instead of showing them.
class ScreeningSession {
  public:
    // Throws HostError when the plug-in cannot be started.
    explicit ScreeningSession(Context& context);
    ~ScreeningSession();
    ScreeningSession(const ScreeningSession&) = delete;
    ScreeningSession& operator=(const ScreeningSession&) = delete;

    // Valid while the session lives.
    Calculator calculator();
    // QUIL_Version.
    std::string version();

  private:
    std::unique_ptr<platform::Files> files_;
    std::unique_ptr<platform::Resources> resources_;
    platform::ScriptedMachine machine_;
    platform::Machine* previous_;
    std::unique_ptr<Plugin> plugin_;
};

}  // namespace host
