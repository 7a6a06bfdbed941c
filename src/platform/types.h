// The machine's basic quantities: status numbers, four-character codes, rectangles and points.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// A status of the machine: 0 is success, negative numbers are the platform's own error numbers.
using Status = std::int16_t;

inline constexpr Status noErr = 0;
inline constexpr Status dirFulErr = -33;               // folder full
inline constexpr Status dskFulErr = -34;               // disk full
inline constexpr Status nsvErr = -35;                  // no such volume
inline constexpr Status ioErr = -36;                   // input/output error
inline constexpr Status bdNamErr = -37;                // bad name
inline constexpr Status fnOpnErr = -38;                // file not open
inline constexpr Status eofErr = -39;                  // end of file reached
inline constexpr Status posErr = -40;                  // position before the start of the file
inline constexpr Status tmfoErr = -42;                 // too many files open
inline constexpr Status fnfErr = -43;                  // file not found
inline constexpr Status wPrErr = -44;                  // volume is write-protected
inline constexpr Status fLckdErr = -45;                // file is locked
inline constexpr Status fBsyErr = -47;                 // file is busy
inline constexpr Status dupFNErr = -48;                // a file of that name exists
inline constexpr Status paramErr = -50;                // bad argument
inline constexpr Status rfNumErr = -51;                // bad file reference
inline constexpr Status permErr = -54;                 // permission denied
inline constexpr Status memFullErr = -108;             // out of memory
inline constexpr Status dirNFErr = -120;               // no such folder
inline constexpr Status resNotFound = -192;            // no such resource
inline constexpr Status procNotFound = -600;           // no such process
inline constexpr Status bufferIsSmall = -607;          // the receiver's queue is full
inline constexpr Status connectionInvalid = -609;      // there is no connection to other applications
inline constexpr Status errAECoercionFail = -1700;     // a parameter is not of the type asked for
inline constexpr Status errAEDescNotFound = -1701;     // event has no such parameter
inline constexpr Status errAEEventNotHandled = -1708;  // event (or a parameter of it) was not handled
inline constexpr Status notAFileErr = -1302;           // a folder, or something else that is not a file

// A four-character code, first character most significant.
using OSType = std::uint32_t;

// "MSSG"_4: a four-character code, checked by the compiler.
consteval OSType operator""_4(const char* text, std::size_t length) {
    if (length != 4) {
        throw "a four-character code has exactly four characters";
    }
    OSType code = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        code = (code << 8) | static_cast<unsigned char>(text[i]);
    }
    return code;
}

struct Point {
    std::int16_t v = 0;
    std::int16_t h = 0;
    bool operator==(const Point&) const = default;
};

struct Rect {
    std::int16_t top = 0;
    std::int16_t left = 0;
    std::int16_t bottom = 0;
    std::int16_t right = 0;
    bool operator==(const Rect&) const = default;
};

}  // namespace platform
