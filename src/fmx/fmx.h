// The host's plug-in interface: texts, values, parameters, locales and the registration of calculation functions.
//
// Host and plug-in share these classes; both link the library that implements them. Operations that return an `errcode`
// tell their failure by it (0 is success); all others raise `_fmxcpt`. The host catches what a plug-in function raises
// (`Evaluate`, below), so that a calculation always ends with a code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fmx {

using errcode = std::int16_t;

inline constexpr errcode kNoError = 0;
inline constexpr errcode kMemoryError = -108;    // out of memory
inline constexpr errcode kParameterError = -50;  // an argument out of range
inline constexpr errcode kNoHostError = -1;      // no host offers the operation, or an unknown failure
inline constexpr errcode kDuplicateError = -48;  // the function is registered already

// The interface's own exception: a host error inside an operation.
struct _fmxcpt {
    errcode code;
    explicit _fmxcpt(errcode error) : code(error) {}
    // Raises `error` unless it is 0.
    static void Check(errcode error) {
        if (error != kNoError) {
            throw _fmxcpt(error);
        }
    }
};

// A text: UTF-16 inside, any sequence of units (lone surrogates included), at most 2^31 units.
class Text {
  public:
    enum class Encoding : std::int32_t { native = 0, utf8 = 1, macRoman = 4 };  // native is UTF-8

    static constexpr std::uint32_t kNotFound = 0xFFFFFFFF;
    static constexpr std::uint32_t kToEnd = 0xFFFFFFFF;

    // Number of UTF-16 units.
    std::uint32_t GetSize() const { return static_cast<std::uint32_t>(units_.size()); }

    // Replaces the text by a null-terminated one. Bytes that are not valid in the encoding become U+FFFD.
    void Assign(const char* text, Encoding encoding = Encoding::native);
    // The same for bytes of a known length, NULs included.
    void AssignBytes(std::string_view bytes, Encoding encoding);
    // Replaces the text by null-terminated UTF-16 units.
    void AssignUnicode(const unsigned short* text);
    void AppendText(const Text& other, std::uint32_t position = 0, std::uint32_t size = kToEnd);

    // Writes the bytes of `size` units from `position` on to the buffer, terminated when there is room for it; bytes
    // beyond `bufferSize` are left out, never in the middle of a character. A lone surrogate becomes U+FFFD in UTF-8;
    // what Mac Roman lacks becomes '?'. kParameterError when the range lies outside the text.
    errcode GetBytes(char* buffer, std::uint32_t bufferSize, std::uint32_t position, std::uint32_t size,
                     Encoding encoding) const;

    // Position of the first occurrence of `what` at or after `position`, or kNotFound.
    std::uint32_t Find(const Text& what, std::uint32_t position = 0) const;
    void DeleteText(std::uint32_t position, std::uint32_t size = kToEnd);

    // Exact: unit by unit.
    bool operator==(const Text& other) const {
        return units_.size() == other.units_.size() &&
               std::memcmp(units_.data(), other.units_.data(), units_.size() * sizeof(char16_t)) == 0;
    }

    // The units themselves, for the host's side.
    std::u16string_view units() const { return units_; }
    void setUnits(std::u16string_view units) { units_ = units; }

  private:
    std::u16string units_;
};

// The language rules that a text came with.
class Locale {
  public:
    enum class Type : std::int32_t { none = 0, system = 1 };
    explicit Locale(Type type = Type::none) : type_(type) {}
    Type type() const { return type_; }

  private:
    Type type_;
};

// A four-character identifier.
class QuadChar {
  public:
    QuadChar(char a, char b, char c, char d) : text_{a, b, c, d} {}
    std::string_view text() const { return {text_, 4}; }
    bool operator==(const QuadChar& other) const { return text() == other.text(); }

  private:
    char text_[4];
};

// A value of the host: here always a text with its locale.
class Data {
  public:
    enum class NativeType : std::int32_t { invalid = 0, text = 1 };

    const Text& GetAsText() const { return text_; }
    const Locale& GetLocale() const { return locale_; }
    NativeType GetNativeType() const { return type_; }
    errcode SetAsText(const Text& text, const Locale& locale, NativeType type = NativeType::text);
    // Takes the text's memory over.
    errcode SetAsText(Text&& text, const Locale& locale, NativeType type = NativeType::text) {
        text_ = std::move(text);
        locale_ = locale;
        type_ = type;
        return kNoError;
    }
    // For the host's side: the same from UTF-8, into the memory that the text has already.
    void AssignHostText(std::string_view utf8, const Locale& locale) {
        text_.AssignBytes(utf8, Text::Encoding::utf8);
        locale_ = locale;
        type_ = NativeType::text;
    }

  private:
    Text text_;
    Locale locale_;
    NativeType type_ = NativeType::invalid;
};

// The parameters of a call. At and AtAsText raise kParameterError beyond the end.
class DataVect {
  public:
    std::uint32_t Size() const { return static_cast<std::uint32_t>(items_.size()); }
    const Data& At(std::uint32_t index) const;
    const Text& AtAsText(std::uint32_t index) const { return At(index).GetAsText(); }

    // For the host's side.
    void Resize(std::uint32_t size) { items_.resize(size); }
    Data& Mutable(std::uint32_t index) { return items_.at(index); }

  private:
    std::vector<Data> items_;
};

// Owning holders: each makes its object and releases it.
template <class T>
class AutoPtr {
  public:
    template <class... Arguments>
    explicit AutoPtr(Arguments... arguments) : object_(arguments...) {}
    AutoPtr(const AutoPtr&) = delete;
    AutoPtr& operator=(const AutoPtr&) = delete;
    T& operator*() { return object_; }
    const T& operator*() const { return object_; }
    T* operator->() { return &object_; }
    const T* operator->() const { return &object_; }

  private:
    T object_;
};
using TextAutoPtr = AutoPtr<Text>;
using LocaleAutoPtr = AutoPtr<Locale>;
using QuadCharAutoPtr = AutoPtr<QuadChar>;

class ExprEnv;

// A calculation function of a plug-in. Returns 0 or an error code; may raise _fmxcpt.
using ExternalFunction = errcode (*)(short funcId, const ExprEnv& env, const DataVect& params, Data& result);

// The environment of an expression, and the door to the host's function registry.
class ExprEnv {
  public:
    // Offers a function to the host's calculations. `flags`: 0xFF00 in all calculation dialogs, 0x0001 also on a
    // server. maxParams -1 means any number. Fails with kDuplicateError for an (identifier, number) in use,
    // kNoHostError without a host.
    static errcode RegisterExternalFunction(const QuadChar& pluginId, short funcId, const Text& name,
                                            const Text& prototype, short minParams, short maxParams,
                                            std::uint32_t flags, ExternalFunction function);
    static errcode UnRegisterExternalFunction(const QuadChar& pluginId, short funcId);
};

}  // namespace fmx
