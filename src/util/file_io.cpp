#include "util/file_io.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <string_view>

#include "platform/machine.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/text.h"

namespace quil {

using platform::FileRef;
using platform::Files;

static constexpr std::size_t kMessageSize = 256;
static constexpr OSErr kShortWrite = 3;

static Files& files() {
    return platform::machine().files();
}

// Shows `words`, a CR and the path.
static void reportPath(const char* words, const char* path) {
    char message[kMessageSize];
    copyInto(message, words);
    const std::size_t length = std::strlen(message);
    message[length] = '\r';
    my_strncpy(message + length + 1, path, kMessageSize - length - 1);
    ReportErrorMsgToUser(message);
}

// Writes all of `bytes` and closes; what could not be written whole is dropped, so that what it would have replaced
// stays. A failing close may have lost what was written, so it counts too.
static OSErr writeAndClose(FileRef ref, std::span<const char> bytes) {
    std::size_t count = 0;
    OSErr error = bytes.empty() ? platform::noErr : files().write(ref, bytes, count);
    if (error == platform::noErr && count < bytes.size()) {
        error = platform::ioErr;
    }
    if (error != platform::noErr) {
        files().discard(ref);
        return error;
    }
    return files().close(ref);
}

// Opens the POSIX path `prefix` + `path` with every ':' made a '/'.
static OSErr openCandidate(std::string_view prefix, std::string_view path, platform::PosixMode mode, FileRef& ref) {
    std::string posix(prefix);
    posix += path;
    std::replace(posix.begin(), posix.end(), ':', '/');
    return files().openPosix(posix, mode, ref);
}

static OSErr openByPosix(const char* path, bool append, FileRef& ref) {
    const platform::PosixMode mode = append ? platform::PosixMode::append : platform::PosixMode::replace;
    if (path[0] == '/') {
        return files().openPosix(path, mode, ref);
    }
    return openCandidate("/Volumes/", path, mode, ref) == platform::noErr ? platform::noErr
                                                                          : openCandidate("/Users", path, mode, ref);
}

bool IsFolder(const FSSpec& spec) {
    // A name inside a folder is one that the machine can place.
    std::string inside(":");
    inside.append(spec.nameView()).append(":x");
    FSSpec child;
    const OSErr error = files().makeSpec(spec.vRefNum, spec.parID, inside, child);
    return error == platform::noErr || error == platform::fnfErr;
}

static OSErr writeByFileManager(const char* path, std::span<const char> bytes, bool append) {
    FSSpec spec;
    OSErr error = GetFSSpecFromFullPath(path, &spec);
    if (error == platform::noErr && IsFolder(spec)) {
        return platform::notAFileErr;  // only a file gives way to a new one
    }
    FileRef ref = 0;
    if (!append && (error == platform::noErr || error == platform::fnfErr)) {
        error = files().replaceDataFork(spec, "ttxt"_4, "TEXT"_4, ref);
    } else if (error == platform::noErr) {
        error = files().openDataFork(spec, platform::ForkPermission::readWrite, ref);
    }
    if (error != platform::noErr) {
        return error;
    }
    if (append) {
        error = files().setPositionAtEnd(ref);
        if (error != platform::noErr) {
            files().close(ref);
            return error;
        }
    }
    return writeAndClose(ref, bytes);
}

static OSErr writeBuffer(const char* path, const char* buf, unsigned long n, bool append) {
    if (path == nullptr || (buf == nullptr && n != 0)) {
        return -1;
    }
    if (path[0] == 0) {
        return platform::bdNamErr;  // its candidates would name the folders that hold volumes and users
    }
    const std::span<const char> bytes(buf, n);
    try {
        FileRef ref = 0;
        const OSErr error = openByPosix(path, append, ref);
        if (error == platform::noErr) {
            return writeAndClose(ref, bytes) == platform::noErr ? platform::noErr : kShortWrite;
        }
        return writeByFileManager(path, bytes, append);
    } catch (const std::bad_alloc&) {
        return platform::memFullErr;
    }
}

std::int32_t WriteBufferToFilePrimative(const char* path, const char* buf, unsigned long n, bool append) {
    const OSErr error = writeBuffer(path, buf, n, append);
    if (error != platform::noErr) {
        reportPath("Error writing to file:", path);
    }
    return error;
}

OSErr WriteWholeFile(const char* path, const char* buf, unsigned long n) {
    return writeBuffer(path, buf, n, false);
}

std::int32_t WriteBufferToFile(const char* path, const char* buf, unsigned long n) {
    return WriteBufferToFilePrimative(path, buf, n, false);
}

std::int32_t AppendBufferToFile(const char* path, const char* buf, unsigned long n) {
    return WriteBufferToFilePrimative(path, buf, n, true);
}

std::int32_t WriteCStringToFile(const char* path, const char* text) {
    return text == nullptr ? -1 : WriteBufferToFile(path, text, std::strlen(text));
}

char** ReadFileIntoTerminatedFHandle(const char* path, bool reportErrors) {
    const char* const source = path == nullptr ? "" : path;
    const auto report = [reportErrors, source](const char* words) {
        if (reportErrors) {
            reportPath(words, source);
        }
    };
    FSSpec spec;
    FileRef ref = 0;
    if (GetFSSpecFromFullPath(source, &spec) != platform::noErr ||
        files().openDataFork(spec, platform::ForkPermission::readWrite, ref) != platform::noErr) {
        report("Unable to open file: ");
        return nullptr;
    }
    std::int64_t size = 0;
    if (files().getEOF(ref, size) != platform::noErr || size < 0) {
        report("Unable to get file size: ");
        files().close(ref);
        return nullptr;
    }
    const auto length = static_cast<std::size_t>(size);
    char** handle = NewFHandle(length + 1);
    if (handle == nullptr) {
        if (reportErrors) {
            ReportErrorToUser(-1, platform::memFullErr);
        }
        files().close(ref);
        return nullptr;
    }
    std::size_t count = 0;
    const OSErr error = length == 0 ? platform::noErr : files().read(ref, {*handle, length}, count);
    (*handle)[length] = 0;
    if (error != platform::noErr || count < length) {
        report("Error reading file: ");
        files().close(ref);
        DisposeAndClearFHandle(&handle);
        return nullptr;
    }
    files().close(ref);
    return handle;
}

// The text from the last '.', upper case; false without one, or when it is longer than an extension may be.
static bool extensionOf(std::string_view name, std::string& extension) {
    static constexpr std::size_t kLongestExtension = 11;  // with the dot
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || name.size() - dot > kLongestExtension) {
        return false;
    }
    extension = name.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(), mytoupper);
    return true;
}

