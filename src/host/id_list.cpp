#include "host/id_list.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/commands.h"
#include "host/private_session.h"
#include "platform/text.h"

namespace host {

namespace {

// Most lists are; a loop without an exit is one that the processor runs many bytes at a time.
bool isAscii(std::string_view text) {
    unsigned char bits = 0;
    for (const char c : text) {
        bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(c));
    }
    return bits < 0x80;
}

// Lines of a text that comes in pieces. CR LF is one end, also where two pieces meet.
class LineCounter {
  public:
    void add(std::string_view text) {
        if (text.empty()) {
            return;
        }
        ends_ += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
        if (last_ == '\r' && text[0] == '\n') {
            --ends_;
        }
        for (std::size_t at = text.find('\r'); at != std::string_view::npos; at = text.find('\r', at + 1)) {
            ends_ += at + 1 < text.size() && text[at + 1] == '\n' ? 0 : 1;
        }
        last_ = text.back();
    }
    std::size_t lines() const { return ends_ + (last_ == '\n' || last_ == '\r' ? 0 : 1); }

  private:
    std::size_t ends_ = 0;
    char last_ = '\n';
};

// pread of all that is there, up to `size` bytes. -1 and errno when it fails.
ssize_t readAt(int file, char* bytes, std::size_t size, std::int64_t position) {
    std::size_t got = 0;
    while (got < size) {
        const ssize_t count = ::pread(file, bytes + got, size - got, position + static_cast<std::int64_t>(got));
        if (count == 0) {
            break;
        }
        if (count > 0) {
            got += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(got);
}

}  // namespace

void IDList::Piece::look() {
    hasReturns = text().find('\r') != std::string_view::npos;
    isText = text().find('\0') == std::string_view::npos && (isAscii(text()) || platform::isUtf8(text()));
}

IDList::IDList(const std::string& path, std::size_t longest, std::size_t piece)
    : name_(path == "-" ? "standard input" : path), longest_(longest), pieceSize_(piece) {
    LineCounter counter;
    struct stat status {};
    if (path != "-" && ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        file_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (file_ < 0) {
        content_.buffer = readInput(path);
        content_.size = content_.buffer.size();
        content_.look();
        counter.add(content_.text());
    } else {
        ProgressLine progress("counting lines");
        std::string buffer(pieceSize_, '\0');
        std::int64_t position = 0;
        while (const ssize_t got = readAt(file_, buffer.data(), buffer.size(), position)) {
            if (got < 0) {
                const int error = errno;
                ::close(file_);
                errno = error;
                fail(std::string("cannot be read: ") + std::strerror(error));
            }
            counter.add({buffer.data(), static_cast<std::size_t>(got)});
            position += got;
            progress.showNow(static_cast<std::size_t>(position), static_cast<std::size_t>(status.st_size));
        }
    }
    count_ = counter.lines();
}

IDList::~IDList() {
    if (file_ >= 0) {
        ::close(file_);
    }
}

void IDList::fail(const std::string& why) const {
    throw HostError(name_ + ": " + why);
}

void IDList::checkLines(std::size_t lines) const {
    if (lines != count_) {
        fail("has changed while it was read; try again when nobody writes to it");
    }
}

void IDList::check(std::string_view id, std::size_t line) const {
    std::string why;
    if (id.size() > longest_) {
        why = (id.size() < pieceSize_ / 2 ? "has " + std::to_string(id.size())
                                          : "has over " + std::to_string(pieceSize_ / 2)) +
              " bytes; at most " + std::to_string(longest_) + " are kept";
    } else if (id.find('\0') != std::string_view::npos) {
        why = "has a NUL byte; is this a text file?";
    } else if (!platform::isUtf8(id)) {
        why = "is not UTF-8; convert the file, for example with iconv -f MACINTOSH -t UTF-8";
    } else {
        return;
    }
    throw HostError(name_ + ":" + std::to_string(line) + ": the ID " + why);
}

// --- pieces --------------------------------------------------------------------------------------------------------

void IDList::Reader::start() {
    coming_ =
        std::async(std::launch::async, [this, used = std::move(piece_)]() mutable { return read(std::move(used)); });
}

const IDList::Piece* IDList::Reader::next() {
    const bool first = !std::exchange(started_, true);
    if (list_.file_ < 0) {
        return first ? &list_.content_ : nullptr;
    }
    if (first) {
        start();
    }
    Piece next = coming_.get();
    if (next.size == 0) {
        return nullptr;
    }
    start();
    piece_ = std::move(next);
    return &piece_;
}

// Takes the piece's memory for the next one; an empty one at the end. A line that no piece can hold is too long for an
// ID by far: its start is handed on as a line.
IDList::Piece IDList::Reader::read(Piece piece) {
    const std::size_t size = list_.pieceSize_;
    piece.buffer.resize(size);
    std::copy(rest_.begin(), rest_.end(), piece.buffer.begin());
    const std::size_t room = size - rest_.size();
    const ssize_t got = readAt(list_.file_, piece.buffer.data() + rest_.size(), room, position_);
    if (got < 0) {
        list_.fail(std::string("cannot be read: ") + std::strerror(errno));
    }
    position_ += got;
    piece.size = rest_.size() + static_cast<std::size_t>(got);
    if (static_cast<std::size_t>(got) == room) {
        // A CR at the very end may have its LF in the next piece.
        const std::size_t last = piece.text().find_last_of("\r\n", piece.text().ends_with('\r') ? size - 2 : size);
        piece.size = last == std::string_view::npos ? size : last + 1;
        rest_.assign(piece.buffer, piece.size, std::string::npos);
    } else {
        rest_.clear();
    }
    piece.look();
    return piece;
}

}  // namespace host
