#include "host/streamed_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "host/plugin.h"

namespace host {
namespace {

constexpr std::size_t kBlock = std::size_t{1} << 18;

}  // namespace

StreamedFile::StreamedFile(std::string path) : path_(std::move(path)) {
    struct stat existing = {};
    const bool exists = ::stat(path_.c_str(), &existing) == 0;
    if (!exists && errno != ENOENT) {
        fail(errno);
    }
    if (exists && S_ISDIR(existing.st_mode)) {
        fail(EISDIR);
    }
    if (exists && ::access(path_.c_str(), W_OK) != 0) {
        fail(errno);
    }
    if (exists && !S_ISREG(existing.st_mode)) {
        file_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
        if (file_ < 0) {
            fail(errno);
        }
        return;
    }
    if (exists) {  // a link stays a link
        if (char* resolved = ::realpath(path_.c_str(), nullptr)) {
            path_ = resolved;
            std::free(resolved);
        }
    }
    const mode_t mask = ::umask(0);
    ::umask(mask);
    mode_ = exists ? existing.st_mode & 07777U : 0666U & ~mask;
    const std::size_t slash = path_.rfind('/');
    temporary_ = (slash == std::string::npos ? std::string() : path_.substr(0, slash + 1)) + ".quil-XXXXXX";
    file_ = ::mkostemp(temporary_.data(), O_CLOEXEC);
    if (file_ < 0) {
        temporary_.clear();
        fail(errno);
    }
}

StreamedFile::~StreamedFile() {
    if (file_ >= 0) {
        ::close(file_);
    }
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
    }
}

void StreamedFile::fail(int error) {
    throw HostError(path_ + ": cannot be written: " + std::strerror(error));
}

void StreamedFile::append(std::string_view text) {
    waiting_ += text;
    if (waiting_.size() >= kBlock) {
        flush();
    }
}

void StreamedFile::flush() {
    std::string_view rest = waiting_;
    while (!rest.empty()) {
        const ssize_t written = ::write(file_, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) {
            fail(errno);
        }
        rest.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    waiting_.clear();
}

void StreamedFile::finish() {
    flush();
    if (!temporary_.empty() && (::fchmod(file_, mode_) != 0 || ::fsync(file_) != 0)) {
        fail(errno);
    }
    if (::close(std::exchange(file_, -1)) != 0) {
        fail(errno);
    }
    if (!temporary_.empty()) {
        if (::rename(temporary_.c_str(), path_.c_str()) != 0) {
            fail(errno);
        }
        temporary_.clear();
    }
}

}  // namespace host
