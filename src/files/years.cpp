#include "files/years.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "files/base_directory.h"
#include "files/parameters.h"
#include "platform/machine.h"
#include "util/alerts.h"
#include "util/memory.h"
#include "util/paths.h"

namespace quil {

using platform::FileRef;

static constexpr long kIDLength = 8;
static constexpr std::int64_t kShortestFile = 20;  // shorter ones are taken to hold nothing
static constexpr std::size_t kLargestBuffer = 300'000;
static constexpr std::size_t kBufferStep = 20'000;
static constexpr std::size_t kErrorTextSize = 256;
static constexpr short kNoBufferToChange = -1;

static platform::Files& files() {
    return platform::machine().files();
}

static bool isWanted(short year) {
    return year >= kFirstTorvaneYear && year <= kLastTorvaneYear;
}

void InitTorvaneYearInfo(TorvaneYearInfo* info) {
    *info = {};
}

void MergeTorvaneYearInfo(TorvaneYearInfo* result, const TorvaneYearInfo* a, const TorvaneYearInfo* b) {
    std::transform(std::begin(a->year), std::end(a->year), std::begin(b->year), std::begin(result->year),
                   [](std::uint8_t one, std::uint8_t other) -> std::uint8_t { return one != 0 || other != 0; });
}

// --- in memory -----------------------------------------------------------------------------------------------------

static char lower(char c) {
    return static_cast<char>(c | 0x20);  // of a letter
}

static bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Bit i for the i-th letter of the alphabet.
static constexpr std::uint32_t letters(std::string_view text) {
    std::uint32_t bits = 0;
    for (const char c : text) {
        bits |= 1U << (c - 'a');
    }
    return bits;
}

short TorvaneYearFromID(const char* text) {
    static constexpr std::uint32_t kAfterC = letters("klmtv");
    static constexpr std::uint32_t kAfterF = letters("ad");
    static constexpr std::uint32_t kAfterP = letters("h");
    const char first = lower(text[0]);
    const std::uint32_t allowed = first == 'c' ? kAfterC : first == 'f' ? kAfterF : first == 'p' ? kAfterP : 0;
    if (allowed == 0) {
        return 0;
    }
    const auto second = static_cast<unsigned char>(lower(text[1]) - 'a');
    if (second >= 26 || (allowed >> second & 1) == 0 || lower(text[2]) != 't' ||
        text[3] != 'R' ||  // deliberate: a capital only
        text[4] != '2' || text[5] != '0' || !isDigit(text[6]) || !isDigit(text[7])) {
        return 0;
    }
    return static_cast<short>(2000 + 10 * (text[6] - '0') + (text[7] - '0'));
}

namespace {

// At which of the next places an identifier of the years 2000 to 2019 may begin, by the bytes "R20" behind its first
// three: a bit for each.
#if defined(__SSE2__)
constexpr long kPlaces = 16;
unsigned placesIn(const char* text) {
    const auto at = [text](int offset, char byte) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + offset));
        return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(byte));
    };
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(_mm_and_si128(at(3, 'R'), at(4, '2')), at(5, '0'))));
}
#else
constexpr long kPlaces = 8;
unsigned placesIn(const char* text) {
    unsigned places = 0;
    for (int i = 0; i < kPlaces; ++i) {
        places |= static_cast<unsigned>((text[i + 3] == 'R') & (text[i + 4] == '2') & (text[i + 5] == '0')) << i;
    }
    return places;
}
#endif

// Calls `each` with every identifier of the years 2000 to 2019 and its year.
template <typename Each>
void forEachID(char* text, long length, Each each) {
    const auto look = [&each](char* place) {
        if (const short year = TorvaneYearFromID(place); isWanted(year)) {
            each(place, year);
        }
    };
    long at = 0;
    for (; at + kPlaces + kIDLength <= length; at += kPlaces) {
        for (unsigned places = placesIn(text + at); places != 0; places &= places - 1) {
            look(text + at + std::countr_zero(places));
        }
    }
    for (; at + kIDLength <= length; ++at) {
        look(text + at);
    }
}

}  // namespace

void GetTorvaneYearsFromText(TorvaneYearInfo* out, const char* text, long length) {
    InitTorvaneYearInfo(out);
    forEachID(const_cast<char*>(text), length,
              [out](const char*, short year) { out->year[year - kFirstTorvaneYear] = 1; });
}

