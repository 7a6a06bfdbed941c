// The file choosers, and the host's front document window.
#include <cstring>
#include <new>
#include <string_view>

#include "platform/machine.h"
#include "util/alerts.h"
#include "util/paths.h"
#include "util/text.h"
#include "util/toolbox.h"

namespace quil {

static constexpr std::size_t kPathSize = 256;
static constexpr std::int16_t kDialogKind = 9;  // kind of the host's own dialog windows
static constexpr char kClientName[] = "QuilFileMakerPlugin";

// Classic path of the chosen folder with closing ':', 256 bytes.
static bool chosenFolder(const platform::Choice& choice, char* folder) {
    if (GetClassicPathWithDelimiterAsPStringFromDirID(choice.dirID, choice.vRefNum, folder) != platform::noErr) {
        return false;
    }
    my_p2cstr(reinterpret_cast<unsigned char*>(folder));
    return true;
}

short AskUserForFileNameToRead(char* path) {
    try {
        platform::Chooser chooser;
        chooser.title = "Choose a File";
        chooser.client = kClientName;
        platform::Choice choice;
        platform::Status error = platform::noErr;
        const platform::ChooserOutcome outcome = platform::machine().dialogs().choose(chooser, choice, error);
        if (outcome == platform::ChooserOutcome::failed) {
            // Deliberate: the error's low byte, so that such a failure looks like a choice with the path unchanged.
            return static_cast<short>(error & 0xFF);
        }
        char folder[kPathSize];
        if (outcome != platform::ChooserOutcome::chosen || !chosenFolder(choice, folder)) {
            return 0;
        }
        my_strncpy(path, folder, kPathSize);
        const std::size_t length = std::strlen(path);
        my_strncpy(path + length, choice.name, kPathSize - length);
        return 1;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

short AskUserForFileNameToWrite(char* path) {
    try {
        platform::Chooser chooser;
        chooser.kind = platform::Chooser::Kind::write;
        chooser.title = "Save As";
        chooser.client = kClientName;
        chooser.proposed.assign(path, strnlen(path, kPathSize - 1));
        chooser.fileType = ".ZIP"_4;
        chooser.fileCreator = "****"_4;
        platform::Choice choice;
        platform::Status error = platform::noErr;
        if (platform::machine().dialogs().choose(chooser, choice, error) != platform::ChooserOutcome::chosen) {
            return 0;
        }
        char text[2 * kPathSize];
        if (!chosenFolder(choice, text)) {
            return 0;
        }
        std::size_t length = std::strlen(text);
        if (length == 0 || text[length - 1] != ':') {
            text[length++] = ':';
        }
        if (length + choice.name.size() >= kPathSize) {
            return 0;
        }
        my_strncpy(text + length, choice.name, sizeof text - length);
        my_strncpy(path, text, kPathSize);
        return 1;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

platform::WindowRef GetFrontFilemakerFileWindow() {
    platform::Windows& windows = platform::machine().windows();
    for (platform::WindowRef window = windows.front(); window != nullptr; window = windows.next(window)) {
        const std::int16_t kind = windows.kind(window);
        char title[kPathSize];
        if (kind == kDialogKind) {
            mygetwtitle(window, title);
        }
        if (kind != platform::utilityKind && !(kind == kDialogKind && title[0] == 0)) {
            return window;
        }
    }
    return nullptr;
}

void GetFrontFileMakerFileWindowTitle(char* dest, long size) {
    if (size < 1) {
        return;
    }
    char title[kPathSize];
    mygetwtitle(GetFrontFilemakerFileWindow(), title);
    my_strncpy(dest, title, static_cast<unsigned long>(size));
}

}  // namespace quil
