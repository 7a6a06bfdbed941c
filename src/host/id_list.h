// Lists of record IDs, as filters read them: one ID a line, lines ended by LF, CR or CR LF, empty lines left out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <future>
#include <string>
#include <string_view>

namespace host {

class IDList {
  public:
    static constexpr std::size_t kPiece = 1 << 20;

    // Counts the lines of a file, which is read in pieces of so many bytes; "-" is standard input, which is read whole,
    // like a pipe. An ID may have `longest` bytes, less than half a piece. Throws HostError that names the file.
    IDList(const std::string& path, std::size_t longest, std::size_t piece = kPiece);
    ~IDList();
    IDList(const IDList&) = delete;
    IDList& operator=(const IDList&) = delete;

    const std::string& name() const { return name_; }  // for messages
    std::size_t count() const { return count_; }       // of lines: there are no more IDs

    // Calls `each` with every ID in turn and the number of its line, from 1. A file is read in pieces, the next one
    // while `each` is at work. Throws HostError that names file and line for an ID that is too long, has a NUL or is
    // not UTF-8, and for a file that has changed since its lines were counted.
    template <class Each>
    void forEach(Each each) const;

  private:
    // Some of a list, up to the end of a line.
    struct Piece {
        std::string buffer;
        std::size_t size = 0;     // of which so much is the text
        bool hasReturns = false;  // CR stands somewhere
        bool isText = false;      // all of it is UTF-8 without a NUL

        std::string_view text() const { return {buffer.data(), size}; }
        void look();
    };

    // The pieces of a list one after the other.
    class Reader {
      public:
        explicit Reader(const IDList& list) : list_(list) {}
        const Piece* next();  // null at the end

      private:
        void start();
        Piece read(Piece piece);

        const IDList& list_;
        bool started_ = false;
        Piece piece_;
        std::string rest_;  // the start of a line whose end has not been read
        std::int64_t position_ = 0;
        std::future<Piece> coming_;  // goes first, for it reads into the others
    };

    void check(std::string_view id, std::size_t line) const;
    void checkLines(std::size_t lines) const;
    [[noreturn]] void fail(const std::string& why) const;

    std::string name_;
    std::size_t longest_;
    std::size_t pieceSize_;
    int file_ = -1;  // none: all is in the content
    Piece content_;
    std::size_t count_ = 0;
};

template <class Each>
void IDList::forEach(Each each) const {
    std::size_t line = 1;
    Reader reader(*this);
    while (const Piece* piece = reader.next()) {
        const std::string_view text = piece->text();
        for (std::size_t at = 0; at < text.size(); ++line) {
            const std::size_t found = piece->hasReturns ? text.find_first_of("\r\n", at) : text.find('\n', at);
            const std::size_t end = std::min(found, text.size());
            const bool two = text.substr(end, 2) == "\r\n";
            if (end != at) {
                if (!piece->isText || end - at > longest_) {
                    check(text.substr(at, end - at), line);
                }
                each(text.substr(at, end - at), line);
            }
            at = end + (two ? 2 : 1);
        }
    }
    checkLines(line - 1);
}

}  // namespace host
