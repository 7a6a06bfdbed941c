// Open forks of LinuxFiles: regular files only, never waited for.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "platform/linux/errors.h"
#include "platform/linux/large_read.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/volumes.h"

namespace platform {

LinuxFiles::~LinuxFiles() {
    for (std::size_t i = 0; i < forks_.size(); ++i) {
        discard(static_cast<FileRef>(i + 1));
    }
}

LinuxFiles::Fork* LinuxFiles::fork(FileRef ref) {
    if (ref <= 0 || static_cast<std::size_t>(ref) > forks_.size()) {
        return nullptr;
    }
    Fork& fork = forks_[static_cast<std::size_t>(ref) - 1];
    return fork.descriptor < 0 ? nullptr : &fork;
}

// A reference that is free, for a fork that the caller puts there.
Status LinuxFiles::newReference(FileRef& ref) {
    auto free = std::find_if(forks_.begin(), forks_.end(), [](const Fork& fork) { return fork.descriptor < 0; });
    if (free == forks_.end()) {
        if (forks_.size() >= static_cast<std::size_t>(std::numeric_limits<FileRef>::max())) {
            return tmfoErr;
        }
        free = forks_.insert(forks_.end(), Fork());
    }
    ref = static_cast<FileRef>(free - forks_.begin() + 1);
    return noErr;
}

// Opens a regular file. It is looked at first, because opening is already an act on a device or a pipe, and again once
// it is open, because it may have become another one in between.
Status LinuxFiles::openPath(const std::string& path, int flags, FileRef& ref) {
    const int access = flags & O_ACCMODE;
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode)) {
            return notAFileErr;
        }
        if (access != O_RDONLY && isLocked(status)) {
            return fLckdErr;  // the superuser too: permissions do not hold it, the lock does
        }
    } else if (errno != ENOENT || (flags & O_CREAT) == 0) {
        return statusOf(errno);
    }

    FileRef free = 0;
    const Status room = newReference(free);
    if (room != noErr) {
        return room;
    }
    int descriptor = -1;
    do {
        descriptor = ::open(path.c_str(), (flags & ~O_TRUNC) | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0666);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        return statusOf(errno);
    }
    int error = fstat(descriptor, &status) == 0 ? 0 : errno;
    if (error == 0 && S_ISREG(status.st_mode) && (flags & O_TRUNC) != 0) {
        error = ftruncate(descriptor, 0) == 0 ? 0 : errno;
    }
    if (error != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor);
        return error != 0 ? statusOf(error) : notAFileErr;
    }
    Fork& open = *slot(free);
    open = Fork();
    open.descriptor = descriptor;
    open.reads = access != O_WRONLY;
    open.writes = access != O_RDONLY;
    ref = free;
    return noErr;
}

Status LinuxFiles::openDataFork(const FSSpec& spec, ForkPermission permission, FileRef& ref) {
    return guarded([&] {
        Place found;
        const Status status = locate(spec, found);
        if (status != noErr) {
            return status;
        }
        const int access = permission == ForkPermission::read    ? O_RDONLY
                           : permission == ForkPermission::write ? O_WRONLY
                                                                 : O_RDWR;
        return openPath(found.path, access, ref);
    });
}

Status LinuxFiles::openPosix(std::string_view posixPath, PosixMode mode, FileRef& ref) {
    return guarded([&] {
        std::string path;
        std::size_t volume = volumes_.size();
        const Status status = volumePath(volumes_, posixPath, path, volume);
        if (volume < volumes_.size() && !volumeIsThere(volume)) {
            return nsvErr;
        }
        if (status != noErr) {
            return status;
        }
        if (mode == PosixMode::replace) {
            return openReplacement(path, ref);
        }
        return openPath(path, mode == PosixMode::read ? O_RDONLY : O_WRONLY | O_CREAT | O_APPEND, ref);
    });
}

Status LinuxFiles::getEOF(FileRef ref, std::int64_t& size) {
    const Fork* open = fork(ref);
    struct stat status {};
    if (open == nullptr) {
        return rfNumErr;
    }
    if (fstat(open->original >= 0 ? open->original : open->descriptor, &status) != 0) {
        return statusOf(errno);
    }
    size = std::max<std::int64_t>(status.st_size, open->rewritten);
    return noErr;
}

// Past the end is the end and eofErr, before the start is posErr, as the File Manager has it.
Status LinuxFiles::setPosition(FileRef ref, std::int64_t fromStart) {
    std::int64_t size = 0;
    const Status status = getEOF(ref, size);
    if (status != noErr) {
        return status;
    }
    if (fromStart < 0) {
        return posErr;
    }
    Fork& open = *fork(ref);
    open.position = std::min(fromStart, size);
    if (open.original < 0 && lseek(open.descriptor, open.position, SEEK_SET) < 0) {
        return statusOf(errno);
    }
    return fromStart > size ? eofErr : noErr;
}

Status LinuxFiles::setPositionAtEnd(FileRef ref) {
    std::int64_t size = 0;
    const Status status = getEOF(ref, size);
    return status != noErr ? status : setPosition(ref, size);
}

Status LinuxFiles::read(FileRef ref, std::span<char> buffer, std::size_t& count) {
    count = 0;
    Fork* open = fork(ref);
    if (open == nullptr) {
        return rfNumErr;
    }
    if (!open->reads) {
        return permErr;
    }
    if (open->original >= 0) {
        return readUpdate(*open, buffer, count);
    }
    if (buffer.size() >= kLargeRead) {
        if (const int error = readLarge(open->descriptor, buffer, count); error != 0) {
            return statusOf(error);
        }
        return count < buffer.size() ? eofErr : noErr;
    }
    while (count < buffer.size()) {
        const ssize_t got = ::read(open->descriptor, buffer.data() + count, buffer.size() - count);
        if (got == 0) {
            return eofErr;
        }
        if (got > 0) {
            count += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            return statusOf(errno);
        }
    }
    return noErr;
}

Status LinuxFiles::write(FileRef ref, std::span<const char> bytes, std::size_t& count) {
    count = 0;
    Fork* open = fork(ref);
    if (open == nullptr) {
        return rfNumErr;
    }
    if (!open->writes) {
        return permErr;
    }
    if (open->original >= 0) {
        return writeUpdate(*open, bytes, count);
    }
    if (open->oldLength >= 0) {
        if (const int error = reserveInPlace(*open, bytes.size()); error != 0) {
            return statusOf(error);
        }
    }
    while (count < bytes.size()) {
        const ssize_t put = ::write(open->descriptor, bytes.data() + count, bytes.size() - count);
        if (put == 0) {
            return dskFulErr;
        }
        if (put > 0) {
            count += static_cast<std::size_t>(put);
        } else if (errno != EINTR) {
            return statusOf(errno);
        }
    }
    return noErr;
}

Status LinuxFiles::close(FileRef ref) {
    Fork* open = fork(ref);
    if (open == nullptr) {
        return rfNumErr;
    }
    Fork given = std::exchange(*open, Fork());
    if (given.original >= 0) {
        return statusOf(finishUpdate(given));
    }
    if (!given.target.empty()) {
        return statusOf(putInPlace(given));
    }
    if (given.oldLength >= 0) {
        return statusOf(finishInPlace(given));
    }
    // An interrupted close has closed all the same.
    return ::close(given.descriptor) == 0 || errno == EINTR ? noErr : statusOf(errno);
}

}  // namespace platform
