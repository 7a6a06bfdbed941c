// JSON as `quil rpc` reads and writes it: requests become a bounded document, answers are appended to a text.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace host {

// Error codes of JSON-RPC 2.0, and the one for requests that the plug-in or its bundle cannot serve.
inline constexpr int kParseError = -32700;
inline constexpr int kInvalidRequest = -32600;
inline constexpr int kMethodNotFound = -32601;
inline constexpr int kInvalidParams = -32602;
inline constexpr int kInternalError = -32603;
inline constexpr int kHostFailure = -32000;

struct RpcError : std::runtime_error {
    RpcError(int errorCode, const std::string& message) : std::runtime_error(message), code(errorCode) {}
    int code;
};

inline constexpr std::size_t kMaxJsonDepth = 64;

// Parses a document of at most kMaxJsonDepth levels. Throws RpcError: kParseError for what is not JSON in UTF-8,
// kInvalidRequest for deeper nesting.
nlohmann::json parseJson(std::string_view text);

// Appends a text in quotes. False, with nothing appended, when it is not valid UTF-8.
bool appendUtf8(std::string& output, std::string_view text);
// The same for any bytes: UTF-8 when they are valid, else Mac Roman.
void appendText(std::string& output, std::string_view text);
// A four-character code as a text of four characters.
void appendCode(std::string& output, platform::OSType code);
void appendNumber(std::string& output, std::int64_t value);
void appendBase64(std::string& output, std::string_view bytes);  // in quotes

// Reading of params. Each throws RpcError with kInvalidParams, naming the field by `path`, for example "mouse.v".

void checkObject(const nlohmann::json& value, std::string_view path);
// The same, and refuses fields other than these.
void checkFields(const nlohmann::json& object, std::string_view path, std::initializer_list<std::string_view> fields);
// A field of an object, or null when it is left out.
const nlohmann::json* findField(const nlohmann::json& object, std::string_view name);
// The same for a field that must be there.
const nlohmann::json& needField(const nlohmann::json& object, std::string_view path, std::string_view name);
std::string fieldPath(std::string_view path, std::string_view name);
std::string elementPath(std::string_view path, std::size_t index);

// A whole number, however it is written: 60, 60.0 or 6e1.
std::int64_t integerOf(const nlohmann::json& value, std::string_view path, std::int64_t least, std::int64_t most);
template <class T>
T integerOf(const nlohmann::json& value, std::string_view path) {
    return static_cast<T>(integerOf(value, path, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}
// The field, or `otherwise` when it is left out.
template <class T>
T integerField(const nlohmann::json& object, std::string_view path, std::string_view name, T otherwise) {
    const nlohmann::json* value = findField(object, name);
    return value == nullptr ? otherwise : integerOf<T>(*value, fieldPath(path, name));
}
const std::string& textOf(const nlohmann::json& value, std::string_view path);
const std::string& textField(const nlohmann::json& object, std::string_view path, std::string_view name);
const nlohmann::json& arrayOf(const nlohmann::json& value, std::string_view path);
// One to four characters that Mac Roman has, filled with blanks.
platform::OSType codeOf(const nlohmann::json& value, std::string_view path);
std::string base64Of(const nlohmann::json& value, std::string_view path);

}  // namespace host
