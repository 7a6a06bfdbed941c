// Dialog Manager: modal alerts, file choosers and the beep.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace platform {

struct Dialog;

enum class ItemKind { button, empty, user, icon, staticText };

// One item of a dialog; buttons double as controls with a title and a state.
struct DialogItem {
    ItemKind kind = ItemKind::empty;
    Rect rect;
    std::string text;       // a button's title, a static text's words
    std::int16_t icon = 0;  // an icon's number: 0 stop, 1 note, 2 caution
    bool enabled = true;
    bool visible = true;
    void (*draw)(Dialog& dialog, std::int16_t item) = nullptr;  // a user item's drawing procedure
};

// What a drawing procedure put on the dialog: a text, wrapped in a rectangle.
struct DrawnText {
    std::string text;
    Rect rect;
};

// A modal dialog as the Dialog Manager runs it. Items are numbered from 1.
struct Dialog {
    Rect bounds;
    std::vector<DialogItem> items;
    std::string reference;  // the window's reference value: the message that item 5 draws
    char kind = 'M';
    std::int16_t defaultItem = 1;
    std::int16_t cancelItem = 1;
    std::vector<DrawnText> drawn;

    DialogItem& item(std::size_t number) { return items.at(number - 1); }
};

// What a file chooser is asked for, and what it answered.
struct Chooser {
    enum class Kind { read, write } kind = Kind::read;
    std::string title;
    std::string client;    // keys the remembered folder
    std::string proposed;  // proposed file name, or empty
    OSType fileType = 0;
    OSType fileCreator = 0;
};

struct Choice {
    std::int16_t vRefNum = 0;
    std::int32_t dirID = 0;
    std::string name;
};

enum class ChooserOutcome { chosen, cancelled, failed };

class Dialogs {
  public:
    virtual ~Dialogs() = default;

    // Height in pixels that `text` needs when it is wrapped to `width` pixels in the system font: lines x line height.
    // Carriage returns end lines.
    virtual std::int16_t textHeight(std::string_view text, std::int16_t width) = 0;
    // TETextBox: draws `text` wrapped in `rect` of the dialog.
    virtual void drawTextBox(Dialog& dialog, std::string_view text, Rect rect) = 0;
    // Shows the dialog, draws its user items and runs until a visible button is pressed. Returns its number, or 0 when
    // the dialog could not be shown.
    virtual std::int16_t runModal(Dialog& dialog) = 0;
    // `error` is set when the default options of the chooser are not to be had; else it is 0.
    virtual ChooserOutcome choose(const Chooser& chooser, Choice& choice, Status& error) = 0;
    virtual void beep() = 0;
};

}  // namespace platform
