// Machines that stand in front of another one: as it is, or with the Nth file call failing.
#pragma once

#include <string>
#include <vector>

#include "platform/machine.h"

namespace support {

// Hands everything on; a test overrides the manager that it wants its own.
class WrappingMachine : public platform::Machine {
  public:
    explicit WrappingMachine(platform::Machine& inner) : inner_(inner) {}

    platform::Files& files() override { return inner_.files(); }
    platform::Events& events() override { return inner_.events(); }
    platform::Processes& processes() override { return inner_.processes(); }
    platform::Dialogs& dialogs() override { return inner_.dialogs(); }
    platform::Windows& windows() override { return inner_.windows(); }
    platform::Menus& menus() override { return inner_.menus(); }
    platform::Input& input() override { return inner_.input(); }
    platform::Resources& resources() override { return inner_.resources(); }

  private:
    platform::Machine& inner_;
};

// Which call fails, and how.
struct FileFault {
    int call = 0;  // from 1; 0: none
    platform::Status status = platform::ioErr;
    bool shortTransfer = false;  // reads and writes move half of the bytes instead, and say so with success
};

// Real files, of which one call fails. Counts calls and open references.
class FailingFiles : public platform::Files {
  public:
    FailingFiles(platform::Files& inner, const FileFault& fault) : inner_(inner), fault_(fault) {}

    bool hasFailed() const { return !failed_.empty(); }
    const std::string& failedCall() const { return failed_; }  // name of the call that failed
    int openReferences() const { return open_; }

    platform::Status makeSpec(std::int16_t vRefNum, std::int32_t dirID, std::string_view path,
                              platform::FSSpec& spec) override;
    platform::Status openDataFork(const platform::FSSpec& spec, platform::ForkPermission permission,
                                  platform::FileRef& ref) override;
    platform::Status openPosix(std::string_view posixPath, platform::PosixMode mode, platform::FileRef& ref) override;
    platform::Status replaceDataFork(const platform::FSSpec& spec, platform::OSType creator, platform::OSType type,
                                     platform::FileRef& ref) override;
    platform::Status getEOF(platform::FileRef ref, std::int64_t& size) override;
    platform::Status setPosition(platform::FileRef ref, std::int64_t fromStart) override;
    platform::Status setPositionAtEnd(platform::FileRef ref) override;
    platform::Status read(platform::FileRef ref, std::span<char> buffer, std::size_t& count) override;
    platform::Status write(platform::FileRef ref, std::span<const char> bytes, std::size_t& count) override;
    platform::Status close(platform::FileRef ref) override;
    platform::Status discard(platform::FileRef ref) override;
    platform::Status create(const platform::FSSpec& spec, platform::OSType creator, platform::OSType type) override;
    platform::Status remove(const platform::FSSpec& spec) override;
    platform::Status getFinderInfo(const platform::FSSpec& spec, platform::FInfo& info) override;
    platform::Status setFinderInfo(const platform::FSSpec& spec, const platform::FInfo& info) override;
    platform::Status setLock(const platform::FSSpec& spec, bool locked) override;
    platform::Status catalogItem(std::int16_t vRefNum, std::int32_t dirID, std::int32_t index,
                                 platform::CatalogItem& item) override;
    platform::Status defaultFolder(std::int16_t& vRefNum, std::int32_t& dirID) override;
    platform::Status findFolder(platform::OSType type, std::int16_t& vRefNum, std::int32_t& dirID) override;
    platform::Status posixPath(const platform::FSSpec& spec, std::string& path) override;

  private:
    bool fails(const char* call);
    platform::Status opened(platform::Status status);

    platform::Files& inner_;
    FileFault fault_;
    int calls_ = 0;
    int open_ = 0;
    std::string failed_;
};

class FailingMachine : public WrappingMachine {
  public:
    FailingMachine(platform::Machine& inner, const FileFault& fault)
        : WrappingMachine(inner), files_(inner.files(), fault) {}

    FailingFiles& files() override { return files_; }

  private:
    FailingFiles files_;
};

// For call 1, 2, ...: `round` runs its script on a machine of which that call fails, until a round passes without a
// failing call. Returns the number of rounds; a round that never ends is stopped after 1000.
template <typename Round>
int sweepFileCalls(platform::Machine& inner, FileFault fault, Round round) {
    for (fault.call = 1; fault.call <= 1000; ++fault.call) {
        FailingMachine machine(inner, fault);
        round(machine);
        if (!machine.files().hasFailed()) {
            break;
        }
    }
    return fault.call;
}

}  // namespace support
