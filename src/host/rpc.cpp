// The loop of `quil rpc`: lines in, answers out, each with as few system calls as the peer's pace allows.

#include "host/rpc.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <vector>

namespace host {
namespace {

constexpr std::size_t kChunk = 256U << 10;
constexpr std::size_t kKeptBuffer = 1U << 20;  // a buffer that one long line made larger is given back

// Waits until the descriptor is ready, for those that do not block.
bool awaitReady(int fd, short events) {
    pollfd descriptor{fd, events, 0};
    return ::poll(&descriptor, 1, -1) >= 0 || errno == EINTR;
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            if (!awaitReady(fd, POLLOUT)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Bytes read; 0 at the end of input, -1 on failure.
ssize_t readSome(int fd, char* buffer, std::size_t size) {
    for (;;) {
        const ssize_t count = ::read(fd, buffer, size);
        if (count >= 0 || (errno != EINTR && errno != EAGAIN)) {
            return count;
        }
        if (errno == EAGAIN && !awaitReady(fd, POLLIN)) {
            return -1;
        }
    }
}

// A closed output is told by write's result while this lives.
class IgnorePipeSignal {
  public:
    IgnorePipeSignal() {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(SIGPIPE, &ignore, &before_);
    }
    ~IgnorePipeSignal() { ::sigaction(SIGPIPE, &before_, nullptr); }
    IgnorePipeSignal(const IgnorePipeSignal&) = delete;
    IgnorePipeSignal& operator=(const IgnorePipeSignal&) = delete;

  private:
    struct sigaction before_ {};
};

// Cuts the input into lines and gathers the answers until no whole line is left.
class Loop {
  public:
    Loop(RpcSession& session, int inputFd, int outputFd) : session_(session), input_(inputFd), output_(outputFd) {}

    int run() {
        for (;;) {
            if (!serveWholeLines() || !flush()) {
                return 1;
            }
            makeRoom();
            const ssize_t count = readSome(input_, buffer_.data() + end_, buffer_.size() - end_);
            if (count < 0) {
                return 1;
            }
            if (count == 0) {
                return serveRest() ? 0 : 1;
            }
            end_ += static_cast<std::size_t>(count);
        }
    }

  private:
    bool serveWholeLines() {
        while (scanned_ < end_) {
            const void* found = std::memchr(buffer_.data() + scanned_, '\n', end_ - scanned_);
            if (found == nullptr) {
                scanned_ = end_;
                break;
            }
            const auto lineEnd = static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.data());
            serveLine(lineEnd);
            start_ = scanned_ = lineEnd + 1;
            if (answers_.size() >= kChunk && !flush()) {
                return false;
            }
        }
        if (end_ - start_ > kMaxRpcLine) {
            skipping_ = true;
        }
        if (skipping_) {
            start_ = scanned_ = end_ = 0;
        }
        return true;
    }

    void serveLine(std::size_t lineEnd) {
        if (skipping_ || lineEnd - start_ > kMaxRpcLine) {
            skipping_ = false;
            session_.refuseLongLine(answers_);
        } else {
            session_.serve({buffer_.data() + start_, lineEnd - start_}, answers_);
        }
    }

    // The last line may lack its line feed.
    bool serveRest() {
        if (end_ > start_ || skipping_) {
            serveLine(end_);
        }
        return flush();
    }

    void makeRoom() {
        const std::size_t waiting = end_ - start_;
        if (start_ != 0) {
            std::memmove(buffer_.data(), buffer_.data() + start_, waiting);
            start_ = 0;
            end_ = scanned_ = waiting;
        }
        if (buffer_.size() > kKeptBuffer && waiting < kChunk) {
            buffer_.resize(2 * kChunk);
            buffer_.shrink_to_fit();
        } else if (buffer_.size() - end_ < kChunk) {
            buffer_.resize(std::max(2 * buffer_.size(), 2 * kChunk));
        }
    }

    bool flush() {
        const bool good = writeAll(output_, answers_);
        answers_.clear();
        if (answers_.capacity() > kKeptBuffer) {
            answers_.shrink_to_fit();
        }
        return good;
    }

    RpcSession& session_;
    int input_;
    int output_;
    std::vector<char> buffer_;
    std::size_t start_ = 0;    // of the line that is not served yet
    std::size_t scanned_ = 0;  // no line feed between start_ and here
    std::size_t end_ = 0;      // of what was read
    bool skipping_ = false;    // inside a line that is too long
    std::string answers_;
};

}  // namespace

int runRpc(const RpcOptions& options, int inputFd, int outputFd) {
    const IgnorePipeSignal ignorePipeSignal;
    RpcSession session(options);
    return Loop(session, inputFd, outputFd).run();
}

}  // namespace host
