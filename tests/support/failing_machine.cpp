#include "support/failing_machine.h"

namespace support {

using namespace platform;

bool FailingFiles::fails(const char* call) {
    if (++calls_ != fault_.call) {
        return false;
    }
    failed_ = call;
    return true;
}

Status FailingFiles::opened(Status status) {
    open_ += status == noErr ? 1 : 0;
    return status;
}

Status FailingFiles::makeSpec(std::int16_t vRefNum, std::int32_t dirID, std::string_view path, FSSpec& spec) {
    return fails("makeSpec") ? fault_.status : inner_.makeSpec(vRefNum, dirID, path, spec);
}

Status FailingFiles::openDataFork(const FSSpec& spec, ForkPermission permission, FileRef& ref) {
    return fails("openDataFork") ? fault_.status : opened(inner_.openDataFork(spec, permission, ref));
}

Status FailingFiles::openPosix(std::string_view posixPath, PosixMode mode, FileRef& ref) {
    return fails("openPosix") ? fault_.status : opened(inner_.openPosix(posixPath, mode, ref));
}

Status FailingFiles::replaceDataFork(const FSSpec& spec, OSType creator, OSType type, FileRef& ref) {
    return fails("replaceDataFork") ? fault_.status : opened(inner_.replaceDataFork(spec, creator, type, ref));
}

Status FailingFiles::getEOF(FileRef ref, std::int64_t& size) {
    return fails("getEOF") ? fault_.status : inner_.getEOF(ref, size);
}

Status FailingFiles::setPosition(FileRef ref, std::int64_t fromStart) {
    return fails("setPosition") ? fault_.status : inner_.setPosition(ref, fromStart);
}

Status FailingFiles::setPositionAtEnd(FileRef ref) {
    return fails("setPositionAtEnd") ? fault_.status : inner_.setPositionAtEnd(ref);
}

Status FailingFiles::read(FileRef ref, std::span<char> buffer, std::size_t& count) {
    if (!fails("read")) {
        return inner_.read(ref, buffer, count);
    }
    count = 0;
    return fault_.shortTransfer ? inner_.read(ref, buffer.first(buffer.size() / 2), count) : fault_.status;
}

Status FailingFiles::write(FileRef ref, std::span<const char> bytes, std::size_t& count) {
    if (!fails("write")) {
        return inner_.write(ref, bytes, count);
    }
    count = 0;
    return fault_.shortTransfer ? inner_.write(ref, bytes.first(bytes.size() / 2), count) : fault_.status;
}

Status FailingFiles::close(FileRef ref) {
    // A close that fails has closed the file all the same, and put nothing in its place.
    const bool failing = fails("close");
    const Status status = failing ? inner_.discard(ref) : inner_.close(ref);
    open_ -= status == noErr ? 1 : 0;
    return failing ? fault_.status : status;
}

Status FailingFiles::discard(FileRef ref) {
    const Status status = inner_.discard(ref);
    open_ -= status == noErr ? 1 : 0;
    return status;
}

Status FailingFiles::create(const FSSpec& spec, OSType creator, OSType type) {
    return fails("create") ? fault_.status : inner_.create(spec, creator, type);
}

Status FailingFiles::remove(const FSSpec& spec) {
    return fails("remove") ? fault_.status : inner_.remove(spec);
}

Status FailingFiles::getFinderInfo(const FSSpec& spec, FInfo& info) {
    return fails("getFinderInfo") ? fault_.status : inner_.getFinderInfo(spec, info);
}

Status FailingFiles::setFinderInfo(const FSSpec& spec, const FInfo& info) {
    return fails("setFinderInfo") ? fault_.status : inner_.setFinderInfo(spec, info);
}

Status FailingFiles::setLock(const FSSpec& spec, bool locked) {
    return fails("setLock") ? fault_.status : inner_.setLock(spec, locked);
}

Status FailingFiles::catalogItem(std::int16_t vRefNum, std::int32_t dirID, std::int32_t index, CatalogItem& item) {
    return fails("catalogItem") ? fault_.status : inner_.catalogItem(vRefNum, dirID, index, item);
}

Status FailingFiles::defaultFolder(std::int16_t& vRefNum, std::int32_t& dirID) {
    return fails("defaultFolder") ? fault_.status : inner_.defaultFolder(vRefNum, dirID);
}

Status FailingFiles::findFolder(OSType type, std::int16_t& vRefNum, std::int32_t& dirID) {
    return fails("findFolder") ? fault_.status : inner_.findFolder(type, vRefNum, dirID);
}

Status FailingFiles::posixPath(const FSSpec& spec, std::string& path) {
    return fails("posixPath") ? fault_.status : inner_.posixPath(spec, path);
}

}  // namespace support
