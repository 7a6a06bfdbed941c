#include "files/file_functions.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "files/base_directory.h"
#include "files/parameters.h"
#include "messaging/named_lists.h"
#include "messaging/script_queue.h"
#include "platform/machine.h"
#include "util/alerts.h"
#include "util/file_io.h"
#include "util/memory.h"

namespace quil {

using platform::FileRef;

static platform::Files& files() {
    return platform::machine().files();
}

// Takes a path and a reference file, and resolves the path. False with the error as answer.
template <std::size_t Size>
static bool resolveFields(Fields<Size>& fields, long funcNum, char** resultHandle, char (&full)[kPathSize]) {
    const PathFields given(fields);
    if (ResolvePossiblePartialPath(given.path, given.reference, false, full) == 0) {
        return true;
    }
    Answer(funcNum, resultHandle, kResolutionError);
    return false;
}

std::int32_t GLN1FileExists(long funcNum, char** paramHandle, char** resultHandle) {
    Fields fields(paramHandle);
    const PathFields given(fields);
    char full[kPathSize];
    const bool exists = ResolvePossiblePartialPath(given.path, given.reference, false, full) == 0 && FileExists(full);
    return Answer(funcNum, resultHandle, exists ? "TRUE" : "FALSE");
}

std::int32_t GLN1DeleteFile(long funcNum, char** paramHandle, char** resultHandle) {
    static constexpr int kRetries = 15;
    Fields fields(paramHandle);
    char full[kPathSize];
    FSSpec spec;
    if (!resolveFields(fields, funcNum, resultHandle, full) || GetFSSpecFromFullPath(full, &spec) != platform::noErr) {
        return 0;
    }
    OSErr error = files().remove(spec);
    for (int i = 0; i < kRetries && error == platform::fBsyErr; ++i) {
        WaitOneSecond();
        error = files().remove(spec);
    }
    if (error == platform::noErr) {
        return 0;
    }
    char words[64];
    std::snprintf(words, sizeof words, "Error %d: Unable to delete file: ", error);
    return AnswerCut(funcNum, resultHandle, words, full);
}

std::int32_t GLN1AskUserForFileNameToRead(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    char path[kPathSize] = "";
    return Answer(funcNum, resultHandle, AskUserForFileNameToRead(path) != 0 ? path : "");
}

std::int32_t GLN1AskUserForFileNameToWrite(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    char path[kPathSize] = "";
    return Answer(funcNum, resultHandle, AskUserForFileNameToWrite(path) != 0 ? path : "");
}

std::int32_t GLN1ZipFiles(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    ReportErrorMsgToUser("GLN1ZipFiles is not supported on the MAC.");
    return 0;
}

std::int32_t GLN1UnzipFiles(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    ReportErrorMsgToUser("GLN1UnzipFiles is not supported on the MAC.");
    return Answer(funcNum, resultHandle, "Error");
}

std::int32_t GLN1UnzipFilesBatchMode(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    ReportErrorMsgToUser("GLN1UnzipFilesBatchMode is not supported on the MAC.");
    return Answer(funcNum, resultHandle, "Error");
}

// Reads into the buffer of count + 1 zeros. The machine's status; `failure` is set beside one.
static OSErr readChars(const char* path, long start, long count, char* buffer, bool& read, const char*& failure) {
    failure = "Error: hgetfinfo failed.";
    FSSpec spec;
    platform::FInfo info;
    OSErr error = GetFSSpecFromFullPath(path, &spec);
    if (error == platform::noErr) {
        error = files().getFinderInfo(spec, info);
    }
    if (error != platform::noErr) {
        return error;
    }
    failure = "Error: hopendf failed.";
    FileRef ref = 0;
    error = files().openDataFork(spec, platform::ForkPermission::readWrite, ref);
    if (error != platform::noErr) {
        return error;
    }
    failure = "Error: GetEOF failed.";
    std::int64_t length = 0;
    error = files().getEOF(ref, length);
    if (error == platform::noErr && length >= start) {
        failure = "Error: FSRead returned an error.";
        const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(count, length - start + 1));
        std::size_t got = 0;
        error = files().setPosition(ref, start - 1);
        if (error == platform::noErr) {
            error = files().read(ref, {buffer, wanted}, got);
        }
        read = error == platform::noErr;
    }
    files().close(ref);
    return error;
}

