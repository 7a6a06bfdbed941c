#include "host/rpc_json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "fmx/fmx.h"
#include "host/plugin.h"
#include "platform/text.h"

namespace host {

using nlohmann::json;

namespace {

// Builds the document while the text is parsed. Beyond the depth limit nothing is kept, but the syntax is still
// checked.
class DocumentBuilder {
  public:
    explicit DocumentBuilder(json& root) : root_(root) {}

    bool null() { return put(nullptr); }
    bool boolean(bool value) { return put(value); }
    bool number_integer(json::number_integer_t value) { return put(value); }
    bool number_unsigned(json::number_unsigned_t value) { return put(value); }
    bool number_float(json::number_float_t value, const std::string&) { return put(value); }
    bool string(std::string& value) { return put(std::move(value)); }
    bool binary(json::binary_t&) { return false; }  // no such thing in a text

    bool start_object(std::size_t) { return start(json::object()); }
    bool start_array(std::size_t) { return start(json::array()); }
    bool end_object() { return end(); }
    bool end_array() { return end(); }
    bool key(std::string& name) {
        if (!tooDeep_) {
            member_ = &(*open_.back())[std::move(name)];  // of a name given twice the last one counts
        }
        return true;
    }

    bool parse_error(std::size_t, const std::string&, const json::exception& error) {
        message_ = error.what();
        // "[json.exception.NAME.ID] message"
        message_.erase(0, std::min(message_.find("] "), message_.size() - 2) + 2);
        return false;
    }

    bool tooDeep() const { return tooDeep_; }
    const std::string& message() const { return message_; }

  private:
    template <class Value>
    bool put(Value&& value) {
        if (!tooDeep_) {
            place(json(std::forward<Value>(value)));
        }
        return true;
    }

    json& place(json&& value) {
        if (open_.empty()) {
            root_ = std::move(value);
            return root_;
        }
        json& parent = *open_.back();
        if (parent.is_array()) {
            parent.push_back(std::move(value));
            return parent.back();
        }
        *member_ = std::move(value);
        return *member_;
    }

    bool start(json&& container) {
        if (tooDeep_) {
            return true;
        }
        if (open_.size() == kMaxJsonDepth) {
            tooDeep_ = true;
            open_.clear();
            root_ = nullptr;
            return true;
        }
        open_.push_back(&place(std::move(container)));
        return true;
    }

    bool end() {
        if (!tooDeep_) {
            open_.pop_back();
        }
        return true;
    }

    json& root_;
    std::vector<json*> open_;
    json* member_ = nullptr;
    bool tooDeep_ = false;
    std::string message_;
};

// ASCII that stands for itself.
bool isPlain(char c) {
    return static_cast<unsigned char>(c) - 0x20U < 0x60U && c != '"' && c != '\\';
}

void appendEscape(std::string& output, char c) {
    switch (c) {
        case '"':
            output += "\\\"";
            break;
        case '\\':
            output += "\\\\";
            break;
        case '\n':
            output += "\\n";
            break;
        case '\r':
            output += "\\r";
            break;
        case '\t':
            output += "\\t";
            break;
        default:
            constexpr std::string_view kDigits = "0123456789abcdef";
            output += "\\u00";
            output += kDigits[static_cast<unsigned char>(c) >> 4];
            output += kDigits[static_cast<unsigned char>(c) & 15U];
    }
}

std::string fromMacRoman(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        platform::appendUtf8(text, platform::characterOfMacRoman(byte));
    }
    return text;
}

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

[[noreturn]] void refuse(std::string_view path, std::string_view problem) {
    throw RpcError(kInvalidParams, std::string(path) + " " + std::string(problem));
}

}  // namespace

json parseJson(std::string_view text) {
    json document;
    DocumentBuilder builder(document);
    if (!json::sax_parse(text.begin(), text.end(), &builder)) {
        throw RpcError(kParseError, builder.message());
    }
    if (builder.tooDeep()) {
        throw RpcError(kInvalidRequest,
                       "the request is nested deeper than " + std::to_string(kMaxJsonDepth) + " levels");
    }
    return document;
}

bool appendUtf8(std::string& output, std::string_view text) {
    const std::size_t before = output.size();
    output += '"';
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t start = i;
        while (i < text.size() && isPlain(text[i])) {
            ++i;
        }
        output.append(text, start, i - start);
        if (i == text.size()) {
            break;
        }
        const char c = text[i];
        if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\') {
            appendEscape(output, c);
            ++i;
            continue;
        }
        const std::size_t character = i;
        if (platform::nextCharacter(text, i) == platform::noCharacter) {
            output.resize(before);
            return false;
        }
        output.append(text, character, i - character);
    }
    output += '"';
    return true;
}

void appendText(std::string& output, std::string_view text) {
    if (!appendUtf8(output, text)) {
        appendUtf8(output, fromMacRoman(text));
    }
}

