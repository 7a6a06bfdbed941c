// Strings files: any bytes are refused with a line, or give a table that is the same when it is written and read again.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/bundle.h"

using platform::parseStrings;
using platform::StringsTable;

static void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "strings_fuzz: %s\n", what);
        std::abort();
    }
}

// A text as it can stand in a strings file: ASCII where it can, escapes for the rest.
static std::string quoted(std::u16string_view text) {
    std::string result = "\"";
    for (char16_t unit : text) {
        if (unit >= 0x20 && unit < 0x7F && unit != u'"' && unit != u'\\') {
            result += static_cast<char>(unit);
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\U%04X", static_cast<unsigned>(unit));
            result += escape;
        }
    }
    return result + "\"";
}

// Keys are UTF-8; they go back as they are, but for what a quoted text has to escape.
static std::string quotedKey(std::string_view key) {
    std::string result = "\"";
    for (char byte : key) {
        result += byte == '"' || byte == '\\' ? std::string("\\") + byte : std::string(1, byte);
    }
    return result + "\"";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    StringsTable table{{"left", u"over"}};
    const std::string error = parseStrings(text, table);
    if (!error.empty()) {
        require(table.empty(), "a refused file left entries");
        require(error.starts_with("line "), "a refusal without its line");
        return 0;
    }
    std::string written;
    for (const auto& [key, value] : table) {
        written += quotedKey(key) + " = " + quoted(value) + ";\n";
    }
    if (written.size() > std::size_t{4} << 20) {
        return 0;  // the escapes made it larger than a strings file may be
    }
    StringsTable again;
    require(parseStrings(written, again).empty(), "what was written is refused");
    require(again == table, "what was written is read differently");
    return 0;
}
