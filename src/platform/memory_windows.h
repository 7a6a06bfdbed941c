// Windows and menus that live in memory alone: what the scripted machine and the machine without a desktop have.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "platform/menus.h"
#include "platform/windows.h"

namespace platform {

struct WindowRecord {
    std::string title;
    std::int16_t kind = userKind;
    std::int16_t width = 0;
    std::int16_t height = 0;
    Rect clip;
    std::vector<Rect> invalid;  // areas the host has to repaint
};

class MemoryWindows : public Windows {
  public:
    WindowRef front() override;
    WindowRef next(WindowRef after) override;
    std::int16_t kind(WindowRef window) override;
    std::string title(WindowRef window) override;
    void setTitle(WindowRef window, std::string_view title) override;
    Rect portRect(WindowRef window) override;
    WindowRef newWindow(Rect bounds, std::string_view title, std::int16_t kind) override;
    void disposeWindow(WindowRef window) override;
    void setClip(WindowRef window, Rect rect) override;
    void erase(WindowRef window, Rect rect) override;
    void invalidate(WindowRef window, Rect rect) override;
    void validate(WindowRef window, Rect rect) override;
    Rect screenBounds() override;
    void drawString(WindowRef window, Point at, std::string_view text) override;
    std::int16_t stringWidth(std::string_view text) override;
    void drawProgress(WindowRef window, const ProgressBox& box) override;

    // SelectWindow: puts the window in front of all others.
    virtual void bringToFront(WindowRef window);
    // To be called before anything else is written to the descriptor `output`: what is drawn on the same terminal goes.
    virtual void beforeOutput(int /*output*/) {}
    // Replaces the window list, front first. A window with a title that was there before is the same window.
    void setWindows(const std::vector<WindowRecord>& windows);

  protected:
    void close(std::list<WindowRecord>& from, std::list<WindowRecord>::iterator window);

    std::list<WindowRecord> list_;    // front first
    std::list<WindowRecord> closed_;  // the latest that were closed
};

struct MenuItem {
    std::string text;
    char commandKey = 0;
    bool enabled = true;
};

struct Menu {
    std::string title;
    bool enabled = true;
    std::vector<MenuItem> items;
};

class MemoryMenus : public Menus {
  public:
    bool hasMenu(std::int16_t menuID) override;
    std::string title(std::int16_t menuID) override;
    std::int16_t itemCount(std::int16_t menuID) override;
    std::string itemText(std::int16_t menuID, std::int16_t item) override;
    char itemCommandKey(std::int16_t menuID, std::int16_t item) override;
    void appendItem(std::int16_t menuID, std::string_view text) override;
    void enableItem(std::int16_t menuID, std::int16_t item, bool enabled) override;
    bool itemEnabled(std::int16_t menuID, std::int16_t item) override;

    void setMenus(std::map<std::int16_t, Menu> menus) { menus_ = std::move(menus); }
    const std::map<std::int16_t, Menu>& menus() const { return menus_; }
    virtual void setMenu(std::int16_t menuID, Menu menu) { menus_.insert_or_assign(menuID, std::move(menu)); }

  protected:
    std::map<std::int16_t, Menu> menus_;
};

}  // namespace platform
