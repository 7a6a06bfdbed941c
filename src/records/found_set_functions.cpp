// Script functions of the record-ID sets.

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/machine.h"
#include "records/found_set.h"
#include "records/records.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/numbers.h"
#include "util/result.h"
#include "util/text.h"

namespace quil {

static constexpr short kOutOfMemory = -108;

std::int32_t VSTA_InitFoundSet(long funcNum, char** paramHandle, char** resultHandle) {
    char text[32];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    DisposeSet(gFoundSet);
    const std::int32_t capacity = DecimalPrefix(text);
    if (capacity < 1) {
        return 0;
    }
    if (AllocateSet(gFoundSet, static_cast<std::uint32_t>(capacity)) != 0) {
        return AnswerOutOfMemory(funcNum, resultHandle);
    }
    gFoundSet.startTick = platform::machine().input().ticks();
    ShowFoundSetProgress(gFoundSet);
    return 0;
}

std::int32_t VSTA_SetNextFoundID(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    AppendID(gFoundSet, FHandleText(paramHandle));
    ShowFoundSetProgress(gFoundSet);
    return 0;
}

std::int32_t VSTA_GetFoundID(long funcNum, char** paramHandle, char** resultHandle) {
    char text[64];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    const char* bar = std::strchr(text, '|');
    // Unsigned: a negative number lies beyond the end.
    const auto start = static_cast<std::uint32_t>(DecimalPrefix(text));
    auto end = bar == nullptr ? start : static_cast<std::uint32_t>(DecimalPrefix(bar + 1));
    if (start == 0) {
        ReportErrorMsgToUser("startingIndex1Relative must be positive in VSTA_GetFoundID");
        return 0;
    }
    if (start > end) {
        ReportErrorMsgToUser("startingIndex1Relative must be <= endingIndex1Relative in VSTA_GetFoundID");
        return 0;
    }
    if (start > gFoundSet.count) {
        return 0;
    }
    end = std::min(end, gFoundSet.count);
    // A whole field is copied for each ID, of which the next one overwrites what is too much.
    const std::size_t room = (std::size_t{end} - start + 1) * kFoundIDSize;
    if (SetFHandleSize(resultHandle, room) != 0) {
        ReportErrorToUser(funcNum, kOutOfMemory);
        SetFHandleSize(resultHandle, 0);
        return kOutOfMemory;
    }
    char* out = *resultHandle;
    for (std::uint32_t i = start - 1; i < end; ++i) {
        std::memcpy(out, gFoundSet.items[i].id, kFoundIDSize);
        out += LengthOfID(gFoundSet.items[i]);
        *out++ = '\r';
    }
    SetFHandleSize(resultHandle, static_cast<unsigned long>(out - 1 - *resultHandle));
    return 0;
}

std::int32_t VSTA_GetNumFoundIDs(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return AnswerNumber(funcNum, resultHandle, gFoundSet.count);
}

std::int32_t VSTA_RemoveDuplicateFoundIDs(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    SortAndRemoveDuplicates(gFoundSet);
    return 0;
}

std::int32_t VSTA_DisposeFoundSet(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    DisposeSet(gFoundSet);
    return 0;
}

std::int32_t VSTA_DisposeSavedSet(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    DisposeSet(gSavedSet);
    return 0;
}

static void disposeBooleanSets() {
    for (FoundSet& set : gBooleanSet) {
        DisposeSet(set);
    }
}

std::int32_t VSTA_DisposeBooleanSets(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    disposeBooleanSets();
    return 0;
}

std::int32_t VSTA_TransferFoundSetToBooleanSet(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    char text[64];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    const std::int32_t number = DecimalPrefix(text);
    if (number < 1 || number > kBooleanSets) {
        ReportErrorMsgToUser("Error: num1Relative must be between 1 and 4 in VSTA_TransferFoundSetToBooleanSet");
        return 0;
    }
    TransferSetFromTo(gFoundSet, gBooleanSet[number - 1]);
    return 0;
}

std::int32_t VSTA_TransferFoundSetToSavedSet(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    TransferSetFromTo(gFoundSet, gSavedSet);
    return 0;
}

std::int32_t VSTA_TransferSavedSetToFoundSet(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    TransferSetFromTo(gSavedSet, gFoundSet);
    return 0;
}

std::int32_t VSTA_CopySavedSetToFoundSet(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    DisposeSet(gFoundSet);
    if (gSavedSet.count == 0) {
        return 0;
    }
    if (AllocateSet(gFoundSet, gSavedSet.count) != 0) {
        return AnswerOutOfMemory(funcNum, resultHandle);
    }
    std::copy_n(gSavedSet.items, gSavedSet.count, gFoundSet.items);
    gFoundSet.count = gSavedSet.count;
    return 0;
}

namespace {

using Operation = std::int32_t (*)(FoundSet&, FoundSet&);

constexpr int kMaxOperators = kBooleanSets - 1;

// Reads up to three operators; what stands behind the third is ignored. -1 for anything but AND and OR.
int readOperators(std::string_view text, Operation (&operations)[kMaxOperators]) {
    int count = 0;
    while (count < kMaxOperators) {
        const std::size_t start = text.find_first_not_of(" \t\r\n");
        if (start == std::string_view::npos) {
            break;
        }
        text.remove_prefix(start);
        if (text.starts_with("AND")) {
            operations[count++] = AndBooleanSets;
            text.remove_prefix(3);
        } else if (text.starts_with("OR")) {
            operations[count++] = OrBooleanSets;
            text.remove_prefix(2);
        } else {
            return -1;
        }
    }
    return count;
}

// Combines the boolean sets into the first one. Three operators form their pairs first, deliberately not left to right.
std::int32_t combine(const Operation (&operations)[kMaxOperators], int count) {
    std::int32_t error = 0;
    if (count >= 1) {
        error = operations[0](gBooleanSet[0], gBooleanSet[1]);
    }
    if (error == 0 && count == 3) {
        error = operations[2](gBooleanSet[2], gBooleanSet[3]);
    }
    if (error == 0 && count >= 2) {
        error = operations[1](gBooleanSet[0], gBooleanSet[2]);
    }
    return error;
}

}  // namespace

std::int32_t VSTA_MakeFoundSetFromBooleanSets(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    char text[64];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    StrToUpper(text);
    DisposeSet(gFoundSet);
    Operation operations[kMaxOperators] = {};
    const int count = readOperators(text, operations);
    if (count < 0) {
        disposeBooleanSets();
        char message[160] = "Bad parameter in VSTA_MakeFoundSetFromBooleanSets:";
        const std::size_t length = std::strlen(message);
        my_strncpy(message + length, text, sizeof message - length);
        ReportErrorMsgToUser(message);
        return 0;
    }
    const std::int32_t error = combine(operations, count);
    if (error == 0) {
        TransferSetFromTo(gBooleanSet[0], gFoundSet);
    }
    disposeBooleanSets();
    if (error != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(error));
    }
    return error;
}

}  // namespace quil
