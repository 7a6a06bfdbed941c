// Answers of script functions.
#pragma once

#include <cstdint>
#include <string_view>

namespace quil {

// Makes `text` the answer; when that fails, reports it to the user under the function's number. The status.
std::int32_t Answer(long funcNum, char** resultHandle, std::string_view text);
// The same for a number in decimal.
std::int32_t AnswerNumber(long funcNum, char** resultHandle, long number);
// The answer "Error" after memory ran out, which is reported. -108.
std::int32_t AnswerOutOfMemory(long funcNum, char** resultHandle);

}  // namespace quil
