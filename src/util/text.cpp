#include "util/text.h"

#include <algorithm>
#include <cstring>

namespace quil {

// Where NthLineInTextOptimizedForUseInLoop resumes.
static const char* t;   // start of the next line; null before the first loop
static long linesRead;  // lines that t has passed
static const char* p;   // where the current scan began, in either mode

void ResetLineCache() {
    t = nullptr;
    linesRead = 0;
    p = nullptr;
}

void my_strncpy(char* dst, const char* src, unsigned long n) {
    if (n != 0) {
        my_strncpy(dst, src == nullptr ? std::string_view() : std::string_view(src, strnlen(src, n - 1)), n);
    }
}

void my_strncpy(char* dst, std::string_view src, unsigned long n) {
    if (n == 0) {
        return;
    }
    const std::size_t count = std::min<std::size_t>(src.size(), n - 1);
    if (count != 0) {
        std::memmove(dst, src.data(), count);
    }
    dst[count] = 0;
    dst[n - 1] = 0;
}

void BlockMove(const void* src, void* dst, long count) {
    if (count >= 1) {
        std::memmove(dst, src, static_cast<std::size_t>(count));
    }
}

void BlockMoveData(const void* src, void* dst, long count) {
    BlockMove(src, dst, count);
}

bool NeedToReverseOSTypes() {
    const OSType code = "1234"_4;
    char first;
    std::memcpy(&first, &code, 1);
    return first == '4';
}

void SwapOSType(std::uint32_t* type) {
    const std::uint32_t v = *type;
    *type = v << 24 | (v << 8 & 0x00FF0000U) | (v >> 8 & 0x0000FF00U) | v >> 24;
}

OSType StringToOSType(const char* text) {
    char bytes[4] = {' ', ' ', ' ', ' '};
    if (text != nullptr) {
        std::memcpy(bytes, text, strnlen(text, 4));
    }
    OSType code;
    std::memcpy(&code, bytes, 4);
    if (NeedToReverseOSTypes()) {
        SwapOSType(&code);
    }
    return code;
}

void OSTypeToString(OSType type, char* dest) {
    if (NeedToReverseOSTypes()) {
        SwapOSType(&type);
    }
    std::memcpy(dest, &type, 4);
    dest[4] = 0;
}

bool IsAllSpacesOSType(OSType type) {
    return type == "    "_4;
}

void myc2pstr(const char* src, unsigned char* dest) {
    const std::size_t length = strnlen(src, 255);
    std::memmove(dest + 1, src, length);
    dest[0] = static_cast<unsigned char>(length);
}

void myp2cstr(const unsigned char* src, char* dest) {
    const std::size_t length = src[0];
    std::memmove(dest, src + 1, length);
    dest[length] = 0;
}

void pstrcat(unsigned char* dest, const unsigned char* src) {
    constexpr int kCap = 250;  // deliberately not 255
    const int count = std::min<int>(kCap - dest[0], src[0]);
    if (count > 0) {
        std::memmove(dest + 1 + dest[0], src + 1, static_cast<std::size_t>(count));
        dest[0] = static_cast<unsigned char>(dest[0] + count);
    }
}

void pstrcpy(unsigned char* dest, const unsigned char* src) {
    std::memmove(dest, src, std::size_t{1} + src[0]);
}

char mytoupper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

char* StrToUpper(char* text) {
    for (char* c = text; c != nullptr && *c != 0; ++c) {
        *c = mytoupper(*c);
    }
    return text;
}

bool StringToBoolean(char* text) {
    return text != nullptr && std::strcmp(StrToUpper(text), "TRUE") == 0;
}

// Behind the break at `c`, which is a CR or LF.
static const char* pastBreak(const char* c) {
    return c + (c[0] == '\r' && c[1] == '\n' ? 2 : 1);
}

static const char* lineEnd(const char* text) {
    return text + std::strcspn(text, "\r\n");
}

long NumLinesInText(const char* text) {
    long lines = 1;
    if (text != nullptr) {
        for (const char* end = lineEnd(text); *end != 0; end = lineEnd(end)) {
            end = pastBreak(end);
            lines += *end != 0;
        }
    }
    return lines;
}

char* NthLineInTextNonOptimized(const char* text, long n, char* dest, long destSize) {
    return NthLineInTextHelper(text, n, dest, false, destSize);
}

char* NthLineInTextOptimizedForUseInLoop(const char* text, long n, char* dest, long destSize) {
    return NthLineInTextHelper(text, n, dest, true, destSize);
}

char* NthLineInTextHelper(const char* text, long n, char* dest, bool optimized, long destSize) {
    if (optimized) {
        if (n == 0) {
            t = text;
            linesRead = 0;
        }
        p = t;
    } else {
        p = text;
    }
    if (p == nullptr) {
        p = "";
    }
    if (destSize > 0) {
        dest[0] = 0;
    }

    // An earlier line than the loop has reached is not there: the whole rest is passed in search of it.
    long toSkip = optimized ? n - linesRead : n;
    const char* line = p;
    while (toSkip != 0 && *line != 0) {
        line = lineEnd(line);
        if (*line != 0) {
            line = pastBreak(line);
            --toSkip;
        }
    }
    const char* const end = lineEnd(line);
    if (destSize > 0) {
        my_strncpy(dest, std::string_view(line, static_cast<std::size_t>(end - line)),
                   static_cast<unsigned long>(destSize));
    }
    if (optimized) {
        // At the end of the text the position stays on its terminator, so that a loop which runs on reads empty lines.
        t = *end == 0 ? end : pastBreak(end);
        ++linesRead;
    }
    return dest;
}

// Copies without '&', upper case. `dest` may be `text`.
static void copyMenuText(char* dest, const char* text) {
    for (; *text != 0; ++text) {
        if (*text != '&') {
            *dest++ = mytoupper(*text);
        }
    }
    *dest = 0;
}

void strcpyCleanedUpMenuTopicStr(char* dest, const char* title) {
    copyMenuText(dest, title);
}

void strcpyCleanedUpMenuItemStr(char* dest, const char* item) {
    char text[256];
    copyInto(text, item);
    const std::size_t length = std::strlen(text);
    if (length > 2 && std::strcmp(text + length - 3, "...") == 0) {
        text[length - 3] = 0;
    }
    copyMenuText(dest, text);
}

bool TopicStringsMatch(const char* a, const char* b) {
    for (;; ++a, ++b) {  // compared in place: titles have no limit
        a += std::strspn(a, "&");
        b += std::strspn(b, "&");
        if (mytoupper(*a) != mytoupper(*b)) {
            return false;
        }
        if (*a == 0) {
            return true;
        }
    }
}

bool MenuStrMatches(const char* a, const char* b) {
    char textA[256];
    char textB[256];
    strcpyCleanedUpMenuItemStr(textA, a);
    strcpyCleanedUpMenuItemStr(textB, b);
    return std::strcmp(textA, textB) == 0;
}

}  // namespace quil
