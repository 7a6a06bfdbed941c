#include "host/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "host/plugin.h"

namespace host {
namespace {

[[noreturn]] void fail(const std::string& path, int error) {
    throw HostError(path + ": cannot be written: " + std::strerror(error));
}

// Signals wait while a temporary exists; a file size limit is an error of the write, not the end of the process.
class QuietSignals {
  public:
    QuietSignals() {
        sigset_t all;
        sigfillset(&all);
        sigdelset(&all, SIGXFSZ);  // a blocked signal is kept even when it is ignored
        pthread_sigmask(SIG_SETMASK, &all, &previousMask_);
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGXFSZ, &ignore, &previousLimit_);
    }
    ~QuietSignals() {
        sigaction(SIGXFSZ, &previousLimit_, nullptr);
        pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
    }
    QuietSignals(const QuietSignals&) = delete;
    QuietSignals& operator=(const QuietSignals&) = delete;

  private:
    sigset_t previousMask_;
    struct sigaction previousLimit_ = {};
};

// 0 or errno.
int writeAll(int file, std::string_view content) {
    while (!content.empty()) {
        ssize_t written = ::write(file, content.data(), content.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return written < 0 ? errno : EIO;
        }
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

void writeThrough(const std::string& path, std::string_view content) {
    int file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0) {
        fail(path, errno);
    }
    int error = writeAll(file, content);
    if (::close(file) != 0 && error == 0) {
        error = errno;
    }
    if (error != 0) {
        fail(path, error);
    }
}

mode_t newFileMode() {
    mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

}  // namespace

void writeFileWhole(const std::string& path, std::string_view content) {
    struct stat existing = {};
    bool exists = ::stat(path.c_str(), &existing) == 0;
    if (!exists && errno != ENOENT) {
        fail(path, errno);
    }
    if (exists && S_ISDIR(existing.st_mode)) {
        fail(path, EISDIR);
    }
    if (exists && !S_ISREG(existing.st_mode)) {
        writeThrough(path, content);
        return;
    }
    if (exists && ::access(path.c_str(), W_OK) != 0) {
        fail(path, errno);
    }
    std::string target = path;
    if (exists) {
        std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
        if (!resolved) {
            fail(path, errno);
        }
        target = resolved.get();
    }
    std::size_t slash = target.rfind('/');
    std::string folder = slash == std::string::npos ? "." : target.substr(0, slash + 1);
    std::string temporary = (slash == std::string::npos ? "" : folder) + ".quil-XXXXXX";

    QuietSignals quiet;
    int file = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (file < 0) {
        fail(path, errno);
    }
    int error = writeAll(file, content);
    if (error == 0 && exists && (existing.st_uid != ::geteuid() || existing.st_gid != ::getegid())) {
        // The owner stays where that is allowed; else the file becomes the writer's own.
        static_cast<void>(::fchown(file, existing.st_uid, existing.st_gid) == 0);
    }
    if (error == 0 && ::fchmod(file, exists ? existing.st_mode & 07777 : newFileMode()) != 0) {
        error = errno;
    }
    if (error == 0 && ::fsync(file) != 0) {
        error = errno;
    }
    if (::close(file) != 0 && error == 0) {
        error = errno;
    }
    if (error == 0 && ::rename(temporary.c_str(), target.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        ::unlink(temporary.c_str());
        fail(path, error);
    }
    int directory = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {  // the new name survives a power failure where the file system can promise it
        ::fsync(directory);
        ::close(directory);
    }
}

}  // namespace host
