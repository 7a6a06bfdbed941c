#include "platform/linux/bus_names.h"

#include <algorithm>

#include "platform/text.h"

namespace platform {

static constexpr char hexDigits[] = "0123456789abcdef";

static bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

static bool isWord(char c) {
    return isDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

static std::string bytesOf(OSType code) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(code >> shift & 0xFF);
    }
    return bytes;
}

std::string partnerElement(OSType signature) {
    std::string bytes = bytesOf(signature);
    if (!isDigit(bytes.front()) && std::all_of(bytes.begin(), bytes.end(), isWord)) {
        return bytes;
    }
    std::string element = "x";
    for (int shift = 28; shift >= 0; shift -= 4) {
        element += hexDigits[signature >> shift & 0xF];
    }
    return element;
}

std::string partnerName(OSType signature) {
    return partnerPrefix + partnerElement(signature);
}

std::string partnerPath(OSType signature) {
    return "/org/quil/Partner/" + partnerElement(signature);
}

bool signatureOfName(std::string_view name, OSType& signature) {
    if (!name.starts_with(partnerPrefix)) {
        return false;
    }
    const std::string_view element = name.substr(sizeof partnerPrefix - 1);
    OSType code = 0;
    if (element.size() == 4) {
        for (const char c : element) {
            code = code << 8 | static_cast<unsigned char>(c);
        }
    } else if (element.size() == 9) {
        for (const char c : element.substr(1)) {
            const std::size_t digit = std::string_view(hexDigits).find(c);
            code = code << 4 | static_cast<OSType>(digit & 0xF);
        }
    }
    if (partnerElement(code) != element) {
        return false;
    }
    signature = code;
    return true;
}

std::string textOfCode(OSType code) {
    std::string text;
    for (const char c : bytesOf(code)) {
        appendUtf8(text, characterOfMacRoman(c));
    }
    return text;
}

static bool macRomanOf(char32_t character, char& byte) {
    if (character < 0x80) {
        byte = static_cast<char>(character);
        return true;
    }
    for (int i = 0x80; i < 0x100; ++i) {
        byte = static_cast<char>(i);
        if (characterOfMacRoman(byte) == character) {
            return true;
        }
    }
    return false;
}

bool codeOfText(std::string_view text, OSType& code) {
    std::size_t at = 0;
    OSType result = 0;
    for (int i = 0; i < 4; ++i) {
        const char32_t character = nextCharacter(text, at);
        char byte = 0;
        if (character == noCharacter || !macRomanOf(character, byte)) {
            return false;
        }
        result = result << 8 | static_cast<unsigned char>(byte);
    }
    if (at != text.size()) {
        return false;
    }
    code = result;
    return true;
}

std::string uriOfPath(std::string_view path) {
    std::string uri = "file://";
    for (const char c : path) {
        if (isWord(c) || c == '/' || c == '.' || c == '-' || c == '~') {
            uri += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            uri += '%';
            uri += hexDigits[byte >> 4];
            uri += hexDigits[byte & 0xF];
        }
    }
    return uri;
}

static int digitOf(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool pathOfUri(std::string_view uri, std::string& path) {
    for (const std::string_view scheme : {"file://localhost/", "file:///", "file:/"}) {
        if (!uri.starts_with(scheme)) {
            continue;
        }
        const std::string_view rest = uri.substr(scheme.size() - 1);
        if (rest.starts_with("//")) {
            return false;  // of another computer
        }
        std::string result;
        for (std::size_t i = 0; i < rest.size(); ++i) {
            char c = rest[i];
            if (c == '%') {
                const int high = i + 1 < rest.size() ? digitOf(rest[i + 1]) : -1;
                const int low = i + 2 < rest.size() ? digitOf(rest[i + 2]) : -1;
                if (high < 0 || low < 0) {
                    return false;
                }
                c = static_cast<char>(high << 4 | low);
                i += 2;
            }
            if (c == 0) {
                return false;
            }
            result += c;
        }
        path = result;
        return true;
    }
    return false;
}

}  // namespace platform
