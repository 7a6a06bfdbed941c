// Real files with faults in front of them.

#include <algorithm>

#include "platform/scripted/scripted_parts.h"

namespace platform {

Status ScriptedFiles::makeSpec(std::int16_t vRefNum, std::int32_t dirID, std::string_view path, FSSpec& spec) {
    return files_.makeSpec(vRefNum, dirID, path, spec);
}

Status ScriptedFiles::openDataFork(const FSSpec& spec, ForkPermission permission, FileRef& ref) {
    const Status fault = shared_.meetFault("open");
    return fault != noErr ? fault : files_.openDataFork(spec, permission, ref);
}

Status ScriptedFiles::openPosix(std::string_view posixPath, PosixMode mode, FileRef& ref) {
    const Status fault = shared_.meetFault("open");
    return fault != noErr ? fault : files_.openPosix(posixPath, mode, ref);
}

// Deletes, creates and opens; that there was nothing to delete is no fault.
Status ScriptedFiles::replaceDataFork(const FSSpec& spec, OSType creator, OSType type, FileRef& ref) {
    static constexpr std::string_view deletion = "delete";
    for (const std::string_view operation : {deletion, std::string_view("create"), std::string_view("open")}) {
        const Status fault = shared_.meetFault(operation);
        if (fault != noErr && (operation != deletion || fault != fnfErr)) {
            return fault;
        }
    }
    return files_.replaceDataFork(spec, creator, type, ref);
}

Status ScriptedFiles::openForUpdate(const FSSpec& spec, FileRef& ref) {
    const Status fault = shared_.meetFault("open");
    return fault != noErr ? fault : files_.openForUpdate(spec, ref);
}

// What could not be deleted is in the way of what is created.
Status ScriptedFiles::createCopy(FileRef source, const FSSpec& spec, OSType creator, OSType type, FileRef& ref) {
    const bool undeleted = shared_.meetFault("delete") != noErr;
    const Status fault = shared_.meetFault("create");
    FSSpec found;
    if (fault == noErr && undeleted && files_.makeSpec(spec.vRefNum, spec.parID, spec.nameView(), found) == noErr) {
        return dupFNErr;
    }
    return fault != noErr ? fault : files_.createCopy(source, spec, creator, type, ref);
}

Status ScriptedFiles::openCopy(FileRef ref) {
    const Status fault = shared_.meetFault("open");
    return fault != noErr ? fault : files_.openCopy(ref);
}

// While reads or writes are to fail, they are made one by one.
Status ScriptedFiles::transfer(FileRef from, FileRef to, std::int64_t count, std::int64_t& moved) {
    moved = 0;
    const bool faulty = std::any_of(shared_.state.faults.begin(), shared_.state.faults.end(), [](const auto& fault) {
        return fault.operation == "read" || fault.operation == "write";
    });
    return faulty ? noErr : files_.transfer(from, to, count, moved);
}

Status ScriptedFiles::getEOF(FileRef ref, std::int64_t& size) {
    const Status fault = shared_.meetFault("size");
    return fault != noErr ? fault : files_.getEOF(ref, size);
}

Status ScriptedFiles::setPosition(FileRef ref, std::int64_t fromStart) {
    const Status fault = shared_.meetFault("seek");
    return fault != noErr ? fault : files_.setPosition(ref, fromStart);
}

Status ScriptedFiles::setPositionAtEnd(FileRef ref) {
    const Status fault = shared_.meetFault("seek");
    return fault != noErr ? fault : files_.setPositionAtEnd(ref);
}

Status ScriptedFiles::read(FileRef ref, std::span<char> buffer, std::size_t& count) {
    count = 0;
    const Status fault = shared_.meetFault("read");
    return fault != noErr ? fault : files_.read(ref, buffer, count);
}

Status ScriptedFiles::write(FileRef ref, std::span<const char> bytes, std::size_t& count) {
    count = 0;
    const Status fault = shared_.meetFault("write");
    return fault != noErr ? fault : files_.write(ref, bytes, count);
}

Status ScriptedFiles::close(FileRef ref) {
    return files_.close(ref);
}

Status ScriptedFiles::discard(FileRef ref) {
    return files_.discard(ref);
}

Status ScriptedFiles::create(const FSSpec& spec, OSType creator, OSType type) {
    const Status fault = shared_.meetFault("create");
    return fault != noErr ? fault : files_.create(spec, creator, type);
}

Status ScriptedFiles::remove(const FSSpec& spec) {
    const Status fault = shared_.meetFault("delete");
    return fault != noErr ? fault : files_.remove(spec);
}

Status ScriptedFiles::getFinderInfo(const FSSpec& spec, FInfo& info) {
    const Status fault = shared_.meetFault("finderInfo");
    return fault != noErr ? fault : files_.getFinderInfo(spec, info);
}

Status ScriptedFiles::setFinderInfo(const FSSpec& spec, const FInfo& info) {
    const Status fault = shared_.meetFault("finderInfo");
    return fault != noErr ? fault : files_.setFinderInfo(spec, info);
}

Status ScriptedFiles::setLock(const FSSpec& spec, bool locked) {
    return files_.setLock(spec, locked);
}

Status ScriptedFiles::catalogItem(std::int16_t vRefNum, std::int32_t dirID, std::int32_t index, CatalogItem& item) {
    return files_.catalogItem(vRefNum, dirID, index, item);
}

Status ScriptedFiles::defaultFolder(std::int16_t& vRefNum, std::int32_t& dirID) {
    return files_.defaultFolder(vRefNum, dirID);
}

Status ScriptedFiles::findFolder(OSType type, std::int16_t& vRefNum, std::int32_t& dirID) {
    return files_.findFolder(type, vRefNum, dirID);
}

Status ScriptedFiles::posixPath(const FSSpec& spec, std::string& path) {
    return files_.posixPath(spec, path);
}

}  // namespace platform
