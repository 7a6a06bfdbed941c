// File and Folder Manager: volumes, the catalogue, file specifications, data forks, Finder information and locks.
//
// Paths are classic: volume, folders and file separated by ':', a folder path with delimiter ending in ':'. Texts are
// bytes, UTF-8 or Mac Roman, as the scripts wrote them; an FSSpec has a name found on disk as the disk holds it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace platform {

// A file specification: a name in a folder of a volume. The file need not exist.
struct FSSpec {
    std::int16_t vRefNum = 0;      // volume reference number, negative; 0 is none
    std::int32_t parID = 0;        // directory ID of the folder that holds the item; 1 when the item is a volume's root
    unsigned char name[256] = {};  // length-prefixed, at most 255 bytes

    std::string_view nameView() const { return {reinterpret_cast<const char*>(name) + 1, name[0]}; }
};

inline constexpr std::int32_t fsRtParID = 1;  // parent of a volume's root folder
inline constexpr std::int32_t fsRtDirID = 2;  // a volume's root folder

struct FInfo {
    OSType fdType = 0;
    OSType fdCreator = 0;
};

// One item of the catalogue, as PBGetCatInfo describes it.
struct CatalogItem {
    std::string name;  // in UTF-8, with '/' and ':' exchanged; one that is not UTF-8 on disk is taken as Mac Roman
    bool isFolder = false;
    std::int32_t dirID = 0;     // the item's own directory ID when it is a folder, else 0
    std::int32_t parentID = 0;  // directory ID of its parent
};

enum class ForkPermission { read, write, readWrite };
enum class PosixMode { read, replace, append };  // "rb", "wb", "ab"

// A file reference: an open fork. 0 is never one.
using FileRef = std::int16_t;

class Files {
  public:
    virtual ~Files() = default;

    // FSMakeFSSpec. A path with a ':' that is not first is full; otherwise it is relative to the folder `dirID` of
    // volume `vRefNum` (0 and 0: the default folder). noErr when the item exists; fnfErr when only its folder does,
    // with the result filled all the same; dirNFErr, nsvErr or bdNamErr otherwise.
    virtual Status makeSpec(std::int16_t vRefNum, std::int32_t dirID, std::string_view path, FSSpec& spec) = 0;

    // HOpenDF. fnfErr, notAFileErr for anything but a regular file, permErr, fLckdErr.
    virtual Status openDataFork(const FSSpec& spec, ForkPermission permission, FileRef& ref) = 0;
    // fopen of a POSIX path, where "/Volumes/NAME/..." means the volume NAME wherever its directory is. With `replace`
    // the old content stays whole until the fork is closed, where the file system allows it; then the new one takes its
    // place at once, with the old file's permissions, owner and Finder information.
    virtual Status openPosix(std::string_view posixPath, PosixMode mode, FileRef& ref) = 0;
    // HDelete, where there is a file, HCreate and HOpenDF: an empty fork for writing. As above, the old content
    // goes when this one is closed, and what else the old file has stays, but for type and creator; of a link, what it
    // leads to is written. notAFileErr for a folder, a device or a pipe, fLckdErr, permErr, dirNFErr.
    virtual Status replaceDataFork(const FSSpec& spec, OSType creator, OSType type, FileRef& ref) = 0;
    // HOpenDF for reading and writing, for a file that is rewritten from its start to its end. Where the file system
    // allows it, the file stays as it was until the fork is closed; then all that was written takes its place at once,
    // with the rest, permissions, owner and Finder information as they were. After discard, nothing was written.
    virtual Status openForUpdate(const FSSpec& spec, FileRef& ref) = 0;
    // HRstFLock, HDelete and HCreate of the file that the fork `source` is copied to. What was there, a locked file or
    // a link itself, stays until the copy is closed, and after discard. The copy gets the source's permissions and the
    // rest of its Finder information too. notAFileErr for a folder, a device or a pipe, permErr, dirNFErr.
    virtual Status createCopy(FileRef source, const FSSpec& spec, OSType creator, OSType type, FileRef& ref) = 0;
    // HOpenDF, for writing, of what createCopy made.
    virtual Status openCopy(FileRef ref) = 0;
    // Moves bytes from one fork's position to another's without a buffer, and both positions with them: as many as the
    // machine can, up to `count`. 0 moved without an error: it cannot, or the file ends; read and write instead.
    virtual Status transfer(FileRef from, FileRef to, std::int64_t count, std::int64_t& moved) = 0;
    virtual Status getEOF(FileRef ref, std::int64_t& size) = 0;
    virtual Status setPosition(FileRef ref, std::int64_t fromStart) = 0;
    virtual Status setPositionAtEnd(FileRef ref) = 0;
    // Reads up to buffer.size() bytes, fewer only at the end of the file (then eofErr with `count` set).
    virtual Status read(FileRef ref, std::span<char> buffer, std::size_t& count) = 0;
    virtual Status write(FileRef ref, std::span<const char> bytes, std::size_t& count) = 0;
    // Content that replaces a file's is in its place after noErr, gone after any other status. That of openPosix and
    // replaceDataFork is on the disk then; copies and updates, which may be large, the system writes in its own time.
    virtual Status close(FileRef ref) = 0;
    // Closes; content that would replace a file's is dropped and the file stays as it was.
    virtual Status discard(FileRef ref) = 0;

    virtual Status create(const FSSpec& spec, OSType creator, OSType type) = 0;  // HCreate
    virtual Status remove(const FSSpec& spec) = 0;                               // HDelete; a link goes, not its target
    virtual Status getFinderInfo(const FSSpec& spec, FInfo& info) = 0;           // HGetFInfo
    virtual Status setFinderInfo(const FSSpec& spec, const FInfo& info) = 0;     // HSetFInfo
    virtual Status setLock(const FSSpec& spec, bool locked) = 0;                 // HSetFLock, HRstFLock

    // PBGetCatInfo. index > 0: the index-th item of the folder; fnfErr past the last. index -1: the folder itself.
    virtual Status catalogItem(std::int16_t vRefNum, std::int32_t dirID, std::int32_t index, CatalogItem& item) = 0;
    // HGetVol: the default volume and folder, which is the one that holds the host application's executable.
    virtual Status defaultFolder(std::int16_t& vRefNum, std::int32_t& dirID) = 0;
    // FindFolder on the system disk; the only type known is "apps".
    virtual Status findFolder(OSType type, std::int16_t& vRefNum, std::int32_t& dirID) = 0;
    // File-system representation of an existing item: an absolute POSIX path.
    virtual Status posixPath(const FSSpec& spec, std::string& path) = 0;
};

}  // namespace platform
