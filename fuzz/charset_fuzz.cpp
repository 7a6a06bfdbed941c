// The converters, my_IsUtf8 and both entry points, with any text, encoding and buffer size. The input's first four
// bytes choose: encodings, then the size of the buffer; the rest is the text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "util/charset.h"

namespace {

using namespace quil;

constexpr std::size_t kGuardSize = 16;
constexpr char kGuard = '\x5A';

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A zero-filled buffer between guards, which are looked at in the end.
class Buffer {
  public:
    explicit Buffer(std::size_t size) : bytes_(size + 2 * kGuardSize, kGuard), size_(size) {
        std::memset(data(), 0, size);
    }
    ~Buffer() {
        for (std::size_t i = 0; i < kGuardSize; ++i) {
            require(bytes_[i] == kGuard && bytes_[kGuardSize + size_ + i] == kGuard);
        }
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    char* data() { return bytes_.data() + kGuardSize; }
    std::string text() { return {data(), strnlen(data(), size_)}; }

  private:
    std::vector<char> bytes_;
    std::size_t size_;
};

struct Set {
    void (*toUtf8)(const char*, char*, unsigned long);
    void (*fromUtf8)(const char*, char*, long);
};

void check(const Set& set, const std::string& text, std::size_t size) {
    const char* source = text.c_str();
    const std::size_t enough = 3 * text.size() + 4;
    const bool isUtf8 = my_IsUtf8(source);

    Buffer whole(enough);
    set.toUtf8(source, whole.data(), enough);
    const std::string utf8 = whole.text();
    require(my_IsUtf8(utf8.c_str()));
    Buffer cut(size);
    set.toUtf8(source, cut.data(), size);
    require(utf8.starts_with(cut.text()) && my_IsUtf8(cut.text().c_str()));
    if (isUtf8) {
        require(utf8 == text && (cut.text() == text || cut.text().empty()));
    }

    // A text that came from the set goes back to it; a UTF-8 text goes there and back, or nowhere.
    Buffer back(enough);
    set.fromUtf8(utf8.c_str(), back.data(), static_cast<long>(enough));
    const std::string bytes = back.text();
    if (!isUtf8) {
        require(bytes == text);
    } else if (!bytes.empty() && !my_IsUtf8(bytes.c_str())) {
        Buffer again(enough);
        set.toUtf8(bytes.c_str(), again.data(), enough);
        require(again.text() == utf8);
    }
    Buffer tight(size);
    set.fromUtf8(source, tight.data(), static_cast<long>(size));
    require(tight.text() == (isUtf8 && bytes.size() < size ? bytes : std::string()));
    set.fromUtf8(source, tight.data(), -static_cast<long>(size));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 4) {
        return 0;
    }
    const auto from = static_cast<short>(data[0] % 5);
    const auto to = static_cast<short>(data[1] % 5);
    const std::size_t room = data[2] + 256U * (data[3] % 8U);
    const std::string raw(reinterpret_cast<const char*>(data) + 4, size - 4);
    const std::string text = raw.c_str();  // up to the first NUL

    require(!my_IsUtf8(nullptr));
    check({my_ConvertMacRomanToUtf8, my_ConvertUtf8ToMacRoman}, text, room);
    check({my_ConvertWindows1252ToUtf8, my_ConvertUtf8ToWindows1252}, text, room);

    Buffer converted(room);
    const unsigned long stored = my_ConvertStringEncoding(text.c_str(), from, converted.data(), to, room);
    require(stored <= room && converted.text().size() == stored);
    if (from == kEncodingUtf8 && to == kEncodingUtf8) {
        require(converted.text() == text.substr(0, room));
    }

    Buffer copied(room);
    const auto* bytes = reinterpret_cast<const unsigned char*>(raw.data());
    const unsigned long count = my_memcpy_encoding(copied.data(), room, bytes, raw.size(), to);
    require(count <= room && copied.text().size() == count);
    Buffer expected(room);
    const short encoding = my_IsUtf8(text.c_str()) ? kEncodingUtf8 : kEncodingMacRoman;
    my_ConvertStringEncoding(text.c_str(), encoding, expected.data(), to, room);
    require(copied.text() == expected.text());
    return 0;
}
