// Fields of the file functions' parameters.
#pragma once

#include <cstring>
#include <string_view>

#include "util/fhandle.h"
#include "util/result.h"
#include "util/text.h"

namespace quil {

inline constexpr std::size_t kPathSize = 256;  // of a path field, with its terminator

// The first `Size` - 1 bytes of a parameter, taken apart at its '|'.
template <std::size_t Size = 1024>
class Fields {
  public:
    explicit Fields(char** paramHandle) {
        strcpyFHandleToCStr(text_, Size, paramHandle);
        rest_ = text_;
    }
    // The text up to the next '|', or all that is left, cut to the buffer. Whether there was a '|'.
    template <std::size_t N>
    bool take(char (&field)[N]) {
        const std::size_t bar = rest_.find('|');
        my_strncpy(field, rest_.substr(0, bar), N);
        rest_ = bar == std::string_view::npos ? std::string_view() : rest_.substr(bar + 1);
        return bar != std::string_view::npos;
    }
    // All that is left: the last field may hold a '|'.
    template <std::size_t N>
    void takeRest(char (&field)[N]) {
        my_strncpy(field, rest_, N);
        rest_ = {};
    }

  private:
    char text_[Size];
    std::string_view rest_;
};

inline constexpr char kResolutionError[] = "Error: ResolvePossiblePartialPath returned an error";

// Makes an error text and a path the answer, cut at 255 bytes.
inline std::int32_t AnswerCut(long funcNum, char** resultHandle, const char* words, const char* path) {
    char text[kPathSize];
    my_strncpy(text, words, sizeof text);
    const std::size_t length = std::strlen(text);
    my_strncpy(text + length, path, sizeof text - length);
    return Answer(funcNum, resultHandle, text);
}

// A path with its reference file, as most of the functions take them.
struct PathFields {
    char path[kPathSize];
    char reference[kPathSize];

    template <std::size_t Size>
    explicit PathFields(Fields<Size>& fields) {
        fields.take(path);
        fields.takeRest(reference);
    }
};

}  // namespace quil