static std::string partnerOf(const std::string& pattern) {
    return pattern == ".ZIP" ? ".TVN" : pattern == ".TVN" ? ".ZIP" : pattern;
}

static OSErr listMatchingItems(std::string_view filePath, std::string& list) {
    std::string pattern;
    if (!extensionOf(filePath, pattern)) {
        return platform::noErr;
    }
    const std::string partner = partnerOf(pattern);
    const std::string folder(filePath.substr(0, filePath.rfind(':') + 1));
    // Any name in the folder tells the folder's directory ID; one that is there is found without a look at the others.
    FSSpec spec;
    OSErr error = files().makeSpec(0, 0, filePath, spec);
    if (error == platform::bdNamErr) {
        error = files().makeSpec(0, 0, folder + "x", spec);
    }
    if (error == platform::fnfErr) {
        error = platform::noErr;
    }
    std::string extension;
    platform::CatalogItem item;
    for (std::int32_t index = 1; error == platform::noErr; ++index) {
        error = files().catalogItem(spec.vRefNum, spec.parID, index, item);
        if (error == platform::noErr && extensionOf(item.name, extension) &&
            (extension == pattern || extension == partner)) {
            list.append(folder).append(item.name).append(1, '\r');
        }
    }
    return error == platform::fnfErr || error == platform::dirNFErr ? platform::noErr : error;
}

OSErr MakeListOfMatchingItemsInFolder(const char* filePath, char** out) {
    if (filePath == nullptr) {
        return platform::noErr;
    }
    try {
        std::string list;  // stored once: a handle grows by copying
        const OSErr error = listMatchingItems(filePath, list);
        const std::int32_t stored = list.empty() ? 0 : CatHandleContents(out, list.c_str());
        return stored != 0 ? static_cast<OSErr>(stored) : error;
    } catch (const std::bad_alloc&) {
        return platform::memFullErr;
    }
}

OSErr GetVersionInfo(short resourceID, std::uint8_t (*numeric)[4], short* region, unsigned char* shortVersion,
                     unsigned char* longVersion) {
    try {
        platform::VersionResource version;
        const OSErr error = platform::machine().resources().version(resourceID, version);
        if (error == platform::noErr) {
            std::copy(std::begin(version.numeric), std::end(version.numeric), *numeric);
            *region = version.region;
            myc2pstr(version.shortVersion.c_str(), shortVersion);
            myc2pstr(version.longVersion.c_str(), longVersion);
        }
        return error;
    } catch (const std::bad_alloc&) {
        return platform::memFullErr;
    }
}

}  // namespace quil
