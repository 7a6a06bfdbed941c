#include "util/alerts.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>

#include "platform/machine.h"
#include "util/fhandle.h"
#include "util/text.h"
#include "util/toolbox.h"

namespace quil {

// State of this file.
std::uint8_t gNoUserInterface;  // while nonzero no alert is shown

static constexpr std::size_t kAlertBufferSize = 2048;  // the message of DoAlertMessage
static constexpr std::size_t kLineSize = 256;          // a line of a report
static constexpr short kOutOfMemory = -108;
static constexpr std::int16_t kButtons = 3;

// Items of the alert, numbered from 1; items 1 to 3 are the buttons.
enum AlertItem : std::int16_t { kEmptyItem = 4, kMessageItem = 5, kIconItem = 6, kHeadingItem = 7 };

namespace {
struct AlertKind {
    const char* heading;  // null: neither heading nor icon
    std::int16_t icon;
};
}  // namespace

static AlertKind alertKind(char kind) {
    switch (mytoupper(kind)) {
        case 'C':
            return {"Caution", 2};
        case 'W':
            return {"Warning", 2};
        case 'N':
            return {"Note", 1};
        case 'S':
            return {"Stop", 0};
        default:
            return {nullptr, 0};
    }
}

static void useBuiltInLayout(platform::Dialog& dialog) {
    using platform::ItemKind;
    dialog = {};
    dialog.bounds = {200, 200, 290, 600};
    dialog.items.resize(kHeadingItem);
    const auto set = [&dialog](std::size_t number, ItemKind kind, platform::Rect rect) {
        dialog.item(number).kind = kind;
        dialog.item(number).rect = rect;
        dialog.item(number).enabled = kind == ItemKind::button;
    };
    set(1, ItemKind::button, {60, 270, 80, 350});
    set(2, ItemKind::button, {60, 160, 80, 240});
    set(3, ItemKind::button, {60, 50, 80, 130});
    set(kEmptyItem, ItemKind::empty, {0, 0, 0, 0});
    set(kMessageItem, ItemKind::user, {50, 20, 50, 380});
    set(kIconItem, ItemKind::icon, {10, 30, 42, 62});
    set(kHeadingItem, ItemKind::staticText, {15, 80, 35, 240});
}

// A layout without the seven items cannot carry an alert and counts as missing.
static void makeAlertDialog(platform::Dialog& dialog) {
    const platform::Status error = platform::machine().resources().dialogLayout(kAlertDialogID, dialog);
    if (error != platform::noErr || dialog.items.size() < kHeadingItem) {
        useBuiltInLayout(dialog);
    }
    dialog.item(kMessageItem).draw = draw_message;
}

static std::int16_t moved(std::int16_t coordinate, std::int16_t by) {
    return static_cast<std::int16_t>(std::min<int>(coordinate + by, std::numeric_limits<std::int16_t>::max()));
}

static void growForMessage(platform::Dialog& dialog, const char* message) {
    platform::Rect& text = dialog.item(kMessageItem).rect;
    const short height = message_height(message, dialog, text);
    text.bottom = moved(text.top, height);
    dialog.bounds.bottom = moved(dialog.bounds.bottom, height);
    for (std::size_t button = 1; button <= kButtons; ++button) {
        platform::Rect& rect = dialog.item(button).rect;
        rect.top = moved(rect.top, height);
        rect.bottom = moved(rect.bottom, height);
    }
}

static void setButton(platform::DialogItem& button, const char* title, bool canHide) {
    my_setcontroltitle(button, title);
    button.visible = !canHide || (title != nullptr && *title != 0);
}

short VariableDlg(char kind, const char* message, const char* button1, const char* button2, const char* button3) {
    const AlertKind look = alertKind(kind);
    if (look.heading != nullptr) {
        platform::machine().dialogs().beep();
    }
    try {
        platform::Dialog dialog;
        makeAlertDialog(dialog);
        dialog.kind = kind;
        dialog.reference = message == nullptr ? "" : message;
        if (look.heading != nullptr) {
            dialog.item(kIconItem).icon = look.icon;
            dialog.item(kHeadingItem).text = look.heading;
        } else {
            dialog.item(kIconItem).visible = false;
            dialog.item(kHeadingItem).visible = false;
        }
        for (platform::DialogItem& item : dialog.items) {
            if (item.kind == platform::ItemKind::staticText) {
                item.text = withParamTexts(item.text);
            }
        }
        growForMessage(dialog, dialog.reference.c_str());
        setButton(dialog.item(1), button1, false);
        setButton(dialog.item(2), button2, true);
        setButton(dialog.item(3), button3, true);
        dialog.defaultItem = 1;
        dialog.cancelItem = GetCancelButtonItemNum(button1, button2, button3);
        return platform::machine().dialogs().runModal(dialog);
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

void draw_message(platform::Dialog& dialog, short item) {
    if (item >= 1 && static_cast<std::size_t>(item) <= dialog.items.size()) {
        platform::machine().dialogs().drawTextBox(dialog, dialog.reference,
                                                  dialog.items[static_cast<std::size_t>(item) - 1].rect);
    }
}

short message_height(const char* message, const platform::Dialog& /*dialog*/, const platform::Rect& rect) {
    return platform::machine().dialogs().textHeight(message == nullptr ? "" : message,
                                                    static_cast<std::int16_t>(rect.right - rect.left));
}

static bool titleIs(const char* title, std::string_view upperCase) {
    const std::string_view text = title == nullptr ? std::string_view() : std::string_view(title);
    return std::equal(text.begin(), text.end(), upperCase.begin(), upperCase.end(),
                      [](char a, char b) { return mytoupper(a) == b; });
}

short GetCancelButtonItemNum(const char* button1, const char* button2, const char* button3) {
    const char* const titles[kButtons] = {button1, button2, button3};
    for (const char* word : {"CANCEL", "NO", "BACK"}) {
        for (short i = 0; i < kButtons; ++i) {
            if (titleIs(titles[i], word)) {
                return static_cast<short>(i + 1);
            }
        }
    }
    return button2 == nullptr || *button2 == 0 ? 1 : 2;
}

// Appends to the text in `buffer` what fits.
static void append(char* buffer, std::size_t bufferSize, const char* text) {
    const std::size_t used = std::strlen(buffer);
    my_strncpy(buffer + used, text, bufferSize - used);
}

void DoAlertMessage(const char* line1, const char* line2, const char* line3, const char* line4) {
    if (gNoUserInterface != 0) {
        return;
    }
    char message[kAlertBufferSize] = {};
    if (line1 != nullptr) {
        append(message, sizeof message, line1);
        append(message, sizeof message, "\r\r");
    }
    for (const char* line : {line2, line3, line4}) {
        if (line != nullptr) {
            append(message, sizeof message, line);
            append(message, sizeof message, "\r");
        }
    }
    VariableDlg('M', message, "OK", "", "");
}

void ReportErrorAndMsgToUser(long functionIndex, short errorCode, const char* message) {
    char lines[3][kLineSize] = {};
    std::size_t count = 0;
    if (functionIndex >= 0) {
        char name[kLineSize] = {};
        if (functionIndex < std::numeric_limits<short>::max()) {
            my_getindstring(name, kFunctionNamesListID, static_cast<short>(functionIndex + 1));
        }
        char* line = lines[count++];
        append(line, kLineSize, "An error occurred in the plug-in function ");
        append(line, kLineSize, name);
        append(line, kLineSize, ".");
    }
    if (errorCode == kOutOfMemory) {
        append(lines[count++], kLineSize, "Not enough memory to complete this operation.");
    } else if (errorCode != 0) {
        char number[16];
        mylong2str(errorCode, number);
        char* line = lines[count++];
        append(line, kLineSize, "Error: ");
        append(line, kLineSize, number);
    }
    if (message != nullptr) {
        append(lines[count++], kLineSize, message);
    }
    const auto line = [&lines, count](std::size_t i) { return i < count ? lines[i] : nullptr; };
    DoAlertMessage(line(0), line(1), line(2), nullptr);
}

void ReportErrorMsgToUser(const char* message) {
    ReportErrorAndMsgToUser(-1, 0, message);
}

void ReportErrorToUser(long functionIndex, short errorCode) {
    ReportErrorAndMsgToUser(functionIndex, errorCode, "");
}

void ResetAlerts() {
    gNoUserInterface = 0;
    ResetToolbox();
}

}  // namespace quil
