// The File Manager over a directory tree a volume.
//
// A folder gets its directory ID when it is first met and keeps it as long as this object lives; the ID stands for the
// path, so a folder that was moved away answers dirNFErr. The catalogue holds links as items of their own: a link
// exists whether or not what it points to does, and reading, writing, Finder information and listing go through it.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/files.h"
#include "platform/linux/linux_machine.h"

namespace platform {

class LinuxFiles : public Files {
  public:
    explicit LinuxFiles(const LinuxOptions& options);
    ~LinuxFiles() override;
    LinuxFiles(const LinuxFiles&) = delete;
    LinuxFiles& operator=(const LinuxFiles&) = delete;

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
    // A folder with a directory ID. Names and paths are POSIX ones, as the disk holds them.
    struct Folder {
        std::size_t volume = 0;
        std::int32_t id = 0;
        std::int32_t parent = 0;
        std::string name;      // a root's: the volume's name, exchanged
        std::string path;      // absolute; the root of the file system is the empty text
        bool assumed = false;  // part of the application's path, which is answered whether it is there or not
    };

    // Where an item is, or would be.
    struct Place {
        const Folder* folder = nullptr;  // that holds it; null for a volume's root
        std::size_t volume = 0;
        std::string name;     // as the disk holds it, or as it was asked for
        std::string path;     // absolute
        struct stat item {};  // of the item itself, links not followed
    };

    struct Fork {
        int descriptor = -1;
        bool reads = false;
        bool writes = false;
        std::string temporary;        // name of what is open when it is to replace `target` and has one
        std::string target;           // what the content replaces when it is complete, else empty
        bool synced = true;           // content that replaces another is on the disk before it does
        std::int64_t oldLength = -1;  // of a text that is replaced where it is: what is behind the new one is cut off
        int original = -1;            // in an update: the file as it was, which `descriptor` replaces
        std::int64_t position = 0;    // in an update, for reading and writing
        std::int64_t rewritten = 0;   // in an update: so many bytes of `descriptor` count, behind them the original's
        std::int64_t onTheirWay = 0;  // of these, the system has begun to write so many to the disk
    };

    // The items of the folder that was listed last.
    struct Listing {
        struct Entry {
            std::uint64_t key = 0;  // the first bytes that are not the same in all names, to sort by
            std::size_t start = 0;
            std::uint16_t length = 0;
            bool isFolder = false;
        };
        const Folder* folder = nullptr;
        std::string names;
        std::vector<Entry> entries;

        std::string_view name(const Entry& entry) const {
            return std::string_view(names).substr(entry.start, entry.length);
        }
        void sort();
    };

    // files_catalog.cpp: folders and names
    const Folder* folderOf(std::int16_t vRefNum, std::int32_t dirID) const;
    const Folder& folderIn(const Folder& parent, const std::string& name, bool assumed = false);
    bool volumeIsThere(std::size_t volume) const;
    bool isGoneRoot(const Folder& folder) const;
    Status walk(const Folder* folder, const std::vector<std::string_view>& names, bool closed, Place& place);
    Status place(std::int16_t vRefNum, std::int32_t dirID, std::string_view path, Place& place);
    Status locate(const FSSpec& spec, Place& place) const;
    Status findIn(const Folder& folder, std::string_view classicName, Place& place) const;
    void placeFolder(const Folder& folder, Place& place) const;
    Status folderAt(std::string_view classicPath, std::int16_t& vRefNum, std::int32_t& dirID);
    void assumeApplication(std::string_view classicPath);
    Status list(const Folder& folder);

    // files_forks.cpp: open forks
    Fork* fork(FileRef ref);
    Fork* slot(FileRef ref) { return &forks_[static_cast<std::size_t>(ref) - 1]; }
    Status newReference(FileRef& ref);
    Status openPath(const std::string& path, int flags, FileRef& ref);

    // files_replace.cpp: files that give way to new content
    Status openReplacement(const std::string& path, FileRef& ref);
    static int putInPlace(const Fork& open);
    // Room on the disk for so many bytes more of a text that is replaced where it is, before the first of them is
    // written over the old one; where the file system can tell. 0 or errno.
    static int reserveInPlace(const Fork& open, std::size_t count);
    static int finishInPlace(const Fork& open);

    // files_copies.cpp: copies and updates
    static Status readUpdate(Fork& open, std::span<char> buffer, std::size_t& count);
    static Status writeUpdate(Fork& open, std::span<const char> bytes, std::size_t& count);
    static int finishUpdate(Fork& open);
    // files_items.cpp: Finder information of a file that was just made, where the file system has any. 0 or errno.
    static int setNewFinderInfo(int descriptor, OSType creator, OSType type);
    // The same for a file that may have the rest of its Finder information already.
    static int setFinderCodes(int descriptor, OSType creator, OSType type);

    std::vector<Volume> volumes_;
    std::vector<Folder> roots_;                                // one a volume, ID 2
    mutable std::vector<std::optional<dev_t>> devices_;        // where each volume was when it was first met
    std::deque<Folder> folders_;                               // the others, in the order of their IDs
    std::unordered_map<std::string, std::int32_t> idsByPath_;  // by volume number and path
    const Folder* defaultFolder_ = nullptr;
    std::string applicationsFolder_;  // classic path
    Listing listing_;
    std::vector<Fork> forks_;  // number n - 1 is file reference n
};

// A file is locked when its owner may not write it.
inline bool isLocked(const struct stat& status) {
    return S_ISREG(status.st_mode) && (status.st_mode & S_IWUSR) == 0;
}

}  // namespace platform
