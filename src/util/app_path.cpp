#include "util/app_path.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/machine.h"
#include "util/paths.h"
#include "util/text.h"
#include "util/toolbox.h"

namespace quil {

static constexpr std::size_t kPathSize = 256;

// State of this file.
static unsigned char sAppFullPathName[kPathSize];  // length-prefixed; empty until it was asked for

char* GetAppFullPathName(char* out) {
    if (sAppFullPathName[0] == 0) {
        std::int16_t vRefNum = 0;
        std::int32_t dirID = 0;
        char path[kPathSize];
        if (platform::machine().files().defaultFolder(vRefNum, dirID) == platform::noErr &&
            GetClassicPathWithDelimiterAsPStringFromDirID(dirID, vRefNum, path) == platform::noErr) {
            my_p2cstr(reinterpret_cast<unsigned char*>(path));
            const std::size_t length = std::strlen(path);
            const std::string name = platform::machine().processes().currentApplicationName();
            my_strncpy(path + length, name, kPathSize - length);
            if (name.empty()) {  // for want of memory, perhaps: asked again the next time
                my_strncpy(out, path, kPathSize);
                return out;
            }
            myc2pstr(path, sAppFullPathName);
        }
    }
    myp2cstr(sAppFullPathName, out);
    return out;
}

void RemoveTheDotAppPartOfMacintoshApplicationPath(char* path) {
    static constexpr std::string_view kMark = ".APP:";
    char* const end = path + std::strlen(path);
    *std::search(path, end, kMark.begin(), kMark.end(), [](char a, char b) { return mytoupper(a) == b; }) = 0;
}

// The path of the application, or of the package that it is.
static char* applicationItemPath(char* out) {
    GetAppFullPathName(out);
    RemoveTheDotAppPartOfMacintoshApplicationPath(out);
    return out;
}

char* GetAppName(char* out) {
    char path[kPathSize];
    const char* const colon = std::strrchr(applicationItemPath(path), ':');
    my_strncpy(out, colon == nullptr ? "" : colon + 1, kPathSize);
    return out;
}

char* GetAppFolderPathWithDelimiter(char* out) {
    char* const colon = std::strrchr(applicationItemPath(out), ':');
    *(colon == nullptr ? out : colon + 1) = 0;
    return out;
}

OSType GetAppSignature() {
    platform::Processes& processes = platform::machine().processes();
    platform::ProcessSerialNumber process = platform::noProcess;
    platform::ProcessInfo info;
    if (processes.current(process) != platform::noErr || processes.information(process, info) != platform::noErr) {
        return 0;
    }
    return info.signature;
}

void ResetAppPath() {
    sAppFullPathName[0] = 0;
}

}  // namespace quil
