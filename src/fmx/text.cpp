// Host texts and their encodings.

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <string>

#include "fmx/fmx.h"

namespace fmx {
namespace {

// Unicode of the Mac Roman bytes 0x80 to 0xFF, the standard mapping in its current form (euro sign at 0xDB, the
// private-use U+F8FF at 0xF0).
constexpr char16_t kMacRoman[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5,
    0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4,
    0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6,
    0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, 0x221E, 0x00B1, 0x2264, 0x2265,
    0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF,
    0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5,
    0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044,
    0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9,
    0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7};

constexpr char16_t kReplacement = 0xFFFD;
constexpr std::size_t kLongText = 65536;

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Eight units, or as many bytes, at a time.
constexpr std::size_t kStep = 8;
using StepUnits [[gnu::vector_size(kStep * 2)]] = std::uint16_t;
using StepBytes [[gnu::vector_size(kStep)]] = std::uint8_t;

bool isAsciiStep(const unsigned char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return (word & 0x8080808080808080) == 0;
}

bool isAsciiStep(const char16_t* units) {
    std::uint64_t words[2];
    std::memcpy(words, units, sizeof words);
    return ((words[0] | words[1]) & 0xFF80FF80FF80FF80) == 0;
}

void copyStep(const unsigned char* bytes, char16_t* units) {
    StepBytes narrow;
    std::memcpy(&narrow, bytes, sizeof narrow);
    const auto wide = __builtin_convertvector(narrow, StepUnits);
    std::memcpy(units, &wide, sizeof wide);
}

void copyStep(const char16_t* units, char* bytes) {
    StepUnits wide;
    std::memcpy(&wide, units, sizeof wide);
    const auto narrow = __builtin_convertvector(wide, StepBytes);
    std::memcpy(bytes, &narrow, sizeof narrow);
}

// Copies the ASCII characters at the front, between bytes and units; returns how many.
template <typename From, typename To>
std::size_t copyAscii(const From* from, std::size_t size, To* to) {
    std::size_t i = 0;
    for (; i + kStep <= size; i += kStep) {
        if (!isAsciiStep(from + i)) {
            break;
        }
        copyStep(from + i, to + i);
    }
    if (size >= kStep && size - i < kStep && isAsciiStep(from + size - kStep)) {
        copyStep(from + size - kStep, to + size - kStep);  // the rest, and some of what is there already
        return size;
    }
    for (; i < size && from[i] < 0x80; ++i) {
        to[i] = static_cast<To>(from[i]);
    }
    return i;
}

// Decodes one non-ASCII character of UTF-8. Returns the bytes used; an invalid sequence uses one byte and gives U+FFFD.
std::size_t decodeUtf8(const unsigned char* bytes, std::size_t size, char32_t& character) {
    const unsigned char lead = bytes[0];
    character = kReplacement;
    if (lead >= 0xC2 && lead <= 0xDF && size >= 2 && isContinuation(bytes[1])) {
        character = (lead & 0x1FU) << 6 | (bytes[1] & 0x3FU);
        return 2;
    }
    if ((lead & 0xF0) == 0xE0 && size >= 3 && isContinuation(bytes[1]) && isContinuation(bytes[2])) {
        const char32_t value = (lead & 0x0FU) << 12 | (bytes[1] & 0x3FU) << 6 | (bytes[2] & 0x3FU);
        if (value >= 0x800 && (value < 0xD800 || value > 0xDFFF)) {
            character = value;
            return 3;
        }
    }
    if (lead >= 0xF0 && lead <= 0xF4 && size >= 4 && isContinuation(bytes[1]) && isContinuation(bytes[2]) &&
        isContinuation(bytes[3])) {
        const char32_t value =
            (lead & 0x07U) << 18 | (bytes[1] & 0x3FU) << 12 | (bytes[2] & 0x3FU) << 6 | (bytes[3] & 0x3FU);
        if (value >= 0x10000 && value <= 0x10FFFF) {
            character = value;
            return 4;
        }
    }
    return 1;
}

bool isAscii(std::string_view text) {
    unsigned char bits = 0;
    for (const char c : text) {
        bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(c));
    }
    return bits < 0x80;
}

void assignUtf8(std::u16string& units, std::string_view text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    if (text.size() > kLongText && text.size() > units.capacity() && isAscii(text)) {
        units = std::u16string(bytes, bytes + text.size());  // unlike resize, it touches the memory once
        return;
    }
    units.resize(text.size());  // no byte gives more than one unit
    char16_t* out = units.data();
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t run = copyAscii(bytes + i, text.size() - i, out);
        out += run;
        i += run;
        if (i < text.size()) {
            char32_t character;
            i += decodeUtf8(bytes + i, text.size() - i, character);
            if (character < 0x10000) {
                *out++ = static_cast<char16_t>(character);
            } else {
                *out++ = static_cast<char16_t>(0xD7C0 + (character >> 10));
                *out++ = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
            }
        }
    }
    units.resize(static_cast<std::size_t>(out - units.data()));
}

