// A scripted machine over a temporary folder: the volume "Disk" with the host application at
// "Disk:Apps:Host.app:Contents:MacOS:Host", the resources of the source tree as the current bundle, and the plug-in's
// state as at load. Folder and machine go with the test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"

namespace support {

inline constexpr char kHostPath[] = "Disk:Apps:Host.app:Contents:MacOS:Host";

class MachineFixture : public ::testing::Test {
  protected:
    MachineFixture();
    ~MachineFixture() override;

    // Directory of the volume "Disk", without a closing '/'.
    const std::string& disk() const { return disk_; }
    // POSIX path of what lies at `relative` (with '/') on the volume.
    std::string posix(std::string_view relative) const { return disk_ + "/" + std::string(relative); }

    void makeFolder(std::string_view relative) const;
    void putFile(std::string_view relative, std::string_view content) const;
    // The bytes of a file; "(missing)" when there is none.
    std::string fileText(std::string_view relative) const;
    bool isThere(std::string_view relative) const;

    platform::ScriptedMachine& machine() { return *machine_; }
    // The messages of the alerts shown since the last call; forgets all effects.
    std::vector<std::string> takeMessages();

  private:
    std::string root_;
    std::string disk_;
    std::unique_ptr<platform::Bundle> bundle_;
    std::unique_ptr<platform::Files> files_;
    std::unique_ptr<platform::Resources> resources_;
    std::unique_ptr<platform::ScriptedMachine> machine_;
    platform::Machine* before_ = nullptr;
};

// Installs another machine for as long as it lives.
class MachineScope {
  public:
    explicit MachineScope(platform::Machine& machine) : before_(platform::installMachine(&machine)) {}
    ~MachineScope() { platform::installMachine(before_); }
    MachineScope(const MachineScope&) = delete;
    MachineScope& operator=(const MachineScope&) = delete;

  private:
    platform::Machine* before_;
};

}  // namespace support
