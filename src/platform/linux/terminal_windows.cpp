#include "platform/linux/terminal_windows.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

namespace platform {

static constexpr std::string_view lineStart = "\r\033[K";  // and the line is empty

// A terminal that cannot be written to goes without.
static void put(int output, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(output, text.data(), text.size());
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return;
        }
    }
}

TerminalWindows::TerminalWindows(int output) : output_(output) {}

TerminalWindows::~TerminalWindows() {
    clear();
}

void TerminalWindows::clear() {
    if (drawn_) {
        put(output_, lineStart);
        drawn_ = false;
    }
}

void TerminalWindows::drawProgress(WindowRef window, const ProgressBox& box) {
    MemoryWindows::drawProgress(window, box);
    if (isatty(output_) != 1) {
        return;
    }
    if (!box.fraction) {
        clear();
        return;
    }
    std::string line(lineStart);
    for (const char c : box.text) {
        line += static_cast<unsigned char>(c) < ' ' || c == '\x7F' ? ' ' : c;
    }
    line += ": " + std::to_string(static_cast<int>(*box.fraction * 100)) + " %";
    put(output_, line);
    drawn_ = true;
}

void TerminalWindows::beforeOutput(int output) {
    if (drawn_ && isatty(output) == 1) {
        clear();
    }
}

}  // namespace platform
