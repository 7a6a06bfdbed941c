// Dialogs of the machine on Linux: lines in the terminal.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "platform/linux/linux_managers.h"
#include "platform/linux/names.h"
#include "platform/text.h"

namespace platform {

// The terminal's own font stands for the system font: every character is as wide as the system font's average.
static constexpr int characterWidth = 7;
static constexpr int lineHeight = 16;
static constexpr std::size_t longestAnswer = 4096;

// --- text for the terminal -----------------------------------------------------------------------------------------

// Characters that would act on the terminal, or turn the order of those that follow, instead of being shown.
static bool isActive(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0) ||
           (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

// `bytes`, UTF-8 or Mac Roman, as UTF-8 that is safe to print. CR, LF and CR LF are line breaks.
static std::string printable(std::string_view bytes) {
    const std::string text = utf8Of(bytes);
    std::string safe;
    for (std::size_t at = 0; at < text.size();) {
        const char32_t character = nextCharacter(text, at);
        if (character == '\r' || character == '\n') {
            at += character == '\r' && at < text.size() && text[at] == '\n';
            safe += '\n';
        } else {
            appendUtf8(safe, isActive(character) && character != '\t' ? 0xFFFD : character);
        }
    }
    return safe;
}

static std::string printableLine(std::string_view bytes) {
    std::string line = printable(bytes);
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

// Lines that a paragraph needs, broken between words where there is a blank to break at.
static long linesOf(std::string_view paragraph, long perLine) {
    long lines = 1;
    long used = 0;
    for (std::size_t at = 0; at < paragraph.size();) {
        const std::size_t end = std::min(paragraph.find(' ', at), paragraph.size());
        long width = 0;
        for (std::size_t i = at; i < end; ++i) {
            width += (static_cast<unsigned char>(paragraph[i]) & 0xC0) != 0x80;
        }
        if (used > 0 && used + width > perLine) {
            ++lines;
            used = 0;
        }
        // A word that is longer than a line goes on in the next ones.
        lines += width > perLine ? (width - 1) / perLine : 0;
        used = (width > perLine ? (width - 1) % perLine + 1 : used + width) + 1;
        at = end + 1;
    }
    return lines;
}

// --- dialogs -------------------------------------------------------------------------------------------------------

namespace {

class TerminalDialogs : public Dialogs {
  public:
    TerminalDialogs(Files& files, const LinuxOptions& options, int input, int output,
                    std::function<void()> beforeOutput)
        : files_(files), options_(options), input_(input), output_(output), beforeOutput_(std::move(beforeOutput)) {}

    std::int16_t textHeight(std::string_view text, std::int16_t width) override try {
        const std::string shown = printable(text);
        const long perLine = std::max(1, width / characterWidth);
        long lines = 0;
        for (std::size_t start = 0; start < shown.size();) {
            const std::size_t end = std::min(shown.find('\n', start), shown.size());
            lines += linesOf(std::string_view(shown).substr(start, end - start), perLine);
            start = end + 1;
        }
        return static_cast<std::int16_t>(std::min<long>(lines * lineHeight, std::numeric_limits<std::int16_t>::max()));
    } catch (...) {
        return lineHeight;
    }

    void drawTextBox(Dialog& dialog, std::string_view text, Rect rect) override try {
        dialog.drawn.push_back({std::string(text), rect});
    } catch (...) {
        // Out of memory: the dialog is shown without this text.
    }

    std::int16_t runModal(Dialog& dialog) override try {
        const std::vector<std::int16_t> buttons = visibleButtons(dialog);
        if (buttons.empty()) {
            return 0;
        }
        const bool hasDefault = std::count(buttons.begin(), buttons.end(), dialog.defaultItem) != 0;
        const std::int16_t preset = hasDefault ? dialog.defaultItem : buttons[0];
        const bool hasCancel = std::count(buttons.begin(), buttons.end(), dialog.cancelItem) != 0;
        if (!print(words(dialog) + buttonLine(dialog, buttons))) {
            return 0;
        }
        if (!isatty(input_)) {
            print("(no terminal to answer from: " + title(dialog, preset) + ")\n");
            return preset;
        }
        for (;;) {
            print("Button [" + title(dialog, preset) + "]: ");
            const std::optional<std::string> answer = readLine();
            if (!answer) {
                print("\n");
                return hasCancel ? dialog.cancelItem : preset;  // the end of the input is a dismissal
            }
            const std::int16_t pressed = answer->empty() ? preset : buttonFor(dialog, buttons, *answer);
            if (pressed != 0) {
                return pressed;
            }
            print("Answer with the number or the first letters of one button.\n");
        }
    } catch (...) {
        return 0;
    }

    ChooserOutcome choose(const Chooser& chooser, Choice& choice, Status& error) override try {
        error = noErr;
        std::string line = "\n" + printableLine(chooser.title);
        if (!chooser.proposed.empty()) {
            line += " (proposed: " + printableLine(chooser.proposed) + ")";
        }
        if (!isatty(input_)) {
            print(line + "\n(no terminal to answer from: cancelled)\n");
            return ChooserOutcome::cancelled;
        }
        Folder& folder = remembered(chooser.client);
        print(
            line + "\nA name or a path, classic or POSIX; " +
            (chooser.proposed.empty() ? "nothing cancels.\n" : "nothing takes the proposal, end of input cancels.\n"));
        for (;;) {
            print("File: ");
            const std::optional<std::string> answer = readLine();
            if (!answer || (answer->empty() && chooser.proposed.empty())) {
                print(answer ? "" : "\n");
                return ChooserOutcome::cancelled;
            }
            FSSpec spec;
            const std::string problem = examine(chooser, folder, answer->empty() ? chooser.proposed : *answer, spec);
            if (problem.empty()) {
                folder = {spec.vRefNum, spec.parID};
                choice = {spec.vRefNum, spec.parID, std::string(spec.nameView())};
                return ChooserOutcome::chosen;
            }
            print(problem + "\n");
        }
    } catch (...) {
        error = noErr;  // a terminal has no default options to miss; their error would pass for a choice
        return ChooserOutcome::failed;
    }

    void beep() override try {
        if (isatty(output_)) {
            print("\a");
        }
    } catch (...) {
        // Out of memory: silence.
    }

  private:
    struct Folder {
        std::int16_t vRefNum = 0;
        std::int32_t dirID = 0;
    };

    // --- alerts

    static std::vector<std::int16_t> visibleButtons(const Dialog& dialog) {
        std::vector<std::int16_t> buttons;
        for (std::size_t i = 0; i < dialog.items.size(); ++i) {
            if (dialog.items[i].kind == ItemKind::button && dialog.items[i].visible) {
                buttons.push_back(static_cast<std::int16_t>(i + 1));
            }
        }
        return buttons;
    }

    static std::string title(Dialog& dialog, std::int16_t button) {
        return printableLine(dialog.item(static_cast<std::size_t>(button)).text);
    }

    // Heading and message.
    static std::string words(Dialog& dialog) {
        std::string text = "\n";
        dialog.drawn.clear();
        for (std::size_t i = 0; i < dialog.items.size(); ++i) {
            const DialogItem item = dialog.items[i];
            if (item.visible && item.kind == ItemKind::staticText && !item.text.empty()) {
                text += printable(item.text) + "\n";
            }
            if (item.visible && item.kind == ItemKind::user && item.draw != nullptr) {
                item.draw(dialog, static_cast<std::int16_t>(i + 1));
            }
        }
        for (const DrawnText& drawn : dialog.drawn) {
            text += printable(drawn.text);
            text.erase(text.find_last_not_of('\n') + 1);
            text += '\n';
        }
        return text;
    }

    static std::string buttonLine(Dialog& dialog, const std::vector<std::int16_t>& buttons) {
        std::string line;
        for (std::int16_t button : buttons) {
            line += (line.empty() ? "" : "  ") + std::to_string(button) + " [" + title(dialog, button) + "]";
        }
        return line + "\n";
    }

    // The button of that number, or the only one whose title begins so; 0: none.
    static std::int16_t buttonFor(Dialog& dialog, const std::vector<std::int16_t>& buttons, const std::string& answer) {
        std::int16_t found = 0;
        for (std::int16_t button : buttons) {
            const std::string name = title(dialog, button);
            if (answer == std::to_string(button) || NameMatcher(answer).matches(name)) {
                return button;
            }
            if (NameMatcher(answer).matches(std::string_view(name).substr(0, answer.size()))) {
                found = found == 0 ? button : std::int16_t{-1};
            }
        }
        return std::max(found, std::int16_t{0});
    }

    // --- choosers

    // The folder that the client chose from last; at first the working folder, or else the application's.
    Folder& remembered(const std::string& client) {
        const auto [entry, isNew] = folders_.try_emplace(client);
        if (isNew) {
            files_.defaultFolder(entry->second.vRefNum, entry->second.dirID);
            const std::string working = classicPathOf(options_, workingFolder() + "/");
            FSSpec any;
            const Status status = working.empty() ? dirNFErr : files_.makeSpec(0, 0, working + "x", any);
            if (status == noErr || status == fnfErr) {
                entry->second = {any.vRefNum, any.parID};
            }
        }
        return entry->second;
    }

    static std::string workingFolder() {
        char* path = getcwd(nullptr, 0);
        std::string folder = path == nullptr ? "" : path;
        std::free(path);
        return folder;
    }

    // Makes the file that `answer` names; what is wrong with it, or the empty text.
    std::string examine(const Chooser& chooser, const Folder& folder, const std::string& answer, FSSpec& spec) {
        std::string path = answer;
        const bool posix = path.starts_with('/') || path.starts_with("./") || path.starts_with("../") ||
                           path.starts_with("~/") ||
                           (path.find('/') != std::string::npos && path.find(':') == std::string::npos);
        if (posix) {
            const char* home = std::getenv("HOME");
            if (path.starts_with("~/") && home != nullptr) {
                path = home + path.substr(1);
            } else if (!path.starts_with('/')) {
                path = workingFolder() + "/" + path;
            }
            path = classicPathOf(options_, path);
            if (path.empty()) {
                return "No volume holds that path.";
            }
        }
        const bool full = path.find(':') != std::string::npos && path[0] != ':';
        const Status status =
            full ? files_.makeSpec(0, 0, path, spec) : files_.makeSpec(folder.vRefNum, folder.dirID, path, spec);
        switch (status) {
            case noErr:
                break;
            case fnfErr:
                return chooser.kind == Chooser::Kind::write ? "" : "There is no such file.";
            case dirNFErr:
                return "There is no such folder.";
            case nsvErr:
                return "There is no such volume.";
            case bdNamErr:
                return "That is not a name: 1 to 255 bytes, not \".\" or \"..\".";
            default:
                return "That cannot be used (" + std::to_string(status) + ").";
        }
        FSSpec same;
        const std::string name(spec.nameView());
        if (spec.parID == fsRtParID || files_.makeSpec(spec.vRefNum, spec.parID, ":" + name + ":", same) == noErr) {
            return "That is a folder.";
        }
        if (chooser.kind == Chooser::Kind::write) {
            print(printableLine(name) + " exists. Replace it (y or n) [n]? ");
            const std::optional<std::string> replace = readLine();
            if (!replace || (!replace->starts_with('y') && !replace->starts_with('Y'))) {
                return "Not replaced.";
            }
        }
        return {};
    }

    // --- lines

    bool print(std::string_view text) {
        if (beforeOutput_) {
            beforeOutput_();
        }
        while (!text.empty()) {
            const ssize_t count = ::write(output_, text.data(), text.size());
            if (count > 0) {
                text.remove_prefix(static_cast<std::size_t>(count));
            } else if (count < 0 && errno == EAGAIN) {
                pollfd ready{output_, POLLOUT, 0};
                poll(&ready, 1, -1);
            } else if (count == 0 || errno != EINTR) {
                return false;
            }
        }
        return true;
    }

    // One line without its end, or nothing at the end of the input. Read byte by byte: what follows the line belongs to
    // whoever reads next.
    std::optional<std::string> readLine() {
        std::string line;
        for (;;) {
            char byte = 0;
            const ssize_t count = ::read(input_, &byte, 1);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count < 0 && errno == EAGAIN) {
                pollfd ready{input_, POLLIN, 0};
                poll(&ready, 1, -1);
                continue;
            }
            if (count <= 0 && line.empty()) {
                return std::nullopt;
            }
            if (count <= 0 || byte == '\n') {
                return line;
            }
            if (line.size() < longestAnswer && byte != '\r') {
                line += byte;
            }
        }
    }

    Files& files_;
    LinuxOptions options_;
    int input_;
    int output_;
    std::function<void()> beforeOutput_;
    std::map<std::string, Folder> folders_;  // by client
};

}  // namespace

std::unique_ptr<Dialogs> makeTerminalDialogs(Files& files, const LinuxOptions& options, int input, int output,
                                             std::function<void()> beforeOutput) {
    return std::make_unique<TerminalDialogs>(files, options, input, output, std::move(beforeOutput));
}

}  // namespace platform
