// Copying a file.
#include <algorithm>
#include <string>
#include <string_view>

#include "files/base_directory.h"
#include "files/file_functions.h"
#include "files/parameters.h"
#include "platform/machine.h"
#include "util/memory.h"
#include "util/result.h"

namespace quil {

using platform::FileRef;
using platform::Files;

static constexpr short kNoBuffer = -1;

static Files& files() {
    return platform::machine().files();
}

short TransferFileSection(short fromRef, short toRef, long start, long end) {
    static constexpr std::size_t kLargestBuffer = 100'000;
    static constexpr std::size_t kStep = 5'000;
    std::size_t size = kLargestBuffer;
    void* block = allocator().allocateZeroed(size);
    while (block == nullptr) {
        size -= kStep;
        if (size == 0) {
            return kNoBuffer;
        }
        block = allocator().allocateZeroed(size);
    }
    char* const buffer = static_cast<char*>(block);
    OSErr error = files().setPosition(fromRef, start);
    for (std::int64_t left = std::int64_t{end} - start; error == platform::noErr && left > 0;) {
        // The machine moves what it can by itself; the buffer is for the rest.
        std::int64_t moved = 0;
        error = files().transfer(fromRef, toRef, left, moved);
        left -= moved;
        if (error != platform::noErr || left == 0 || moved != 0) {
            continue;
        }
        const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(left, static_cast<std::int64_t>(size)));
        std::size_t count = 0;
        error = files().read(fromRef, {buffer, wanted}, count);
        if (error == platform::noErr) {
            error = count == wanted ? files().write(toRef, {buffer, wanted}, count) : platform::ioErr;
        }
        if (error == platform::noErr && count != wanted) {
            error = platform::ioErr;
        }
        left -= static_cast<std::int64_t>(wanted);
    }
    allocator().release(block);
    return error;
}

// Copies; the error text, or the empty one.
static const char* copy(const FSSpec& source, const char* destination) {
    platform::FInfo info;
    if (files().getFinderInfo(source, info) != platform::noErr) {
        return "Error: hgetfinfo failed.";
    }
    FileRef from = 0;
    if (files().openDataFork(source, platform::ForkPermission::read, from) != platform::noErr) {
        return "Error: hopendf failed.";
    }
    std::int64_t length = 0;
    if (files().getEOF(from, length) != platform::noErr) {
        files().close(from);
        return "Error: GetEOF failed.";
    }
    FSSpec target;
    FileRef to = 0;
    OSErr error = GetFSSpecFromFullPath(destination, &target);
    if (error == platform::noErr || error == platform::fnfErr) {
        error = files().createCopy(from, target, info.fdCreator, info.fdType, to);
    }
    if (error != platform::noErr) {
        files().close(from);
        return "Error: HCreate failed.";
    }
    if (files().openCopy(to) != platform::noErr) {
        files().discard(to);
        files().close(from);
        return "Error: HOpenDF failed.";  // deliberate: capitals here, none for the source
    }
    const bool whole = TransferFileSection(from, to, 0, static_cast<long>(length)) == 0;
    files().close(from);
    if (!whole) {
        files().discard(to);
    }
    return whole && files().close(to) == platform::noErr ? "" : "Error: TransferFileSection failed.";
}

std::int32_t GLN1CopyFile(long funcNum, char** paramHandle, char** resultHandle) {
    Fields fields(paramHandle);
    char given[kPathSize];
    if (!fields.take(given)) {
        return Answer(funcNum, resultHandle, "Error: vertical bar expected in GLN1CopyFile");
    }
    const PathFields to(fields);
    char source[kPathSize];
    char destination[kPathSize];
    if (ResolvePossiblePartialPath(given, to.reference, false, source) != 0 ||
        ResolvePossiblePartialPath(to.path, to.reference, false, destination) != 0) {
        return Answer(funcNum, resultHandle, kResolutionError);
    }
    FSSpec spec;
    if (GetFSSpecFromFullPath(source, &spec) != platform::noErr) {
        return AnswerCut(funcNum, resultHandle, "Error: The source file does not exist: ", source);
    }
    const char* const error = copy(spec, destination);
    return *error == 0 ? 0 : Answer(funcNum, resultHandle, error);
}

}  // namespace quil
