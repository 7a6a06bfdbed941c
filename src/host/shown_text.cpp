#include "host/shown_text.h"

#include <unistd.h>

#include <cstdio>

#include "platform/text.h"

namespace host {

// Not the control characters above ASCII either, which many terminals obey.
static bool isPlain(char32_t character) {
    return character != platform::noCharacter && character >= 0x20 && (character < 0x7F || character > 0x9F);
}

std::string shown(std::string_view bytes) {
    bool plain = true;
    for (std::size_t at = 0; plain && at < bytes.size();) {
        plain = isPlain(platform::nextCharacter(bytes, at));
    }
    if (plain) {
        return std::string(bytes);
    }
    std::string text;
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t next = at;
        if (isPlain(platform::nextCharacter(bytes, next))) {
            text += bytes.substr(at, next - at);
            text += bytes[at] == '\\' ? "\\" : "";
            at = next;
        } else {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(bytes[at])));
            text += code;
            ++at;
        }
    }
    return text;
}

std::string shownOn(int stream, std::string_view bytes) {
    return ::isatty(stream) == 1 ? shown(bytes) : std::string(bytes);
}

}  // namespace host
