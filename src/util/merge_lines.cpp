// Merging lines into a list of lines.
#include <algorithm>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <string_view>

#include "util/fhandle.h"

namespace quil {

static constexpr std::int32_t kNullHandle = -1;
static constexpr std::int32_t kOutOfMemory = -108;
static constexpr std::int32_t kLineTooLong = -345;
static constexpr std::ptrdiff_t kFewLines = 16;  // up to so many lines, each is searched for in the whole text

// Takes the next line that is not empty off the front of `rest`, cutting the text at its CR; null at the end.
static char* nextLine(char*& rest, char* end) {
    while (rest < end) {
        char* const line = rest;
        char* const stop = std::find(line, end, '\r');
        *stop = 0;
        rest = stop + 1;
        if (stop != line) {
            return line;
        }
    }
    return nullptr;
}

static std::int32_t mergeFewLines(char** handle, char* lines, char* end) {
    while (const char* const start = nextLine(lines, end)) {
        const std::size_t length = std::strlen(start);
        if (length > kMaxMergedLine) {
            return kLineTooLong;
        }
        char line[kMaxMergedLine + 2];
        std::memcpy(line, start, length);
        line[length] = '\r';
        line[length + 1] = 0;
        if (FHandleText(handle).find({line, length + 1}) == std::string_view::npos) {
            if (const std::int32_t error = CatHandleContents(handle, line); error != 0) {
                return error;
            }
        }
    }
    return 0;
}

namespace {

// Orders texts by their ends, so that those which end in a text follow it at once.
struct ByEnd {
    bool operator()(std::string_view a, std::string_view b) const {
        return std::lexicographical_compare(a.rbegin(), a.rend(), b.rbegin(), b.rend());
    }
};

}  // namespace

// A line and its CR occur in a text when one of the text's lines ends in the line: many lines are looked up by their
// ends instead of reading the whole text for each.
static std::int32_t mergeManyLines(char** handle, char* lines, char* end) {
    std::set<std::string_view, ByEnd> known;
    std::string_view tail = FHandleText(handle);
    for (std::size_t stop = tail.find('\r'); stop != std::string_view::npos; stop = tail.find('\r')) {
        known.insert(tail.substr(0, stop));
        tail.remove_prefix(stop + 1);
    }
    std::string first(tail);  // what the text ends in without a CR, with the first line that is added
    std::string added;
    std::int32_t status = 0;
    while (const char* const start = nextLine(lines, end)) {
        const std::string_view line = start;
        if (line.size() > kMaxMergedLine) {
            status = kLineTooLong;
            break;
        }
        const auto found = known.lower_bound(line);
        if (found == known.end() || !found->ends_with(line)) {
            known.insert(added.empty() ? std::string_view(first.append(line)) : line);
            added.append(line) += '\r';
        }
    }
    const std::int32_t error = added.empty() ? 0 : CatHandleContents(handle, added.c_str());
    return error != 0 ? error : status;
}

std::int32_t MergeHandleContents(char** handle, char* lines) {
    if (handle == nullptr || lines == nullptr) {
        return kNullHandle;
    }
    char* const end = lines + std::strlen(lines);
    if (std::count(lines, end, '\r') < kFewLines) {
        return mergeFewLines(handle, lines, end);
    }
    try {
        return mergeManyLines(handle, lines, end);
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    }
}

}  // namespace quil
