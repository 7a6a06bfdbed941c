// Machines that stand in front of another one: as it is, or with the Nth file call failing.
#pragma once

#include <string>
#include <vector>

#include "platform/machine.h"

namespace support {

using platform::CatalogItem, platform::FileRef, platform::FInfo, platform::ForkPermission, platform::FSSpec;
using platform::OSType, platform::PosixMode, platform::Status;

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

    bool transfers = false;  // whether the machine may move bytes without reads and writes

    bool hasFailed() const { return !failed_.empty(); }
    const std::string& failedCall() const { return failed_; }  // name of the call that failed
    int openReferences() const { return open_; }

    Status makeSpec(std::int16_t vRefNum, std::int32_t dirID, std::string_view path, FSSpec& spec) override {
        return tried("makeSpec", [&] { return inner_.makeSpec(vRefNum, dirID, path, spec); });
    }
    Status openDataFork(const FSSpec& spec, ForkPermission permission, FileRef& ref) override {
        return opened(tried("openDataFork", [&] { return inner_.openDataFork(spec, permission, ref); }));
    }
    Status openPosix(std::string_view posixPath, PosixMode mode, FileRef& ref) override {
        return opened(tried("openPosix", [&] { return inner_.openPosix(posixPath, mode, ref); }));
    }
    Status replaceDataFork(const FSSpec& spec, OSType creator, OSType type, FileRef& ref) override {
        return opened(tried("replaceDataFork", [&] { return inner_.replaceDataFork(spec, creator, type, ref); }));
    }
    Status openForUpdate(const FSSpec& spec, FileRef& ref) override {
        return opened(tried("openForUpdate", [&] { return inner_.openForUpdate(spec, ref); }));
    }
    Status createCopy(FileRef source, const FSSpec& spec, OSType creator, OSType type, FileRef& ref) override {
        return opened(tried("createCopy", [&] { return inner_.createCopy(source, spec, creator, type, ref); }));
    }
    Status openCopy(FileRef ref) override {
        return tried("openCopy", [&] { return inner_.openCopy(ref); });
    }
    Status transfer(FileRef from, FileRef to, std::int64_t count, std::int64_t& moved) override {
        moved = 0;  // what is read and written can fail more often
        return tried("transfer", [&] { return transfers ? inner_.transfer(from, to, count, moved) : platform::noErr; });
    }
    Status getEOF(FileRef ref, std::int64_t& size) override {
        return tried("getEOF", [&] { return inner_.getEOF(ref, size); });
    }
    Status setPosition(FileRef ref, std::int64_t fromStart) override {
        return tried("setPosition", [&] { return inner_.setPosition(ref, fromStart); });
    }
    Status setPositionAtEnd(FileRef ref) override {
        return tried("setPositionAtEnd", [&] { return inner_.setPositionAtEnd(ref); });
    }
    Status read(FileRef ref, std::span<char> buffer, std::size_t& count) override {
        const bool failing = fails("read");
        count = 0;
        return failing && !fault_.shortTransfer
                   ? fault_.status
                   : inner_.read(ref, failing ? buffer.first(buffer.size() / 2) : buffer, count);
    }
    Status write(FileRef ref, std::span<const char> bytes, std::size_t& count) override {
        const bool failing = fails("write");
        count = 0;
        return failing && !fault_.shortTransfer
                   ? fault_.status
                   : inner_.write(ref, failing ? bytes.first(bytes.size() / 2) : bytes, count);
    }
    Status close(FileRef ref) override {
        // A close that fails has closed the file all the same, and put nothing in its place.
        const bool failing = fails("close");
        const Status status = closed(failing ? inner_.discard(ref) : inner_.close(ref));
        return failing ? fault_.status : status;
    }
    Status discard(FileRef ref) override { return closed(inner_.discard(ref)); }
    Status create(const FSSpec& spec, OSType creator, OSType type) override {
        return tried("create", [&] { return inner_.create(spec, creator, type); });
    }
    Status remove(const FSSpec& spec) override {
        return tried("remove", [&] { return inner_.remove(spec); });
    }
    Status getFinderInfo(const FSSpec& spec, FInfo& info) override {
        return tried("getFinderInfo", [&] { return inner_.getFinderInfo(spec, info); });
    }
    Status setFinderInfo(const FSSpec& spec, const FInfo& info) override {
        return tried("setFinderInfo", [&] { return inner_.setFinderInfo(spec, info); });
    }
    Status setLock(const FSSpec& spec, bool locked) override {
        return tried("setLock", [&] { return inner_.setLock(spec, locked); });
    }
    Status catalogItem(std::int16_t vRefNum, std::int32_t dirID, std::int32_t index, CatalogItem& item) override {
        return tried("catalogItem", [&] { return inner_.catalogItem(vRefNum, dirID, index, item); });
    }
    Status defaultFolder(std::int16_t& vRefNum, std::int32_t& dirID) override {
        return tried("defaultFolder", [&] { return inner_.defaultFolder(vRefNum, dirID); });
    }
    Status findFolder(OSType type, std::int16_t& vRefNum, std::int32_t& dirID) override {
        return tried("findFolder", [&] { return inner_.findFolder(type, vRefNum, dirID); });
    }
    Status posixPath(const FSSpec& spec, std::string& path) override {
        return tried("posixPath", [&] { return inner_.posixPath(spec, path); });
    }

  private:
    bool fails(const char* call) {
        if (++calls_ != fault_.call) {
            return false;
        }
        failed_ = call;
        return true;
    }
    template <typename Call>
    Status tried(const char* name, Call call) {
        return fails(name) ? fault_.status : call();
    }
    Status opened(Status status) {
        open_ += status == platform::noErr ? 1 : 0;
        return status;
    }
    Status closed(Status status) {
        open_ -= status == platform::noErr ? 1 : 0;
        return status;
    }

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