bool isLead(char16_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
bool isTrail(char16_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

// Encodes one character; returns the number of bytes (1 to 4).
std::size_t encodeUtf8(char32_t character, char* out) {
    const auto byte = [](char32_t value) { return static_cast<char>(static_cast<unsigned char>(value)); };
    if (character < 0x80) {
        out[0] = byte(character);
        return 1;
    }
    if (character < 0x800) {
        out[0] = byte(0xC0 | character >> 6);
        out[1] = byte(0x80 | (character & 0x3F));
        return 2;
    }
    if (character < 0x10000) {
        out[0] = byte(0xE0 | character >> 12);
        out[1] = byte(0x80 | (character >> 6 & 0x3F));
        out[2] = byte(0x80 | (character & 0x3F));
        return 3;
    }
    out[0] = byte(0xF0 | character >> 18);
    out[1] = byte(0x80 | (character >> 12 & 0x3F));
    out[2] = byte(0x80 | (character >> 6 & 0x3F));
    out[3] = byte(0x80 | (character & 0x3F));
    return 4;
}

// Encodes the units behind the first `used` ones, which became as many bytes.
[[gnu::noinline]] std::size_t encodeRest(std::u16string_view units, char* buffer, std::size_t room, std::size_t used) {
    for (std::size_t i = used; i < units.size(); ++i) {
        char32_t character = units[i];
        if (character < 0x80) {
            if (used == room) {
                break;
            }
            buffer[used++] = static_cast<char>(character);
            continue;
        }
        if (isLead(units[i]) && i + 1 < units.size() && isTrail(units[i + 1])) {
            character = 0x10000 + ((character & 0x3FF) << 10) + (units[i + 1] & 0x3FFU);
            ++i;
        } else if (isLead(units[i]) || isTrail(units[i])) {
            character = kReplacement;
        }
        char bytes[4];
        const std::size_t count = encodeUtf8(character, bytes);
        if (room - used < count) {
            break;
        }
        std::memcpy(buffer + used, bytes, count);
        used += count;
    }
    return used;
}

std::size_t utf8Bytes(std::u16string_view units, char* buffer, std::size_t room) {
    const std::size_t used = copyAscii(units.data(), std::min(units.size(), room), buffer);
    return used == units.size() ? used : encodeRest(units, buffer, room, used);
}

std::size_t macRomanBytes(std::u16string_view units, char* buffer, std::size_t room) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < units.size() && used < room; ++i) {
        const char16_t unit = units[i];
        char byte = '?';
        if (unit < 0x80) {
            byte = static_cast<char>(unit);
        } else if (const auto* found = std::find(std::begin(kMacRoman), std::end(kMacRoman), unit);
                   found != std::end(kMacRoman)) {
            byte = static_cast<char>(0x80 + (found - kMacRoman));
        }
        if (isLead(unit) && i + 1 < units.size() && isTrail(units[i + 1])) {
            ++i;
        }
        buffer[used++] = byte;
    }
    return used;
}

}  // namespace

void Text::Assign(const char* text, Encoding encoding) {
    AssignBytes(text == nullptr ? "" : text, encoding);
}

void Text::AssignBytes(std::string_view bytes, Encoding encoding) {
    try {
        if (encoding == Encoding::macRoman) {
            units_.resize(bytes.size());
            std::transform(bytes.begin(), bytes.end(), units_.begin(), [](char c) {
                const auto byte = static_cast<unsigned char>(c);
                return byte < 0x80 ? static_cast<char16_t>(byte) : kMacRoman[byte - 0x80];
            });
        } else {
            assignUtf8(units_, bytes);
        }
    } catch (const std::bad_alloc&) {
        throw _fmxcpt(kMemoryError);
    }
}

void Text::AssignUnicode(const unsigned short* text) {
    try {
        units_.clear();
        for (; *text != 0; ++text) {
            units_.push_back(static_cast<char16_t>(*text));
        }
    } catch (const std::bad_alloc&) {
        throw _fmxcpt(kMemoryError);
    }
}

void Text::AppendText(const Text& other, std::uint32_t position, std::uint32_t size) {
    if (position > other.units_.size()) {
        throw _fmxcpt(kParameterError);
    }
    try {
        units_.append(other.units_, position, size == kToEnd ? std::u16string::npos : size);
    } catch (const std::bad_alloc&) {
        throw _fmxcpt(kMemoryError);
    }
}

errcode Text::GetBytes(char* buffer, std::uint32_t bufferSize, std::uint32_t position, std::uint32_t size,
                       Encoding encoding) const {
    if (position > units_.size() || size > units_.size() - position) {
        return kParameterError;
    }
    const auto part = std::u16string_view(units_).substr(position, size);
    const std::size_t used =
        encoding == Encoding::macRoman ? macRomanBytes(part, buffer, bufferSize) : utf8Bytes(part, buffer, bufferSize);
    if (used < bufferSize) {
        buffer[used] = 0;
    }
    return kNoError;
}

std::uint32_t Text::Find(const Text& what, std::uint32_t position) const {
    const std::size_t at = units_.find(what.units_, position);
    return at == std::u16string::npos ? kNotFound : static_cast<std::uint32_t>(at);
}

void Text::DeleteText(std::uint32_t position, std::uint32_t size) {
    if (position > units_.size()) {
        throw _fmxcpt(kParameterError);
    }
    units_.erase(position, size == kToEnd ? std::u16string::npos : size);
}

}  // namespace fmx
