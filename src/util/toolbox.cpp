#include "util/toolbox.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

#include "platform/machine.h"
#include "util/fhandle.h"
#include "util/paths.h"
#include "util/text.h"

namespace quil {

// State of this file.
static char sParamTexts[4][256];  // alert parameter texts ^0 to ^3

static constexpr std::size_t kLongestText = 255;

// What fits in a length-prefixed text.
static std::string_view shortText(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text, strnlen(text, kLongestText));
}

static void answer(char* dest, std::string_view text) {
    my_strncpy(dest, text, kLongestText + 1);
}

unsigned char* my_c2pstr(char* text) {
    const std::size_t length = shortText(text).size();
    BlockMove(text, text + 1, static_cast<long>(length));
    text[0] = static_cast<char>(static_cast<unsigned char>(length));
    return reinterpret_cast<unsigned char*>(text);
}

char* my_p2cstr(unsigned char* text) {
    const unsigned char length = text[0];
    BlockMove(text + 1, text, length);
    text[length] = 0;
    return reinterpret_cast<char*>(text);
}

void my_getcontroltitle(const platform::DialogItem& control, char* title) {
    answer(title, control.text);
}

void my_setcontroltitle(platform::DialogItem& control, const char* title) {
    try {
        control.text = shortText(title);
    } catch (const std::bad_alloc&) {
        return;
    }
}

bool MyIsControlEnabled(const platform::DialogItem& control) {
    return control.enabled;
}

platform::Rect MyGetWindowPortRect(platform::WindowRef window) {
    return window == nullptr ? platform::Rect() : platform::machine().windows().portRect(window);
}

void ClipRectToWindowPortRect(platform::WindowRef window) {
    if (window != nullptr) {
        platform::machine().windows().setClip(window, MyGetWindowPortRect(window));
    }
}

void EraseWindowPortRect(platform::WindowRef window) {
    if (window != nullptr) {
        platform::machine().windows().erase(window, MyGetWindowPortRect(window));
    }
}

void MyInvalWindowRect(platform::WindowRef window, const platform::Rect& rect) {
    if (window != nullptr) {
        platform::machine().windows().invalidate(window, rect);
    }
}

void MyValidWindowRect(platform::WindowRef window, const platform::Rect& rect) {
    if (window != nullptr) {
        platform::machine().windows().validate(window, rect);
    }
}

platform::Rect MyGetQDScreenBitsBounds() {
    return platform::machine().windows().screenBounds();
}

void mydrawstring(platform::WindowRef window, platform::Point at, const char* text) {
    if (window != nullptr) {
        platform::machine().windows().drawString(window, at, shortText(text));
    }
}

short my_stringwidth(const char* text) {
    return platform::machine().windows().stringWidth(shortText(text));
}

void my_paramtext(const char* text0, const char* text1, const char* text2, const char* text3) {
    answer(sParamTexts[0], shortText(text0));
    answer(sParamTexts[1], shortText(text1));
    answer(sParamTexts[2], shortText(text2));
    answer(sParamTexts[3], shortText(text3));
}

std::string withParamTexts(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '^' && i + 1 < text.size() && text[i + 1] >= '0' && text[i + 1] <= '3') {
            result += sParamTexts[text[++i] - '0'];
        } else {
            result += text[i];
        }
    }
    return result;
}

void my_stringtonum(const char* text, long* number) {
    const std::string_view digits = shortText(text);
    std::size_t i = 0;
    const bool negative = !digits.empty() && digits[0] == '-';
    if (negative || (!digits.empty() && digits[0] == '+')) {
        i = 1;
    }
    std::uint32_t value = 0;
    for (; i < digits.size() && digits[i] >= '0' && digits[i] <= '9'; ++i) {
        value = value * 10U + static_cast<std::uint32_t>(digits[i] - '0');
    }
    *number = static_cast<std::int32_t>(negative ? 0U - value : value);
}

void my_numtostring(long number, char* text) {
    mylong2str(static_cast<std::int32_t>(number), text);
}

void my_getmenutitle(short menuID, char* title) {
    answer(title, platform::machine().menus().title(menuID));
}

void my_getmenuitemtext(short menuID, short item, char* text) {
    answer(text, platform::machine().menus().itemText(menuID, item));
}

void my_appendmenu(short menuID, const char* text) {
    platform::machine().menus().appendItem(menuID, shortText(text));
}

void MyEnableMenuItem(short menuID, short item) {
    platform::machine().menus().enableItem(menuID, item, true);
}

void MyDisableMenuItem(short menuID, short item) {
    platform::machine().menus().enableItem(menuID, item, false);
}

void my_getindstring(char* text, short listID, short index) {
    answer(text, platform::machine().resources().indexedString(listID, index));
}

void mysetwtitle(platform::WindowRef window, const char* title) {
    if (window != nullptr) {
        platform::machine().windows().setTitle(window, shortText(title));
    }
}

void mygetwtitle(platform::WindowRef window, char* title) {
    title[0] = 0;
    if (window != nullptr) {
        answer(title, platform::machine().windows().title(window));
    }
}

platform::WindowRef mynewwindow(const platform::Rect& bounds, const char* title, short kind) {
    return platform::machine().windows().newWindow(bounds, shortText(title), kind);
}

platform::Status my_fopen(const char* classicPath, platform::PosixMode mode, platform::FileRef& ref) {
    static constexpr long kPathSize = 2096;
    ref = 0;
    // The conversion creates what is missing; a file that is only read must not come into being.
    FSSpec spec;
    if (mode == platform::PosixMode::read) {
        if (const platform::Status error = GetFSSpecFromFullPath(classicPath, &spec); error != platform::noErr) {
            return error;
        }
    }
    char posixPath[kPathSize];
    const platform::Status error = strcpyFileSystemRepresentationFromClassicPath(posixPath, classicPath, kPathSize);
    return error != platform::noErr ? error : platform::machine().files().openPosix(posixPath, mode, ref);
}

void ResetToolbox() {
    my_paramtext(nullptr, nullptr, nullptr, nullptr);
}

}  // namespace quil
