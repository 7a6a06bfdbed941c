// Temporary files that are to take the place of others.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace platform {

inline constexpr char finderAttribute[] = "user.com.apple.FinderInfo";

// Path of the folder that holds an item, with a closing '/'.
std::string folderOfPath(const std::string& path);

// An empty file beside another, gone with this object unless it is released.
struct Temporary {
    int descriptor = -1;
    std::string path;

    Temporary() = default;
    ~Temporary() {
        if (descriptor >= 0) {
            ::close(descriptor);
            if (!path.empty()) {
                unlink(path.c_str());
            }
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    int release() { return std::exchange(descriptor, -1); }
    // Makes it in a folder, for reading and writing: without a name (`path` is empty), so that it goes with the process
    // however that ends, or where there are no such files under a name that nothing else has. 0 or errno.
    int open(const std::string& folder);
};

// Whether a folder that takes no temporary, for this reason, leaves writing in place.
bool leavesWritingInPlace(int error);
// In such a folder (/tmp, for instance) another's file may be written but not replaced.
bool keepsOthersFiles(const std::string& folder, const struct stat& file);
// Whether a file of this kind is written where it is, because of its other names, its owner or its folder.
bool isWrittenInPlace(const std::string& folder, const struct stat& file);
// What may give way to a file: no folder, and no device or pipe either, which a file of that name would put out of use.
bool isFileOrLink(const struct stat& item);
// Gives the new file the old one's owner (where that is allowed), permissions and attributes. 0 or errno.
int takeOver(int from, const struct stat& old, int to);

}  // namespace platform
