// Alerts and choosers that are answered from a list.

#include <algorithm>

#include "platform/scripted/scripted_parts.h"

namespace platform {
namespace {

// The system font at its default size, as far as a machine without a display measures it.
constexpr int kCharacterWidth = 7;
constexpr int kLineHeight = 16;

// Lines that one paragraph takes: words go to the next line whole, a word longer than a line is broken.
long linesOfParagraph(std::string_view text, long perLine) {
    long lines = 1;
    long column = 0;
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t blank = std::min(text.find(' ', i), text.size());
        const auto isCharacter = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
        long word = static_cast<long>(
            std::count_if(text.begin() + static_cast<long>(i), text.begin() + static_cast<long>(blank), isCharacter));
        if (column != 0 && column + word > perLine) {
            ++lines;
            column = 0;
        }
        while (word > perLine) {
            ++lines;
            word -= perLine;
        }
        column += word + 1;
        i = blank + 1;
    }
    return lines;
}

bool isVisibleButton(const Dialog& dialog, std::int16_t number) {
    if (number < 1 || static_cast<std::size_t>(number) > dialog.items.size()) {
        return false;
    }
    const DialogItem& item = dialog.items[static_cast<std::size_t>(number) - 1];
    return item.kind == ItemKind::button && item.visible;
}

}  // namespace

std::int16_t ScriptedDialogs::textHeight(std::string_view text, std::int16_t width) {
    const long perLine = std::max(1, width / kCharacterWidth);
    long lines = 0;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\r', start), text.size());
        lines += linesOfParagraph(text.substr(start, end - start), perLine);
        start = end + 1;
    }
    return static_cast<std::int16_t>(std::min(lines * kLineHeight, 32767L));
}

void ScriptedDialogs::drawTextBox(Dialog& dialog, std::string_view text, Rect rect) {
    dialog.drawn.push_back({std::string(text), rect});
}

std::int16_t ScriptedDialogs::runModal(Dialog& dialog) {
    AlertEffect effect;
    effect.kind = dialog.kind;
    effect.message = dialog.reference;
    effect.defaultItem = dialog.defaultItem;
    effect.cancelItem = dialog.cancelItem;
    effect.pressed = 0;
    for (std::size_t i = 0; i < dialog.items.size(); ++i) {
        const auto number = static_cast<std::int16_t>(i + 1);
        const DialogItem& item = dialog.items[i];
        if (isVisibleButton(dialog, number)) {
            effect.buttons.push_back(item.text);
            if (effect.pressed == 0) {
                effect.pressed = number;
            }
        } else if (item.kind == ItemKind::staticText && item.visible && effect.heading.empty()) {
            effect.heading = item.text;
        } else if (item.kind == ItemKind::user && item.visible && item.draw != nullptr) {
            item.draw(dialog, number);
        }
    }
    if (isVisibleButton(dialog, dialog.defaultItem)) {
        effect.pressed = dialog.defaultItem;
    }
    auto& answers = shared_.state.answers;
    if (!answers.empty()) {
        // A button that this alert does not show cannot be pressed: the default button is.
        if (isVisibleButton(dialog, answers.front())) {
            effect.pressed = answers.front();
        }
        answers.pop_front();
    }
    const std::int16_t pressed = effect.pressed;
    shared_.effects.alerts.push_back(std::move(effect));
    return pressed;
}

ChooserOutcome ScriptedDialogs::choose(const Chooser& chooser, Choice& choice, Status& error) {
    error = noErr;
    shared_.effects.choosers.push_back({chooser.kind, chooser.title, chooser.proposed});
    auto& choices = shared_.state.choices;
    if (choices.empty()) {
        return ChooserOutcome::cancelled;
    }
    const std::optional<ScriptedChoice> answer = std::move(choices.front());
    choices.pop_front();
    if (!answer) {
        return ChooserOutcome::cancelled;
    }
    // The folder of any name in it is the folder.
    std::string inside = answer->folder;
    if (!inside.ends_with(':')) {
        inside += ':';
    }
    inside += 'x';
    FSSpec spec;
    const Status status = shared_.files.makeSpec(0, 0, inside, spec);
    if (status != noErr && status != fnfErr) {
        return ChooserOutcome::failed;
    }
    choice.vRefNum = spec.vRefNum;
    choice.dirID = spec.parID;
    choice.name = answer->name;
    return ChooserOutcome::chosen;
}

void ScriptedDialogs::beep() {
    ++shared_.effects.beeps;
}

}  // namespace platform