// No identifier ends where another begins, so that changing one neither makes nor breaks another.
void ChangeAllTorvaneIDs(char* text, long length, short year) {
    if (!isWanted(year)) {
        return;
    }
    char digits[16];
    std::snprintf(digits, sizeof digits, "%d", year);
    forEachID(text, length, [&digits](char* id, short) { std::memcpy(id + 4, digits, 4); });
}

// --- in a file -----------------------------------------------------------------------------------------------------

namespace {

// Room for what is read at once and the 8 bytes before it, as large as can be had.
class Buffer {
  public:
    Buffer() {
        for (size_ = kLargestBuffer; size_ != 0; size_ -= kBufferStep) {
            block_ = static_cast<char*>(allocator().allocateZeroed(size_ + kIDLength + 1));
            if (block_ != nullptr) {
                return;
            }
        }
    }
    ~Buffer() { allocator().release(block_); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    char* bytes() { return block_; }
    std::size_t size() const { return size_; }

  private:
    char* block_ = nullptr;
    std::size_t size_ = 0;
};

enum class Purpose { scan, change };

// Opens the file and tells its length. The machine's status, with a text in `errorText`.
OSErr openFile(const char* path, Purpose purpose, FileRef& ref, std::int64_t& length, char* errorText) {
    const auto fail = [errorText](OSErr error, const char* text) {
        my_strncpy(errorText, text, kErrorTextSize);
        return error;
    };
    FSSpec spec;
    platform::FInfo info;
    OSErr error = GetFSSpecFromFullPath(path, &spec);
    if (error == platform::noErr) {
        error = files().getFinderInfo(spec, info);
    }
    if (error != platform::noErr) {
        return fail(error, "Error: hgetfinfo failed.");
    }
    error = purpose == Purpose::scan ? files().openDataFork(spec, platform::ForkPermission::read, ref)
                                     : files().openForUpdate(spec, ref);
    if (error != platform::noErr) {
        return fail(error, "Error: hopendf failed.");
    }
    error = files().getEOF(ref, length);
    if (error != platform::noErr) {
        files().close(ref);
        return fail(error, "Error: GetEOF failed.");
    }
    return error;
}

OSErr readAll(FileRef ref, char* bytes, std::size_t count) {
    std::size_t got = 0;
    const OSErr error = files().read(ref, {bytes, count}, got);
    return error == platform::noErr && got < count ? platform::ioErr : error;
}

OSErr writeAll(FileRef ref, const char* bytes, std::size_t count) {
    std::size_t put = 0;
    const OSErr error = files().write(ref, {bytes, count}, put);
    return error == platform::noErr && put < count ? platform::ioErr : error;
}

// Reads a file of at least 8 bytes and calls `each` with the bytes read and the 8 before them, their number, and
// whether they are the last. Stops at the first error.
template <typename Each>
OSErr forEachChunk(FileRef ref, std::int64_t length, Buffer& buffer, Each each) {
    char* const bytes = buffer.bytes();
    OSErr error = files().setPosition(ref, 0);
    if (error == platform::noErr) {
        error = readAll(ref, bytes, kIDLength);
    }
    for (std::int64_t left = length - kIDLength; error == platform::noErr && left > 0;) {
        const auto chunk =
            static_cast<std::size_t>(std::min<std::int64_t>(left, static_cast<std::int64_t>(buffer.size())));
        error = readAll(ref, bytes + kIDLength, chunk);
        if (error == platform::noErr) {
            left -= static_cast<std::int64_t>(chunk);
            error = each(bytes, chunk + kIDLength, left == 0);
            std::memmove(bytes, bytes + chunk, kIDLength);
        }
    }
    return error;
}

}  // namespace

void GetTorvaneYearsFromIDs(TorvaneYearInfo* out, const char* path, char* errorText, short* error) {
    InitTorvaneYearInfo(out);
    errorText[0] = 0;
    Buffer buffer;
    if (buffer.bytes() == nullptr) {
        my_strncpy(errorText, "Error: Unable to allocate buffer. (Out of memory)", kErrorTextSize);
        *error = platform::memFullErr;
        return;
    }
    FileRef ref = 0;
    std::int64_t length = 0;
    *error = openFile(path, Purpose::scan, ref, length, errorText);
    if (*error != platform::noErr) {
        return;
    }
    if (length >= kShortestFile) {
        *error = forEachChunk(ref, length, buffer, [out](const char* bytes, std::size_t count, bool) {
            TorvaneYearInfo found;
            GetTorvaneYearsFromText(&found, bytes, static_cast<long>(count));
            MergeTorvaneYearInfo(out, out, &found);
            return platform::noErr;
        });
    }
    files().close(ref);
}

short ChangeTorvaneIDsInFile(const char* path, short year, char* errorText) {
    errorText[0] = 0;
    Buffer buffer;
    if (buffer.bytes() == nullptr) {
        return kNoBufferToChange;
    }
    FileRef ref = 0;
    std::int64_t length = 0;
    OSErr error = openFile(path, Purpose::change, ref, length, errorText);
    if (error != platform::noErr) {
        return error;
    }
    if (length >= kShortestFile) {
        std::int64_t written = 0;
        error = forEachChunk(ref, length, buffer, [&](char* bytes, std::size_t count, bool last) {
            ChangeAllTorvaneIDs(bytes, static_cast<long>(count), year);
            const std::size_t complete = last ? count : count - kIDLength;
            OSErr status = files().setPosition(ref, written);
            if (status == platform::noErr) {
                status = writeAll(ref, bytes, complete);
            }
            if (status == platform::noErr) {
                written += static_cast<std::int64_t>(complete);
                status = last ? platform::noErr : files().setPosition(ref, written + kIDLength);
            }
            return status;
        });
    }
    // Also after an error: what was changed so far stays changed.
    const OSErr closing = files().close(ref);
    return error != platform::noErr ? error : closing;
}

// --- script functions ----------------------------------------------------------------------------------------------

static void report(long funcNum, const char* errorText, short error) {
    if (errorText[0] != 0) {
        ReportErrorMsgToUser(errorText);
    }
    if (error != 0) {
        ReportErrorToUser(funcNum, error);
    }
}

std::int32_t GLN1GetTorvaneYearsFromIDs(long funcNum, char** paramHandle, char** resultHandle) {
    Fields fields(paramHandle);
    const PathFields given(fields);
    char full[kPathSize];
    if (ResolvePossiblePartialPath(given.path, given.reference, false, full) != 0) {
        return Answer(funcNum, resultHandle, kResolutionError);
    }
    if (!FileExists(full)) {
        return 0;
    }
    TorvaneYearInfo info;
    char errorText[kErrorTextSize];
    short error = 0;
    GetTorvaneYearsFromIDs(&info, full, errorText, &error);
    report(funcNum, errorText, error);
    if (error != 0 || errorText[0] != 0) {
        return error;
    }
    char years[5 * std::size(info.year) + 1] = "";
    std::size_t length = 0;
    for (std::size_t i = 0; i < std::size(info.year); ++i) {
        if (info.year[i] != 0) {
            length += static_cast<std::size_t>(std::snprintf(years + length, sizeof years - length,
                                                             length == 0 ? "%d" : " %d",
                                                             kFirstTorvaneYear + static_cast<int>(i)));
        }
    }
    return length == 0 ? 0 : Answer(funcNum, resultHandle, years);
}

std::int32_t GLN1ChangeTorvaneIDsInFile(long funcNum, char** paramHandle, char** resultHandle) {
    Fields fields(paramHandle);
    char number[kPathSize];
    if (!fields.take(number)) {
        return Answer(funcNum, resultHandle,
                      "Error: GLN1ChangeTorvaneIDsInFile requires two parameters (vertical bar not found)");
    }
    const auto year = static_cast<short>(std::strtol(number, nullptr, 10));
    if (!isWanted(year)) {
        char text[kErrorTextSize];
        std::snprintf(text, sizeof text,
                      "Programmer Error: GLN1ChangeTorvaneIDsInFile year must be between 2000 and %d",
                      kLastTorvaneYear);
        return Answer(funcNum, resultHandle, text);
    }
    const PathFields given(fields);
    char full[kPathSize];
    if (ResolvePossiblePartialPath(given.path, given.reference, false, full) != 0) {
        return Answer(funcNum, resultHandle, kResolutionError);
    }
    if (!FileExists(full)) {
        return 0;
    }
    char errorText[kErrorTextSize];
    const short error = ChangeTorvaneIDsInFile(full, year, errorText);
    report(funcNum, errorText, error);
    return error;
}

}  // namespace quil
