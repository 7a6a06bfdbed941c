// Files of LinuxFiles that give way to new content: it is written to a temporary beside the file and takes the file's
// place when it is complete on the disk, so that an interruption or a full disk loses nothing.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/linux/errors.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/replacement.h"

namespace platform {

std::string folderOfPath(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

static std::string newName(const std::string& folder) {
    static unsigned sNumber = 0;
    return folder + "/.quil-" + std::to_string(getpid()) + "-" + std::to_string(++sNumber);
}

int Temporary::open(const std::string& folder) {
    static const bool canBeNamed = access("/proc/self/fd", X_OK) == 0;
    if (canBeNamed) {
        descriptor = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
        if (descriptor >= 0) {
            path.clear();
            return 0;
        }
    }
    for (;;) {
        path = newName(folder);
        descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0 || (errno != EEXIST && errno != EINTR)) {
            return descriptor >= 0 ? 0 : errno;
        }
    }
}

bool leavesWritingInPlace(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG || error == ENOTSUP;
}

bool keepsOthersFiles(const std::string& folder, const struct stat& file) {
    struct stat status {};
    return geteuid() != 0 && stat(folder.c_str(), &status) == 0 && (status.st_mode & S_ISVTX) != 0 &&
           status.st_uid != geteuid() && file.st_uid != geteuid();
}

bool isWrittenInPlace(const std::string& folder, const struct stat& file) {
    return file.st_nlink > 1 || (file.st_uid != geteuid() && geteuid() != 0) || keepsOthersFiles(folder, file);
}

bool isFileOrLink(const struct stat& item) {
    return S_ISREG(item.st_mode) || S_ISLNK(item.st_mode);
}

// Copies the extended attributes, Finder information and access lists among them. 0, or errno when the Finder
// information could not be kept; others stay behind where the file system will not have them.
static int copyAttributes(int from, int to) {
    std::vector<char> names(static_cast<std::size_t>(std::max<ssize_t>(flistxattr(from, nullptr, 0), 0)));
    const ssize_t size = names.empty() ? 0 : flistxattr(from, names.data(), names.size());
    for (ssize_t at = 0; at < size;) {
        const char* name = names.data() + at;
        at += static_cast<ssize_t>(std::strlen(name)) + 1;
        std::vector<char> value(static_cast<std::size_t>(std::max<ssize_t>(fgetxattr(from, name, nullptr, 0), 0)));
        const ssize_t length = fgetxattr(from, name, value.data(), value.size());
        if ((length < 0 || fsetxattr(to, name, value.data(), static_cast<std::size_t>(length), 0) != 0) &&
            std::strcmp(name, finderAttribute) == 0) {
            return errno;
        }
    }
    return 0;
}

int takeOver(int from, const struct stat& old, int to) {
    mode_t mode = old.st_mode & 07777;
    struct stat made {};
    if (fstat(to, &made) != 0) {
        return errno;
    }
    if ((made.st_uid != old.st_uid || made.st_gid != old.st_gid) && fchown(to, old.st_uid, old.st_gid) != 0) {
        mode &= 01777;  // rights of another owner are not handed on
        static_cast<void>(fchown(to, static_cast<uid_t>(-1), old.st_gid) == 0);
    }
    return fchmod(to, mode) != 0 ? errno : copyAttributes(from, to);
}

// A link's target gives way, not the link. A file with several names is written in place, so that it stays one file,
// and so is another's, which would become the writer's, and one whose folder takes no other.
Status LinuxFiles::openReplacement(const std::string& path, FileRef& ref) {
    struct stat old {};
    Temporary temporary;
    if (stat(path.c_str(), &old) != 0) {
        const bool isNew = errno == ENOENT && !path.ends_with('/') && lstat(path.c_str(), &old) != 0;
        std::string target = path;
        const Status status = newReference(ref);
        if (status != noErr) {
            return status;
        }
        if (!isNew || temporary.open(folderOfPath(path)) != 0) {
            return openPath(path, O_WRONLY | O_CREAT | O_TRUNC, ref);  // says what is wrong, if anything is
        }
        *slot(ref) = {temporary.release(), false, true, std::move(temporary.path), std::move(target)};
        return noErr;
    }
    const Status status = openPath(path, O_WRONLY, ref);
    if (status != noErr) {
        return status;
    }
    Fork& open = *slot(ref);
    std::string target;
    int error = 0;
    try {
        const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
        error = resolved == nullptr || fstat(open.descriptor, &old) != 0 ? errno : 0;
        if (error == 0) {
            target = resolved.get();
            const std::string folder = folderOfPath(target);
            bool inPlace = isWrittenInPlace(folder, old);
            if (!inPlace) {
                error = temporary.open(folder);
                inPlace = leavesWritingInPlace(error);
            }
            if (inPlace) {
                error = 0;
                open.oldLength = old.st_size;
            } else if (error == 0) {
                error = takeOver(open.descriptor, old, temporary.descriptor);
            }
        }
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    }
    if (error != 0) {
        discard(ref);
    } else if (temporary.descriptor >= 0) {
        ::close(std::exchange(open.descriptor, temporary.release()));
        open.temporary = std::move(temporary.path);
        open.target = std::move(target);
    }
    return statusOf(error);
}

Status LinuxFiles::replaceDataFork(const FSSpec& spec, OSType creator, OSType type, FileRef& ref) {
    return guarded([&] {
        Place found;
        Status status = locate(spec, found);
        if (status != noErr && status != fnfErr) {
            return status;
        }
        const bool isNew = status == fnfErr;
        status = openReplacement(found.path, ref);
        if (status != noErr) {
            return isNew && status == fnfErr ? dirNFErr : status;
        }
        const int error = setFinderCodes(slot(ref)->descriptor, creator, type);
        if (error != 0) {
            discard(ref);
        }
        return statusOf(error);
    });
}

// Gives a file without a name one. 0 or errno, with no name.
static int giveName(int descriptor, const std::string& folder, std::string& name) {
    const std::string file = "/proc/self/fd/" + std::to_string(descriptor);
    for (;;) {
        name = newName(folder);
        if (linkat(AT_FDCWD, file.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
            return 0;
        }
        if (errno != EEXIST) {
            const int error = errno;
            name.clear();
            return error;
        }
    }
}

// Puts complete content in place: on the disk first, where it is to be there, then under its name. 0 or errno.
int LinuxFiles::putInPlace(const Fork& open) {
    int error = !open.synced || fsync(open.descriptor) == 0 ? 0 : errno;
    std::string temporary = open.temporary;
    if (error == 0 && temporary.empty()) {
        error = giveName(open.descriptor, folderOfPath(open.target), temporary);
    }
    if (::close(open.descriptor) != 0 && errno != EINTR && error == 0) {
        error = errno;
    }
    if (error == 0 && rename(temporary.c_str(), open.target.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        if (!temporary.empty()) {
            unlink(temporary.c_str());
        }
        return error;
    }
    if (!open.synced) {
        return 0;
    }
    const int folder = ::open(folderOfPath(open.target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {  // the new name outlives a power failure where the file system can promise it
        fsync(folder);
        ::close(folder);
    }
    return 0;
}

int LinuxFiles::reserveInPlace(const Fork& open, std::size_t count) {
    const off_t at = lseek(open.descriptor, 0, SEEK_CUR);
    if (at < 0 || count == 0) {
        return at < 0 ? errno : 0;
    }
    int failed = 0;
    do {
        failed = fallocate(open.descriptor, 0, at, static_cast<off_t>(count));
    } while (failed != 0 && errno == EINTR);
    return failed != 0 && (errno == ENOSPC || errno == EDQUOT || errno == EFBIG) ? errno : 0;
}

int LinuxFiles::finishInPlace(const Fork& open) {
    const off_t end = lseek(open.descriptor, 0, SEEK_CUR);
    int error = end >= 0 && ftruncate(open.descriptor, end) == 0 && fsync(open.descriptor) == 0 ? 0 : errno;
    if (::close(open.descriptor) != 0 && errno != EINTR && error == 0) {
        error = errno;
    }
    return error;
}

Status LinuxFiles::discard(FileRef ref) {
    Fork* open = fork(ref);
    if (open == nullptr) {
        return rfNumErr;
    }
    const Fork given = std::exchange(*open, Fork());
    if (given.oldLength >= 0) {  // what was reserved behind the old text goes; what was written over it has to stay
        const off_t end = std::max<off_t>(lseek(given.descriptor, 0, SEEK_CUR), given.oldLength);
        struct stat now {};
        static_cast<void>(fstat(given.descriptor, &now) == 0 && now.st_size > end &&
                          ftruncate(given.descriptor, end) == 0);
    }
    ::close(given.descriptor);
    if (given.original >= 0) {
        ::close(given.original);
    }
    if (!given.temporary.empty()) {
        unlink(given.temporary.c_str());
    }
    return noErr;
}

}  // namespace platform
