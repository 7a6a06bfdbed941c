#include "host/csv_stream.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "host/plugin.h"

namespace host {
namespace {

constexpr std::string_view kMark = "\xEF\xBB\xBF";

// The parser asks for memory for one cell; refusing it ends the cell.
void* limitedRealloc(void* block, std::size_t size) {
    return size > kLongestCell ? nullptr : std::realloc(block, size);
}

bool hasSpecial(std::string_view text) {
    unsigned special = 0;  // without branches, so that the compiler can look at many bytes at once
    for (const char c : text) {
        special |= static_cast<unsigned>((c == '"') | (c == ',') | (c == '\r') | (c == '\n'));
    }
    return special != 0;
}

int noBlank(unsigned char) {
    return 0;
}

}  // namespace

CsvReader::CsvReader(OnRow onRow) : onRow_(std::move(onRow)) {
    start();
}

CsvReader::~CsvReader() {
    csv_free(&parser_);
}

void CsvReader::start() {
    if (csv_init(&parser_, 0) != 0) {
        throw std::bad_alloc();
    }
    csv_set_space_func(&parser_, noBlank);
    csv_set_realloc_func(&parser_, limitedRealloc);
    csv_set_blk_size(&parser_, 4096);
}

void CsvReader::cellEnded(void* bytes, std::size_t size, void* self) {
    auto& reader = *static_cast<CsvReader*>(self);
    if (reader.failure_ || reader.tooLong_) {
        return;
    }
    try {
        if (reader.row_.size() + reader.ends_.size() + size > kLongestRow) {
            reader.tooLong_ = true;
            return;
        }
        reader.row_.append(static_cast<const char*>(bytes), size);
        reader.ends_.push_back(reader.row_.size());
    } catch (...) {
        reader.failure_ = std::current_exception();
    }
}

void CsvReader::rowEnded(int, void* self) {
    auto& reader = *static_cast<CsvReader*>(self);
    if (reader.failure_) {
        return;
    }
    try {
        reader.handOver(reader.tooLong_ ? "the row has more than 64 MiB" : "");
    } catch (...) {
        reader.failure_ = std::current_exception();
    }
}

void CsvReader::handOver(std::string_view problem) {
    cells_.clear();
    if (problem.empty()) {
        std::size_t start = 0;
        for (const std::size_t end : ends_) {
            cells_.emplace_back(row_.data() + start, end - start);
            start = end;
        }
    }
    onRow_({cells_, problem, cells_.size() > 1 && !hasSpecial(row_)});
    row_.clear();
    ends_.clear();
    tooLong_ = false;
}

void CsvReader::parse(std::string_view bytes) {
    while (!bytes.empty()) {
        if (skipping_) {
            const std::size_t end = bytes.find('\n');
            bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
            skipping_ = end == std::string_view::npos;
            continue;
        }
        const std::size_t used = csv_parse(&parser_, bytes.data(), bytes.size(), cellEnded, rowEnded, this);
        if (failure_) {
            std::rethrow_exception(std::exchange(failure_, nullptr));
        }
        bytes.remove_prefix(std::min(used, bytes.size()));
        if (bytes.empty()) {
            return;
        }
        if (parser_.entry_size + 1 < kLongestCell) {
            throw std::bad_alloc();
        }
        csv_free(&parser_);
        start();
        handOver("a cell has more than 1 MiB; is a quote not closed?");
        skipping_ = true;
    }
}

void CsvReader::feed(std::string_view bytes) {
    if (!started_) {
        head_ += bytes;
        if (head_.size() < kMark.size() && kMark.starts_with(head_)) {
            return;
        }
        if (head_.starts_with("\xFF\xFE") || head_.starts_with("\xFE\xFF")) {
            throw HostError("the text is UTF-16; save it as UTF-8, for example with iconv -f UTF-16 -t UTF-8");
        }
        started_ = true;
        const std::string head = std::exchange(head_, {});
        parse(std::string_view(head).substr(head.starts_with(kMark) ? kMark.size() : 0));
        return;
    }
    parse(bytes);
}

void CsvReader::finish() {
    if (!started_ && !head_.empty()) {
        started_ = true;
        parse(std::exchange(head_, {}));
    }
    constexpr int kInsideCell = 2;  // the parser's own number for it
    if (parser_.pstate == kInsideCell && parser_.quoted != 0) {
        handOver("a quote is not closed before the end of the text");
        return;
    }
    if (csv_fini(&parser_, cellEnded, rowEnded, this) != 0) {
        throw std::bad_alloc();
    }
    if (failure_) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
}

void appendCsvCell(std::string& out, std::string_view cell, bool alone) {
    bool plain = !hasSpecial(cell) && (!cell.empty() || !alone);
    if (plain && !cell.empty()) {
        const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
        plain = !isBlank(cell.front()) && !isBlank(cell.back());
    }
    if (plain) {
        out += cell;
        return;
    }
    const std::size_t start = out.size();
    out.resize(start + 2 * cell.size() + 2);
    out.resize(start + csv_write(out.data() + start, out.size() - start, cell.data(), cell.size()));
}

}  // namespace host
