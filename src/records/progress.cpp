// The progress box of a set that is being collected.

#include <algorithm>
#include <cstdio>

#include "platform/machine.h"
#include "records/found_set.h"
#include "util/alerts.h"

namespace quil {

static constexpr std::uint32_t kTicksBeforeBox = 120;
static constexpr std::int16_t kBoxWidth = 400;
static constexpr std::int16_t kBoxHeight = 70;

static platform::Rect centredBox(const platform::Rect& content) {
    const auto left = static_cast<std::int16_t>(content.left + (content.right - content.left - kBoxWidth) / 2);
    const auto top = static_cast<std::int16_t>(content.top + (content.bottom - content.top - kBoxHeight) / 2);
    return {top, left, static_cast<std::int16_t>(top + kBoxHeight), static_cast<std::int16_t>(left + kBoxWidth)};
}

void ShowFoundSetProgress(FoundSet& set) {
    if (set.capacity == 0) {
        return;
    }
    const bool first = set.progressShown == 0;
    if (first && std::uint64_t{set.count} * 3 > set.capacity) {
        return;
    }
    const double fraction = static_cast<double>(set.count) / set.capacity;
    const auto percent = static_cast<std::int16_t>(fraction * 100);
    if (!first && percent == set.lastPercent) {
        return;
    }
    // The clock comes last: most calls end before it, and it costs more than they do.
    platform::Machine& machine = platform::machine();
    if (machine.input().ticks() - set.startTick < kTicksBeforeBox) {
        return;
    }
    set.lastPercent = percent;
    const platform::WindowRef window = GetFrontFilemakerFileWindow();
    if (window == nullptr || (!first && window != set.progressWindow)) {
        return;
    }
    set.progressShown = 1;
    set.progressWindow = window;

    const bool full = set.count >= set.capacity;
    platform::ProgressBox box;
    box.frame = centredBox(machine.windows().portRect(window));
    box.erase = first || full;
    if (full) {
        box.text = "Processing found IDs";
    } else {
        char text[64];
        std::snprintf(text, sizeof text, "Collecting %ld found IDs", static_cast<long>(set.capacity));
        box.text = text;
        box.fraction = fraction;
    }
    machine.windows().invalidate(window, box.frame);
    machine.windows().drawProgress(window, box);
}

}  // namespace quil
