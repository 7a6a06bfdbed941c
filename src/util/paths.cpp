#include "util/paths.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "platform/machine.h"
#include "util/text.h"
#include "util/toolbox.h"

namespace quil {

static constexpr std::size_t kLongestPath = 255;
static constexpr std::size_t kPathSize = kLongestPath + 1;
static constexpr int kDeepestFolder = 4096;  // a catalogue that has no root within so many folders is damaged

OSErr GetFSSpecFromFullPath(const char* path, FSSpec* spec) {
    if (path == nullptr || spec == nullptr) {
        return platform::paramErr;
    }
    return platform::machine().files().makeSpec(0, 0, {path, strnlen(path, kLongestPath)}, *spec);
}

bool FileExists(const char* path) {
    FSSpec spec;
    return GetFSSpecFromFullPath(path, &spec) == platform::noErr;
}

OSErr GetClassicPathWithDelimiterAsPStringFromDirID(long dirID, short vRefNum, char* out) {
    // The path grows at its front, and only its first 255 bytes count, so what is pushed past them may go.
    char path[2 * kPathSize];
    std::size_t length = 0;
    out[0] = 0;
    auto folder = static_cast<std::int32_t>(dirID);
    for (int depth = 0; depth < kDeepestFolder; ++depth) {
        platform::CatalogItem item;
        const OSErr error = platform::machine().files().catalogItem(vRefNum, folder, -1, item);
        if (error != platform::noErr) {
            return error;
        }
        const std::size_t nameLength = std::min(item.name.size(), kLongestPath);
        BlockMove(path, path + nameLength + 1, static_cast<long>(length));
        BlockMove(item.name.data(), path, static_cast<long>(nameLength));
        path[nameLength] = ':';
        length = std::min(length + nameLength + 1, kLongestPath);
        if (folder == platform::fsRtDirID) {
            BlockMove(path, out + 1, static_cast<long>(length));
            out[0] = static_cast<char>(static_cast<unsigned char>(length));
            return platform::noErr;
        }
        folder = item.parentID;
    }
    return platform::dirNFErr;
}

char* GetFullPathFromFSSpec(const FSSpec& spec, char* out) {
    std::size_t length = 0;
    if (spec.parID == platform::fsRtParID) {
        // A volume's root has no folder around it; its path is its name and ':'.
        my_strncpy(out, spec.nameView(), kPathSize);
        length = std::strlen(out);
        my_strncpy(out + length, ":", kPathSize - length);
        return out;
    }
    if (GetClassicPathWithDelimiterAsPStringFromDirID(spec.parID, spec.vRefNum, out) != platform::noErr) {
        return out;
    }
    my_p2cstr(reinterpret_cast<unsigned char*>(out));
    length = std::strlen(out);
    if (length < kLongestPath && (length == 0 || out[length - 1] != ':')) {
        out[length++] = ':';
    }
    my_strncpy(out + length, spec.nameView(), kPathSize - length);
    return out;
}

OSErr strcpyFileSystemRepresentationFromClassicPath(char* out, const char* classicPath, long outSize) {
    static constexpr platform::OSType kCreator = "MPW "_4;
    static constexpr platform::OSType kType = "TEXT"_4;
    if (out == nullptr || outSize < 1) {
        return platform::paramErr;
    }
    out[0] = 0;
    FSSpec spec;
    OSErr error = GetFSSpecFromFullPath(classicPath, &spec);
    if (error == platform::fnfErr) {
        error = platform::machine().files().create(spec, kCreator, kType);
    }
    if (error != platform::noErr) {
        return error;
    }
    try {
        std::string path;
        error = platform::machine().files().posixPath(spec, path);
        if (error == platform::noErr && path.size() >= static_cast<std::size_t>(outSize)) {
            error = platform::bdNamErr;  // half a path would name another file
        }
        if (error == platform::noErr) {
            my_strncpy(out, path, static_cast<unsigned long>(outSize));
        }
        return error;
    } catch (const std::bad_alloc&) {
        return platform::memFullErr;
    }
}

}  // namespace quil
