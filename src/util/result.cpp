#include "util/result.h"

#include "util/alerts.h"
#include "util/fhandle.h"

namespace quil {

std::int32_t Answer(long funcNum, char** resultHandle, std::string_view text) {
    const std::int32_t error = SetResultsHandleText(resultHandle, text);
    if (error != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(error));
    }
    return error;
}

std::int32_t AnswerNumber(long funcNum, char** resultHandle, long number) {
    char digits[24];
    mylong2str(number, digits);
    return Answer(funcNum, resultHandle, digits);
}

std::int32_t AnswerOutOfMemory(long funcNum, char** resultHandle) {
    static constexpr short kOutOfMemory = -108;
    SetResultsHandle(resultHandle, "Error");
    ReportErrorToUser(funcNum, kOutOfMemory);
    return kOutOfMemory;
}

}  // namespace quil
