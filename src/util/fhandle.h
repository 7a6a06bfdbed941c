// Byte handles: growable buffers that hold a terminated text, a bare text or a packed array; the currency of every
// script function.
//
// A handle is a char** whose target is the data pointer, so `(*handle)[i]` indexes the bytes. There is no spare
// capacity: growing allocates a zero-filled block of exactly the new size and copies; shrinking lowers the size alone,
// and the bytes behind it stay until the next growth, which zeroes them. Code that assembles a long answer builds it
// elsewhere and stores it once. Sizes are 32-bit; a size that does not fit is out of memory.
//
// Status codes: 0 success, -1 null handle (or null argument where stated), -108 out of memory with the handle
// unchanged, -345 a merged line too long.
#pragma once

#include <cstdint>
#include <string_view>

namespace quil {

// Longest line that MergeHandleContents takes, in bytes.
inline constexpr std::size_t kMaxMergedLine = 510;

// The record that a handle points to. Only this library looks into it.
struct FHandle {
    char* data;
    std::uint32_t size;
    std::uint32_t room;  // growth up to here stays in the record, behind which the room stands
};

// The caller owns the handle and releases it with DisposeAndClearFHandle. Null when memory cannot be had.
char** NewFHandle(unsigned long size);
// An empty handle that is expected to stay small: at least `room` bytes stand in its record, so that growing to them
// takes no block of its own. The record is most often one that a disposed handle left.
char** NewFHandleWithRoom(std::uint32_t room);
// Gives back what disposed handles left.
void ReleaseKeptHandles();
// Frees the handle and sets it to null; a null handle or null pointer is allowed.
void DisposeAndClearFHandle(char*** handlePtr);
inline long GetFHandleSize(char** handle) {  // 0 for null
    return handle == nullptr || *handle == nullptr ? 0 : static_cast<long>(reinterpret_cast<FHandle*>(handle)->size);
}
std::int32_t SetFHandleSize(char** handle, unsigned long newSize);

std::int32_t SetResultsHandle(char** handle, const char* text);  // bare; a null text changes nothing
// The same for a text of known length.
std::int32_t SetResultsHandleText(char** handle, std::string_view text);
std::int32_t SetHandleContentsAndIncludeTerminator(char** handle, const char* text);
std::int32_t EnsureHandleIsNullTerminated(char** handle);
// A handle of one byte keeps its terminator.
void RemoveTrailingNullTerminator(char** handle);

// Appends; a terminated (or empty) handle ends terminated, a bare one bare.
std::int32_t CatHandleContents(char** handle, const char* text);
// Appends the lines (separated by CR) that the handle's list does not hold yet, each with a CR. "Holds" is a plain
// substring search: the tail of a longer line counts. `lines` is cut at its CRs.
std::int32_t MergeHandleContents(char** handle, char* lines);
// Appends raw bytes, for arrays of fixed records.
std::int32_t AppendStructToHandle(char** handle, const void* bytes, long count);

// -1, 0 or 1, byte by byte as signed values (0x80 to 0xFF come before ASCII); beyond its end a handle counts as zeros.
std::int32_t strcmpFHandles(char** a, char** b);
// Copies at most destSize - 1 bytes and terminates; returns the length of the handle's whole text.
unsigned long strcpyFHandleToCStr(char* dest, unsigned long destSize, char** handle);
std::int32_t CopyFHandleToResultHandle(char** source, char** result);

// Decimal form of a 32-bit value, -2147483648 excluded; dest holds at least 12 bytes.
void mylong2str(long value, char* dest);

// Line breaks, each in a global that every call rewrites.
extern char gReturnString[4];
extern char gIbmReturnString[4];
extern char gMacReturnString[4];
char* ReturnString();     // CR
char* IbmReturnString();  // CR LF
char* MacReturnString();  // CR

// The handle's text: its bytes up to the first NUL or its end.
std::string_view FHandleText(char** handle);

}  // namespace quil
