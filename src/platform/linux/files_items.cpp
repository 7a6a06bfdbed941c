// Items of LinuxFiles: made, removed, locked, and their Finder information.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/linux/errors.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/replacement.h"

namespace platform {

// --- Finder information --------------------------------------------------------------------------------------------
//
// 32 bytes in an extended attribute: type in bytes 0 to 3, creator in 4 to 7, most significant first; the rest belongs
// to others and is kept.

using FinderBytes = std::array<unsigned char, 32>;

static OSType codeAt(const FinderBytes& bytes, std::size_t at) {
    OSType code = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        code = (code << 8) | bytes[at + i];
    }
    return code;
}

static void putCode(FinderBytes& bytes, std::size_t at, OSType code) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[at + i] = static_cast<unsigned char>(code >> (24 - 8 * i));
    }
}

// The file's attribute; zeros when it has none, or the file system has no attributes, or the bytes are not the right
// size.
static int readFinderBytes(const std::string& path, FinderBytes& bytes, bool& present) {
    const ssize_t size = getxattr(path.c_str(), finderAttribute, bytes.data(), bytes.size());
    present = size == static_cast<ssize_t>(bytes.size());
    if (!present) {
        bytes.fill(0);
    }
    return size >= 0 || errno == ENODATA || errno == ENOTSUP || errno == ERANGE ? 0 : errno;
}

// Existing regular file behind a place.
static Status regularFile(const std::string& path, struct stat& status) {
    if (stat(path.c_str(), &status) != 0) {
        return statusOf(errno);
    }
    return S_ISREG(status.st_mode) ? noErr : notAFileErr;
}

Status LinuxFiles::getFinderInfo(const FSSpec& spec, FInfo& info) {
    return guarded([&] {
        Place found;
        struct stat file {};
        Status status = locate(spec, found);
        if (status == noErr) {
            status = regularFile(found.path, file);
        }
        if (status != noErr) {
            return status;
        }
        FinderBytes bytes{};
        bool present = false;
        const int error = readFinderBytes(found.path, bytes, present);
        if (error == 0) {
            info = {codeAt(bytes, 0), codeAt(bytes, 4)};
        }
        return statusOf(error);
    });
}

// Where there are no attributes, zeros can be set (they are what will be read) and nothing else can: paramErr.
Status LinuxFiles::setFinderInfo(const FSSpec& spec, const FInfo& info) {
    return guarded([&] {
        Place found;
        struct stat file {};
        Status status = locate(spec, found);
        if (status == noErr) {
            status = regularFile(found.path, file);
        }
        if (status != noErr) {
            return status;
        }
        if (isLocked(file)) {
            return fLckdErr;
        }
        FinderBytes bytes{};
        bool present = false;
        const int error = readFinderBytes(found.path, bytes, present);
        if (error != 0) {
            return statusOf(error);
        }
        if (!present && info.fdType == 0 && info.fdCreator == 0) {
            return noErr;
        }
        putCode(bytes, 0, info.fdType);
        putCode(bytes, 4, info.fdCreator);
        return setxattr(found.path.c_str(), finderAttribute, bytes.data(), bytes.size(), 0) == 0 ? noErr
                                                                                                 : statusOf(errno);
    });
}

// --- made and removed ----------------------------------------------------------------------------------------------

int LinuxFiles::setNewFinderInfo(int descriptor, OSType creator, OSType type) {
    return type == 0 && creator == 0 ? 0 : setFinderCodes(descriptor, creator, type);
}

int LinuxFiles::setFinderCodes(int descriptor, OSType creator, OSType type) {
    FinderBytes bytes{};
    const bool present = fgetxattr(descriptor, finderAttribute, bytes.data(), bytes.size()) == ssize_t{bytes.size()};
    if (!present) {
        bytes.fill(0);
        if (type == 0 && creator == 0) {
            return 0;
        }
    }
    putCode(bytes, 0, type);
    putCode(bytes, 4, creator);
    const int error = fsetxattr(descriptor, finderAttribute, bytes.data(), bytes.size(), 0) == 0 ? 0 : errno;
    return error == ENOTSUP || error == EPERM || error == ENOSYS ? 0 : error;
}

// A file system without attributes still gets the file; its type and creator read as zeros then, and nothing is said.
Status LinuxFiles::create(const FSSpec& spec, OSType creator, OSType type) {
    return guarded([&] {
        Place found;
        const Status status = locate(spec, found);
        if (status != fnfErr) {
            return status == noErr ? dupFNErr : status;
        }
        int descriptor = -1;
        do {
            descriptor = ::open(found.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        } while (descriptor < 0 && errno == EINTR);
        if (descriptor < 0) {
            return errno == ENOENT ? dirNFErr : statusOf(errno);
        }
        int error = setNewFinderInfo(descriptor, creator, type);
        if (::close(descriptor) != 0 && errno != EINTR && error == 0) {
            error = errno;
        }
        if (error != 0) {
            unlink(found.path.c_str());
        }
        return statusOf(error);
    });
}

Status LinuxFiles::remove(const FSSpec& spec) {
    return guarded([&] {
        Place found;
        const Status status = locate(spec, found);
        if (status != noErr) {
            return status;
        }
        if (found.folder == nullptr) {
            return fBsyErr;  // a volume's root
        }
        if (isLocked(found.item)) {
            return fLckdErr;
        }
        const int failed = S_ISDIR(found.item.st_mode) ? rmdir(found.path.c_str()) : unlink(found.path.c_str());
        return failed == 0 ? noErr : statusOf(errno);
    });
}

// A link has no lock of its own, and its target's is not this item's: unlocking one does nothing, locking one cannot
// be.
Status LinuxFiles::setLock(const FSSpec& spec, bool locked) {
    return guarded([&] {
        Place found;
        const Status status = locate(spec, found);
        if (status != noErr) {
            return status;
        }
        if (S_ISLNK(found.item.st_mode)) {
            return locked ? paramErr : noErr;
        }
        if (!S_ISREG(found.item.st_mode)) {
            return notAFileErr;
        }
        if (isLocked(found.item) == locked) {
            return noErr;
        }
        const mode_t mode = (found.item.st_mode & 07777) ^ S_IWUSR;
        return chmod(found.path.c_str(), mode) == 0 ? noErr : statusOf(errno);
    });
}

}  // namespace platform