void appendCode(std::string& output, platform::OSType code) {
    const std::array<char, 4> bytes = {static_cast<char>(code >> 24), static_cast<char>(code >> 16 & 0xFF),
                                       static_cast<char>(code >> 8 & 0xFF), static_cast<char>(code & 0xFF)};
    appendUtf8(output, fromMacRoman({bytes.data(), bytes.size()}));
}

void appendNumber(std::string& output, std::int64_t value) {
    std::array<char, 24> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    output.append(digits.data(), end);
}

void appendBase64(std::string& output, std::string_view bytes) {
    output += '"';
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [bytes](std::size_t at) -> unsigned {
            return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0U;
        };
        const unsigned group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        output += kBase64[group >> 18];
        output += kBase64[group >> 12 & 63U];
        output += i + 1 < bytes.size() ? kBase64[group >> 6 & 63U] : '=';
        output += i + 2 < bytes.size() ? kBase64[group & 63U] : '=';
    }
    output += '"';
}

std::string fieldPath(std::string_view path, std::string_view name) {
    return path.empty() ? std::string(name) : std::string(path) + "." + std::string(name);
}

std::string elementPath(std::string_view path, std::size_t index) {
    return std::string(path) + "[" + std::to_string(index) + "]";
}

void checkObject(const json& value, std::string_view path) {
    if (!value.is_object()) {
        refuse(path.empty() ? "params" : path, "must be an object");
    }
}

void checkFields(const json& object, std::string_view path, std::initializer_list<std::string_view> fields) {
    checkObject(object, path);
    for (const auto& [name, value] : object.items()) {
        if (std::find(fields.begin(), fields.end(), name) == fields.end()) {
            refuse(fieldPath(path, name), "is not a field of this request");
        }
    }
}

const json* findField(const json& object, std::string_view name) {
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

const json& needField(const json& object, std::string_view path, std::string_view name) {
    const json* value = findField(object, name);
    if (value == nullptr) {
        refuse(fieldPath(path, name), "is missing");
    }
    return *value;
}

std::int64_t integerOf(const json& value, std::string_view path, std::int64_t least, std::int64_t most) {
    constexpr double kExact = 9'007'199'254'740'992;  // 2^53: up to here every whole number is a double of its own
    bool fits = value.is_number_integer();
    if (value.is_number_unsigned()) {
        fits = std::in_range<std::int64_t>(value.get<std::uint64_t>());
    } else if (value.is_number_float()) {
        const auto real = value.get<double>();
        fits = std::abs(real) <= kExact && std::trunc(real) == real;
    }
    const std::int64_t number = fits ? value.get<std::int64_t>() : 0;
    if (!fits || number < least || number > most) {
        refuse(path, "must be a whole number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return number;
}

const std::string& textOf(const json& value, std::string_view path) {
    if (!value.is_string()) {
        refuse(path, "must be a text");
    }
    return value.get_ref<const std::string&>();
}

const std::string& textField(const json& object, std::string_view path, std::string_view name) {
    return textOf(needField(object, path, name), fieldPath(path, name));
}

const json& arrayOf(const json& value, std::string_view path) {
    if (!value.is_array()) {
        refuse(path, "must be an array");
    }
    return value;
}

platform::OSType codeOf(const json& value, std::string_view path) {
    const fmx::Text text = toText(textOf(value, path));
    std::array<char, 4> bytes = {' ', ' ', ' ', ' '};
    const std::uint32_t size = text.GetSize();
    if (size == 0 || size > bytes.size()) {
        refuse(path, "must be a code of one to four characters");
    }
    fmx::_fmxcpt::Check(text.GetBytes(bytes.data(), size, 0, size, fmx::Text::Encoding::macRoman));
    if (fromMacRoman({bytes.data(), size}) != value.get_ref<const std::string&>()) {
        refuse(path, "must be a code of characters that Mac Roman has");
    }
    platform::OSType code = 0;
    for (const char byte : bytes) {
        code = code << 8 | static_cast<unsigned char>(byte);
    }
    return code;
}

std::string base64Of(const json& value, std::string_view path) {
    const std::string& text = textOf(value, path);
    std::string bytes;
    std::size_t size = text.size();
    bool good = size % 4 == 0;
    for (int padding = 0; padding < 2 && size != 0 && text[size - 1] == '='; ++padding) {
        --size;
    }
    unsigned group = 0;
    for (std::size_t i = 0; i < size && good; ++i) {
        const std::size_t digit = kBase64.find(text[i]);
        good = digit != std::string_view::npos;
        group = (group << 6 | static_cast<unsigned>(digit)) & 0xFFFFFFU;
        if (i % 4 != 0) {
            bytes += static_cast<char>(group >> (6 - 2 * (i % 4)) & 0xFFU);
        }
    }
    if (!good) {
        refuse(path, "must be base64");
    }
    return bytes;
}

}  // namespace host
