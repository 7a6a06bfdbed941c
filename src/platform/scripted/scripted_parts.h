// The managers of the scripted machine and the state that they share.
#pragma once

#include <string_view>
#include <utility>
#include <vector>

#include "platform/scripted/scripted_machine.h"

namespace platform {

// What every scripted manager looks at.
struct ScriptedShared {
    ScriptedShared(Files& realFiles, ScriptedOptions machineOptions)
        : options(std::move(machineOptions)), files(realFiles) {}

    ScriptedOptions options;
    Files& files;  // the real ones: the machine's own look-ups meet no faults
    ScriptedState state;
    Effects effects;

    struct PendingLaunch {
        RunningApplication application;
        std::uint64_t ticksLeft = 0;
    };
    std::vector<PendingLaunch> pending;

    // Counts a call of the operation: the status with which it has to fail, or noErr.
    Status meetFault(std::string_view operation);
    // Lets launches come nearer that wait for time to pass.
    void passTime(std::uint32_t ticks);
    bool isRunning(OSType signature) const;
};

class ScriptedFiles : public Files {
  public:
    explicit ScriptedFiles(ScriptedShared& shared) : shared_(shared), files_(shared.files) {}

    Status makeSpec(std::int16_t vRefNum, std::int32_t dirID, std::string_view path, FSSpec& spec) override;
    Status openDataFork(const FSSpec& spec, ForkPermission permission, FileRef& ref) override;
    Status openPosix(std::string_view posixPath, PosixMode mode, FileRef& ref) override;
    Status replaceDataFork(const FSSpec& spec, OSType creator, OSType type, FileRef& ref) override;
    Status openForUpdate(const FSSpec& spec, FileRef& ref) override;
    Status createCopy(FileRef source, const FSSpec& spec, OSType creator, OSType type, FileRef& ref) override;
    Status openCopy(FileRef ref) override;
    Status transfer(FileRef from, FileRef to, std::int64_t count, std::int64_t& moved) override;
    Status getEOF(FileRef ref, std::int64_t& size) override;
    Status setPosition(FileRef ref, std::int64_t fromStart) override;
    Status setPositionAtEnd(FileRef ref) override;
    Status read(FileRef ref, std::span<char> buffer, std::size_t& count) override;
    Status write(FileRef ref, std::span<const char> bytes, std::size_t& count) override;
    Status close(FileRef ref) override;
    Status discard(FileRef ref) override;
    Status create(const FSSpec& spec, OSType creator, OSType type) override;
    Status remove(const FSSpec& spec) override;
    Status getFinderInfo(const FSSpec& spec, FInfo& info) override;
    Status setFinderInfo(const FSSpec& spec, const FInfo& info) override;
    Status setLock(const FSSpec& spec, bool locked) override;
    Status catalogItem(std::int16_t vRefNum, std::int32_t dirID, std::int32_t index, CatalogItem& item) override;
    Status defaultFolder(std::int16_t& vRefNum, std::int32_t& dirID) override;
    Status findFolder(OSType type, std::int16_t& vRefNum, std::int32_t& dirID) override;
    Status posixPath(const FSSpec& spec, std::string& path) override;

  private:
    ScriptedShared& shared_;
    Files& files_;
};

class ScriptedEvents : public Events {
  public:
    explicit ScriptedEvents(ScriptedShared& shared) : shared_(shared) {}

    Status installHandler(OSType eventClass, OSType eventID, EventHandler handler, long reference) override;
    Status send(const Event& event) override;
    Status deliver(const Event& event);

  private:
    struct Installed {
        EventHandler handler = nullptr;
        long reference = 0;
    };

    ScriptedShared& shared_;
    std::map<std::pair<OSType, OSType>, Installed> handlers_;
};

// The host is process 1, the others follow in the order of the state's list.
class ScriptedProcesses : public Processes {
  public:
    explicit ScriptedProcesses(ScriptedShared& shared) : shared_(shared) {}

    Status current(ProcessSerialNumber& process) override;
    Status next(ProcessSerialNumber& process) override;
    Status information(ProcessSerialNumber process, ProcessInfo& info) override;
    Status signature(ProcessSerialNumber process, OSType& signature) override;
    std::string currentApplicationName() override;
    Status launch(const FSSpec& application, std::uint16_t controlFlags, ProcessSerialNumber& process) override;
    Status setFront(ProcessSerialNumber process) override;

  private:
    std::string classicPath(const FSSpec& spec);

    ScriptedShared& shared_;
};

class ScriptedDialogs : public Dialogs {
  public:
    explicit ScriptedDialogs(ScriptedShared& shared) : shared_(shared) {}

    std::int16_t textHeight(std::string_view text, std::int16_t width) override;
    void drawTextBox(Dialog& dialog, std::string_view text, Rect rect) override;
    std::int16_t runModal(Dialog& dialog) override;
    ChooserOutcome choose(const Chooser& chooser, Choice& choice, Status& error) override;
    void beep() override;

  private:
    ScriptedShared& shared_;
};

class ScriptedWindows : public MemoryWindows {
  public:
    explicit ScriptedWindows(ScriptedShared& shared) : shared_(shared) {}
    void drawProgress(WindowRef window, const ProgressBox& box) override;

  private:
    ScriptedShared& shared_;
};

class ScriptedInput : public Input {
  public:
    explicit ScriptedInput(ScriptedShared& shared) : shared_(shared) {}

    std::uint32_t ticks() override;
    std::int64_t seconds() override;
    std::uint32_t doubleClickTicks() override;
    Point mouse() override;
    void wait(std::uint32_t ticks) override;

  private:
    ScriptedShared& shared_;
};

}  // namespace platform
