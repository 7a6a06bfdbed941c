// Copies and updates of LinuxFiles: large contents that take a file's place when they are complete.
#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "platform/linux/errors.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/replacement.h"

namespace platform {

static constexpr std::int64_t piece = std::int64_t{64} << 20;  // in one go, between which a signal is met

// Whether the system has no way to copy between these two files, which says nothing against reading and writing.
static bool mustReadAndWrite(int error) {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM ||
           error == EBADF || error == ETXTBSY;
}

// --- moving bytes --------------------------------------------------------------------------------------------------

// Copies inside the system, up to `count` bytes. 0 or errno; `moved` tells how many either way.
static int copyRange(int from, std::int64_t fromAt, int to, std::int64_t toAt, std::int64_t count,
                     std::int64_t& moved) {
    moved = 0;
    while (moved < count) {
        off_t in = fromAt + moved;
        off_t out = toAt + moved;
        const auto wanted = static_cast<std::size_t>(std::min(piece, count - moved));
        const ssize_t got = copy_file_range(from, &in, to, &out, wanted, 0);
        if (got == 0) {
            return 0;
        }
        if (got > 0) {
            moved += got;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// Length of the hole at a place of a file, 0 when there are data. `data` tells how far the data go then.
static std::int64_t holeAt(int descriptor, std::int64_t at, std::int64_t size, std::int64_t& data) {
    const off_t next = lseek(descriptor, at, SEEK_DATA);
    if (next < 0) {
        data = size - at;
        return errno == ENXIO ? size - at : 0;
    }
    if (next > at) {
        return next - at;
    }
    const off_t end = lseek(descriptor, at, SEEK_HOLE);
    data = end > at ? end - at : size - at;
    return 0;
}

// Holes of the one file become holes of the other where that one ends.
Status LinuxFiles::transfer(FileRef from, FileRef to, std::int64_t count, std::int64_t& moved) {
    moved = 0;
    const Fork* source = fork(from);
    const Fork* target = fork(to);
    if (source == nullptr || target == nullptr) {
        return rfNumErr;
    }
    if (!source->reads || !target->writes) {
        return permErr;
    }
    if (source->original >= 0 || target->original >= 0) {
        return noErr;
    }
    struct stat status {};
    struct stat other {};
    const off_t fromAt = lseek(source->descriptor, 0, SEEK_CUR);
    const off_t toAt = lseek(target->descriptor, 0, SEEK_CUR);
    if (fromAt < 0 || toAt < 0 || fstat(source->descriptor, &status) != 0 || fstat(target->descriptor, &other) != 0) {
        return statusOf(errno);
    }
    const bool sparse = status.st_blocks * 512 < status.st_size && other.st_size == toAt;
    count = std::min<std::int64_t>(count, status.st_size - fromAt);
    int error = 0;
    while (error == 0 && moved < count) {
        std::int64_t data = count - moved;
        std::int64_t hole = sparse ? holeAt(source->descriptor, fromAt + moved, status.st_size, data) : 0;
        hole = std::min(hole, count - moved);
        if (hole > 0) {
            error = ftruncate(target->descriptor, toAt + moved + hole) == 0 ? 0 : errno;
            moved += error == 0 ? hole : 0;
            continue;
        }
        std::int64_t copied = 0;
        error = copyRange(source->descriptor, fromAt + moved, target->descriptor, toAt + moved,
                          std::min(data, count - moved), copied);
        moved += copied;
        if (copied == 0) {
            break;
        }
    }
    if (lseek(source->descriptor, fromAt + moved, SEEK_SET) < 0 ||
        lseek(target->descriptor, toAt + moved, SEEK_SET) < 0) {
        return statusOf(errno);
    }
    return mustReadAndWrite(error) ? noErr : statusOf(error);
}

// --- copies --------------------------------------------------------------------------------------------------------

// Gives a copy an attribute of its source, where it has it and the file system of the copy takes it. 0 or errno.
static int copyAttribute(int from, int to, const char* name) {
    std::array<char, 4096> value;
    const ssize_t size = fgetxattr(from, name, value.data(), value.size());
    if (size < 0 || fsetxattr(to, name, value.data(), static_cast<std::size_t>(size), 0) == 0) {
        return 0;
    }
    return errno == ENOTSUP || errno == EPERM || errno == ENOSYS ? 0 : errno;
}

Status LinuxFiles::createCopy(FileRef source, const FSSpec& spec, OSType creator, OSType type, FileRef& ref) {
    return guarded([&] {
        const Fork* from = fork(source);
        if (from == nullptr) {
            return rfNumErr;
        }
        const int original = from->descriptor;
        Place found;
        Status status = locate(spec, found);
        if (status != noErr && status != fnfErr) {
            return status;
        }
        const std::string folder = folderOfPath(found.path);
        if (status == noErr) {
            if (found.folder == nullptr || !isFileOrLink(found.item)) {
                return notAFileErr;
            }
            if (keepsOthersFiles(folder, found.item)) {
                return permErr;
            }
        }
        status = newReference(ref);
        if (status != noErr) {
            return status;
        }
        Temporary temporary;
        struct stat file {};
        int error = temporary.open(folder);
        if (error == ENOENT) {
            return dirNFErr;
        }
        if (error == 0 && fstat(original, &file) != 0) {
            error = errno;
        }
        // Before there is any content: nobody reads it who may not read the source.
        if (error == 0 && fchmod(temporary.descriptor, file.st_mode & 0777) != 0) {
            error = errno;
        }
        for (const char* attribute : {finderAttribute, "system.posix_acl_access"}) {
            error = error != 0 ? error : copyAttribute(original, temporary.descriptor, attribute);
        }
        if (error == 0) {
            error = setFinderCodes(temporary.descriptor, creator, type);
        }
        if (error == 0) {
            Fork& open = *slot(ref);
            open = Fork();
            open.temporary = temporary.path;
            open.target = found.path;
            open.synced = false;
            open.descriptor = temporary.release();
        }
        return statusOf(error);
    });
}

Status LinuxFiles::openCopy(FileRef ref) {
    Fork* open = fork(ref);
    if (open == nullptr) {
        return rfNumErr;
    }
    open->writes = true;
    return noErr;
}

// --- updates -------------------------------------------------------------------------------------------------------

// Whether the file has to be written where it is: because of its other names, its owner, or for want of room.
static bool staysInPlace(int descriptor, const struct stat& file, const std::string& folder) {
    struct statvfs disk {};
    return isWrittenInPlace(folder, file) || fstatvfs(descriptor, &disk) != 0 ||
           disk.f_bavail < static_cast<std::uint64_t>(file.st_size) / std::max<std::uint64_t>(disk.f_frsize, 1) + 1;
}

Status LinuxFiles::openForUpdate(const FSSpec& spec, FileRef& ref) {
    return guarded([&] {
        Place found;
        Status status = locate(spec, found);
        if (status == noErr) {
            status = openPath(found.path, O_RDWR, ref);
        }
        if (status != noErr) {
            return status;
        }
        Fork& open = *slot(ref);
        struct stat file {};
        const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(found.path.c_str(), nullptr), &std::free);
        if (resolved == nullptr || fstat(open.descriptor, &file) != 0) {
            const int error = errno;
            discard(ref);
            return statusOf(error);
        }
        try {
            std::string target = resolved.get();
            const std::string folder = folderOfPath(target);
            Temporary temporary;
            // Where no other file can take its place, the file itself is written.
            if (!staysInPlace(open.descriptor, file, folder) && temporary.open(folder) == 0 &&
                takeOver(open.descriptor, file, temporary.descriptor) == 0) {
                open.temporary = temporary.path;
                open.target = std::move(target);
                open.synced = false;
                open.original = std::exchange(open.descriptor, temporary.release());
            }
        } catch (const std::bad_alloc&) {
            discard(ref);
            throw;
        }
        return noErr;
    });
}

// Copies what the update has not reached, up to `end`. 0 or errno.
template <typename Open>
static int copyOriginal(Open& open, std::int64_t end) {
    std::array<char, 65536> buffer;
    while (open.rewritten < end) {
        std::int64_t moved = 0;
        const int error =
            copyRange(open.original, open.rewritten, open.descriptor, open.rewritten, end - open.rewritten, moved);
        open.rewritten += moved;
        if (error != 0 && !mustReadAndWrite(error)) {
            return error;
        }
        if (moved != 0) {
            continue;
        }
        const ssize_t got =
            pread(open.original, buffer.data(), std::min(buffer.size(), static_cast<std::size_t>(end - open.rewritten)),
                  open.rewritten);
        const ssize_t put =
            got <= 0 ? got : pwrite(open.descriptor, buffer.data(), static_cast<std::size_t>(got), open.rewritten);
        if (put < 0 && errno != EINTR) {
            return errno;
        }
        if (put == 0) {
            return got == 0 ? EIO : ENOSPC;  // the file became shorter meanwhile, or there is no room
        }
        open.rewritten += std::max<ssize_t>(put, 0);
    }
    return 0;
}

Status LinuxFiles::readUpdate(Fork& open, std::span<char> buffer, std::size_t& count) {
    while (count < buffer.size()) {
        const bool own = open.position < open.rewritten;
        std::size_t wanted = buffer.size() - count;
        if (own) {
            wanted = std::min(wanted, static_cast<std::size_t>(open.rewritten - open.position));
        }
        const ssize_t got = pread(own ? open.descriptor : open.original, buffer.data() + count, wanted, open.position);
        if (got == 0) {
            return eofErr;
        }
        if (got > 0) {
            count += static_cast<std::size_t>(got);
            open.position += got;
        } else if (errno != EINTR) {
            return statusOf(errno);
        }
    }
    return noErr;
}

Status LinuxFiles::writeUpdate(Fork& open, std::span<const char> bytes, std::size_t& count) {
    if (const int error = copyOriginal(open, open.position); error != 0) {
        return statusOf(error);
    }
    while (count < bytes.size()) {
        const ssize_t put = pwrite(open.descriptor, bytes.data() + count, bytes.size() - count, open.position);
        if (put == 0) {
            return dskFulErr;
        }
        if (put > 0) {
            count += static_cast<std::size_t>(put);
            open.position += put;
            open.rewritten = std::max(open.rewritten, open.position);
        } else if (errno != EINTR) {
            return statusOf(errno);
        }
    }
    // Begun early, it is not waited for when the new content takes the old one's place.
    if (constexpr std::int64_t kStep = 16 << 20; open.rewritten - open.onTheirWay >= kStep) {
        sync_file_range(open.descriptor, open.onTheirWay, open.rewritten - open.onTheirWay, SYNC_FILE_RANGE_WRITE);
        open.onTheirWay = open.rewritten;
    }
    return noErr;
}

// 0 or errno, with the file as it was.
int LinuxFiles::finishUpdate(Fork& open) {
    struct stat file {};
    int error = 0;
    if (open.rewritten != 0) {
        error = fstat(open.original, &file) == 0 ? copyOriginal(open, file.st_size) : errno;
    }
    ::close(open.original);
    if (error == 0 && open.rewritten != 0) {
        return putInPlace(open);
    }
    ::close(open.descriptor);
    if (!open.temporary.empty()) {
        unlink(open.temporary.c_str());
    }
    return error;
}

}  // namespace platform
