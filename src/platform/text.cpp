#include "platform/text.h"

namespace platform {

// Mac Roman 0x80 to 0xFF, in its current form: 0xDB is the euro sign.
static constexpr char16_t macRomanTable[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5,
    0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4,
    0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6,
    0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, 0x221E, 0x00B1, 0x2264, 0x2265,
    0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF,
    0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5,
    0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044,
    0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9,
    0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

char32_t nextCharacter(std::string_view text, std::size_t& at) {
    if (at >= text.size()) {
        return noCharacter;
    }
    auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) {
        ++at;
        return lead;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() - at < length) {
        return noCharacter;
    }
    char32_t character = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) {
            return noCharacter;
        }
        character = (character << 6) | (byte(at + i) & 0x3Fu);
    }
    const bool overlong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
    if (overlong || character > 0x10FFFF || (character >= 0xD800 && character <= 0xDFFF)) {
        return noCharacter;
    }
    at += length;
    return character;
}

bool isUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        if (nextCharacter(text, at) == noCharacter) {
            return false;
        }
    }
    return true;
}

void appendUtf8(std::string& text, char32_t character) {
    auto trail = [&](int shift) { return static_cast<char>(0x80 | ((character >> shift) & 0x3F)); };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | (character >> 6));
        text += trail(0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0 | (character >> 12));
        text += trail(6);
        text += trail(0);
    } else {
        text += static_cast<char>(0xF0 | (character >> 18));
        text += trail(12);
        text += trail(6);
        text += trail(0);
    }
}

char32_t characterOfMacRoman(char byte) {
    const auto code = static_cast<unsigned char>(byte);
    return code < 0x80 ? code : macRomanTable[code - 0x80];
}

std::string utf8Of(std::string_view bytes) {
    if (isUtf8(bytes)) {
        return std::string(bytes);
    }
    std::string text;
    for (char byte : bytes) {
        appendUtf8(text, characterOfMacRoman(byte));
    }
    return text;
}

std::string utf8Of(std::u16string_view text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t character = text[i];
        if (character >= 0xD800 && character <= 0xDFFF) {
            const bool pair =
                character < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
            character = pair ? 0x10000 + ((character - 0xD800) << 10) + (text[++i] - 0xDC00u) : 0xFFFD;
        }
        appendUtf8(bytes, character);
    }
    return bytes;
}

}  // namespace platform
