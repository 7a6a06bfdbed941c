#include "platform/memory_windows.h"

#include <algorithm>

namespace platform {
namespace {

// The system font at its default size, as far as a machine without a display measures it.
constexpr int kCharacterWidth = 7;

// Closed windows are kept for a while, so that a reference to one never means a new window at its address.
constexpr std::size_t kClosedWindowsKept = 64;

std::int16_t clampToShort(long value) {
    return static_cast<std::int16_t>(std::clamp(value, -32768L, 32767L));
}

bool holds(const std::list<WindowRecord>& list, const WindowRecord* window) {
    return std::any_of(list.begin(), list.end(), [window](const WindowRecord& record) { return &record == window; });
}

// The item of a menu, or null.
MenuItem* find(std::map<std::int16_t, Menu>& menus, std::int16_t menuID, std::int16_t item) {
    const auto found = menus.find(menuID);
    if (found == menus.end() || item < 1 || static_cast<std::size_t>(item) > found->second.items.size()) {
        return nullptr;
    }
    return &found->second.items[static_cast<std::size_t>(item) - 1];
}

}  // namespace

// Windows. A reference to a window that is gone answers like no window.

WindowRef MemoryWindows::front() {
    return list_.empty() ? nullptr : &list_.front();
}

WindowRef MemoryWindows::next(WindowRef after) {
    for (auto window = list_.begin(); window != list_.end(); ++window) {
        if (&*window == after) {
            ++window;
            return window == list_.end() ? nullptr : &*window;
        }
    }
    return nullptr;
}

std::int16_t MemoryWindows::kind(WindowRef window) {
    return holds(list_, window) ? window->kind : std::int16_t{0};
}

std::string MemoryWindows::title(WindowRef window) {
    return holds(list_, window) ? window->title : std::string();
}

void MemoryWindows::setTitle(WindowRef window, std::string_view title) {
    if (holds(list_, window)) {
        window->title = title;
    }
}

Rect MemoryWindows::portRect(WindowRef window) {
    return holds(list_, window) ? Rect{0, 0, window->height, window->width} : Rect{};
}

WindowRef MemoryWindows::newWindow(Rect bounds, std::string_view title, std::int16_t kind) {
    WindowRecord record;
    record.title = title;
    record.kind = kind;
    record.width = clampToShort(static_cast<long>(bounds.right) - bounds.left);
    record.height = clampToShort(static_cast<long>(bounds.bottom) - bounds.top);
    record.clip = Rect{0, 0, record.height, record.width};
    list_.push_front(std::move(record));
    return &list_.front();
}

void MemoryWindows::disposeWindow(WindowRef window) {
    for (auto it = list_.begin(); it != list_.end(); ++it) {
        if (&*it == window) {
            close(list_, it);
            return;
        }
    }
}

void MemoryWindows::close(std::list<WindowRecord>& from, std::list<WindowRecord>::iterator window) {
    closed_.splice(closed_.end(), from, window);
    if (closed_.size() > kClosedWindowsKept) {
        closed_.pop_front();
    }
}

void MemoryWindows::setClip(WindowRef window, Rect rect) {
    if (holds(list_, window)) {
        window->clip = rect;
    }
}

void MemoryWindows::erase(WindowRef, Rect) {}  // nothing is on a display

void MemoryWindows::invalidate(WindowRef window, Rect rect) {
    if (holds(list_, window)) {
        auto& invalid = window->invalid;
        if (std::find(invalid.begin(), invalid.end(), rect) == invalid.end()) {
            invalid.push_back(rect);
        }
    }
}

void MemoryWindows::validate(WindowRef window, Rect rect) {
    if (holds(list_, window)) {
        // An area counts as painted when the whole of it is.
        std::erase_if(window->invalid, [rect](const Rect& area) {
            return area.top >= rect.top && area.left >= rect.left && area.bottom <= rect.bottom &&
                   area.right <= rect.right;
        });
    }
}

Rect MemoryWindows::screenBounds() {
    return Rect{0, 0, 768, 1024};
}

void MemoryWindows::drawString(WindowRef, Point, std::string_view) {}

std::int16_t MemoryWindows::stringWidth(std::string_view text) {
    const auto characters =
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
    return clampToShort(static_cast<long>(characters) * kCharacterWidth);
}

void MemoryWindows::drawProgress(WindowRef, const ProgressBox&) {}

void MemoryWindows::bringToFront(WindowRef window) {
    for (auto it = list_.begin(); it != list_.end(); ++it) {
        if (&*it == window) {
            list_.splice(list_.begin(), list_, it);
            return;
        }
    }
}

void MemoryWindows::setWindows(const std::vector<WindowRecord>& windows) {
    std::list<WindowRecord> before;
    before.swap(list_);
    for (const WindowRecord& wanted : windows) {
        const auto same = std::find_if(before.begin(), before.end(),
                                       [&wanted](const WindowRecord& record) { return record.title == wanted.title; });
        if (same == before.end()) {
            list_.push_back(wanted);
            continue;
        }
        same->kind = wanted.kind;
        same->width = wanted.width;
        same->height = wanted.height;
        list_.splice(list_.end(), before, same);
    }
    while (!before.empty()) {
        close(before, before.begin());
    }
}

// Menus.

bool MemoryMenus::hasMenu(std::int16_t menuID) {
    return menus_.contains(menuID);
}

std::string MemoryMenus::title(std::int16_t menuID) {
    const auto found = menus_.find(menuID);
    return found == menus_.end() ? std::string() : found->second.title;
}

std::int16_t MemoryMenus::itemCount(std::int16_t menuID) {
    const auto found = menus_.find(menuID);
    return found == menus_.end() ? std::int16_t{0} : clampToShort(static_cast<long>(found->second.items.size()));
}

std::string MemoryMenus::itemText(std::int16_t menuID, std::int16_t item) {
    const MenuItem* found = find(menus_, menuID, item);
    return found == nullptr ? std::string() : found->text;
}

char MemoryMenus::itemCommandKey(std::int16_t menuID, std::int16_t item) {
    const MenuItem* found = find(menus_, menuID, item);
    return found == nullptr ? '\0' : found->commandKey;
}

void MemoryMenus::appendItem(std::int16_t menuID, std::string_view text) {
    if (const auto found = menus_.find(menuID); found != menus_.end()) {
        MenuItem item;
        item.text = text;
        found->second.items.push_back(std::move(item));
    }
}

void MemoryMenus::enableItem(std::int16_t menuID, std::int16_t item, bool enabled) {
    if (item != 0) {
        if (MenuItem* found = find(menus_, menuID, item)) {
            found->enabled = enabled;
        }
    } else if (const auto menu = menus_.find(menuID); menu != menus_.end()) {
        menu->second.enabled = enabled;
    }
}

bool MemoryMenus::itemEnabled(std::int16_t menuID, std::int16_t item) {
    const auto menu = menus_.find(menuID);
    if (menu == menus_.end() || !menu->second.enabled) {
        return false;  // a disabled menu disables its items
    }
    const MenuItem* found = find(menus_, menuID, item);
    return item == 0 || (found != nullptr && found->enabled);
}

}  // namespace platform