std::int32_t GetCharsFromFile(const char* path, long start, long count, char** result) {
    void* const block = allocator().allocateZeroed(static_cast<std::size_t>(count) + 1);
    if (block == nullptr) {
        return -1;
    }
    char* const buffer = static_cast<char*>(block);
    bool read = false;
    const char* failure = "";
    std::int32_t error = readChars(path, start, count, buffer, read, failure);
    if (error != 0) {
        SetResultsHandle(result, failure);
    } else if (read) {
        error = SetResultsHandle(result, buffer);
    }
    allocator().release(block);
    return error;
}

std::int32_t GLN1GetCharsFromFile(long funcNum, char** paramHandle, char** resultHandle) {
    Fields fields(paramHandle);
    char start[kPathSize];
    char count[kPathSize];
    fields.take(start);
    fields.take(count);
    const PathFields given(fields);
    const long first = std::strtol(start, nullptr, 10);
    const long wanted = std::strtol(count, nullptr, 10);
    if (first <= 0 || wanted <= 0 || given.path[0] == 0) {
        return Answer(funcNum, resultHandle,
                      "Error: Usage GLN1GetCharsFromFile(startingCharOneRelative|numCharsToCopy|relativeOrFullPath)");
    }
    char full[kPathSize];
    if (ResolvePossiblePartialPath(given.path, given.reference, false, full) != 0) {
        return Answer(funcNum, resultHandle, kResolutionError);
    }
    if (!FileExists(full)) {
        return Answer(funcNum, resultHandle, "Error: GLN1GetCharsFromFile: File does not exist");
    }
    const std::int32_t error = GetCharsFromFile(full, first, wanted, resultHandle);
    if (error != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(error));
    }
    return error;
}

std::int32_t GLN1WriteTextToFile(long funcNum, char** paramHandle, char** resultHandle) {
    static constexpr char kMark[] = "BOM|";
    static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    Fields fields(paramHandle);
    char path[kPathSize];
    if (!fields.take(path) || path[0] == 0) {
        return Answer(funcNum, resultHandle,
                      "Error: Usage GLN1WriteTextToFile(fullPath|textToWriteToFile). Optional second parameter of BOM "
                      "means prepend a utf-8 Byte Order Mark.");
    }
    const long size = GetFHandleSize(paramHandle);
    if (size == 0 || (*paramHandle)[size - 1] != 0) {
        return 0;
    }
    char* text = std::strchr(*paramHandle, '|') + 1;
    if (std::string_view(text).starts_with(kMark)) {
        ++text;
        kByteOrderMark.copy(text, kByteOrderMark.size());
    }
    const std::int32_t error = WriteBufferToFile(path, text, std::strlen(text));
    if (error != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(error));
    }
    return error;
}

std::int32_t GLN1GetListOfFilesInFolder(long funcNum, char** paramHandle, char** resultHandle) {
    Fields<512> fields(paramHandle);
    char full[kPathSize];
    if (!resolveFields(fields, funcNum, resultHandle, full) || !FileExists(full)) {
        return 0;
    }
    const OSErr error = MakeListOfMatchingItemsInFolder(full, resultHandle);
    if (error != 0) {
        ReportErrorToUser(funcNum, error);
        SetResultsHandle(resultHandle, "");
    }
    return error;
}

std::int32_t GLN1FileSystemRepresentationFromClassicPath(long funcNum, char** paramHandle, char** resultHandle) {
    static constexpr long kPosixPathSize = 2096;
    Fields fields(paramHandle);
    char full[kPathSize];
    if (!resolveFields(fields, funcNum, resultHandle, full)) {
        return 0;
    }
    char path[kPosixPathSize];
    const OSErr error = strcpyFileSystemRepresentationFromClassicPath(path, full, kPosixPathSize);
    return Answer(funcNum, resultHandle,
                  error == 0 ? path : "Error: strcpyFileSystemRepresentationFromClassicPath returned an error");
}

std::int32_t GLN1WaitOneSecond(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    WaitOneSecond();
    return 0;
}

std::int32_t GLN1GetNameOfGlobalThatTriggeredScript(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    const std::int32_t error = Answer(funcNum, resultHandle, gNameOfGlobalThatTriggeredScript);
    gNameOfGlobalThatTriggeredScript[0] = 0;
    return error;
}

std::int32_t GLN1StopFileMakerFlashing(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    return 0;
}

}  // namespace quil
