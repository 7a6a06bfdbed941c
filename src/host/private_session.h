// The plug-in on a machine of its own, as a filter uses it: alerts are kept as texts instead of shown, and the plug-in
// sees no folder of the user's but one that goes with the session.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/commands.h"
#include "host/plugin.h"
#include "platform/scripted/scripted_machine.h"

namespace host {

class PrivateSession {
  public:
    using MakeFiles = std::function<std::unique_ptr<platform::Files>(const platform::LinuxOptions&)>;

    // Throws HostError when the plug-in cannot be started. `withFolder`: makes the temporary folder.
    PrivateSession(const Context& context, bool withFolder, const MakeFiles& makeFiles = platform::makeLinuxFiles);
    ~PrivateSession();
    PrivateSession(const PrivateSession&) = delete;
    PrivateSession& operator=(const PrivateSession&) = delete;

    // The temporary folder, which is the volume "Work" and the application's own folder.
    const std::string& folder() const { return folder_.path; }

    // QUIL_External(name; parameter).
    std::string call(std::string_view name, std::string_view parameter);
    // The same for a function that has no answer.
    void tell(std::string_view name, std::string_view parameter);
    // The same for a function that shows an alert when it fails: throws HostError with the alert's text.
    std::string callChecked(std::string_view name, std::string_view parameter);
    // The texts of the alerts since the last call of this, as one line; empty when there were none.
    std::string alerts();

  private:
    static void check(fmx::errcode code, std::string_view name);

    struct Folder {
        explicit Folder(bool wanted);
        ~Folder();
        Folder(const Folder&) = delete;
        Folder& operator=(const Folder&) = delete;
        std::string path;
    };

    Folder folder_;
    std::unique_ptr<platform::Files> files_;
    std::unique_ptr<platform::Resources> resources_;
    platform::ScriptedMachine machine_;
    struct Installed {
        explicit Installed(platform::Machine& machine) : previous(platform::installMachine(&machine)) {}
        ~Installed() { platform::installMachine(previous); }
        Installed(const Installed&) = delete;
        Installed& operator=(const Installed&) = delete;
        platform::Machine* previous;
    } installed_;
    Plugin plugin_;
};

// Reads a file whole; "-" is standard input. Shows how far it is. Throws HostError that names it.
std::string readInput(const std::string& path);

// One line on standard error, only when that is a terminal and the work is long; gone at the end. `ofOutput`: the work
// is to write to standard output, which needs no line where people see it grow.
class ProgressLine {
  public:
    explicit ProgressLine(std::string what, bool ofOutput = false);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    // To be called often: looks at the clock only now and then.
    void show(std::size_t done, std::size_t total) {
        if (terminal_ && (done & 0xFFF) == 0) {
            draw(done, total);
        }
    }
    // The same for calls that have work between them. A total of 0 is one that is not known.
    void showNow(std::size_t done, std::size_t total) {
        if (terminal_) {
            draw(done, total);
        }
    }
    // For work of one step, which is known to be long: draws the line at once, without per cent.
    void showAtOnce();

  private:
    void draw(std::size_t done, std::size_t total);
    void put(const std::string& amount);

    std::string what_;
    bool terminal_;
    bool drawn_ = false;
    double start_;
    double last_;
};

}  // namespace host
