// Window Manager: the window list, titles, and what the plug-in draws in a window.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace platform {

struct WindowRecord;
using WindowRef = WindowRecord*;  // owned by the Window Manager; null is none

inline constexpr std::int16_t userKind = 8;         // an ordinary document window
inline constexpr std::int16_t utilityKind = 20000;  // the host's floating palettes

// The progress box, drawn in a window's content. Which parts are new is the caller's rule, how it looks is the
// machine's.
struct ProgressBox {
    Rect frame;                      // in the window's coordinates
    std::string text;                // one line
    std::optional<double> fraction;  // of the bar that is filled, 0 to 1; none: no bar
    bool erase = false;              // erase the box before drawing
};

class Windows {
  public:
    virtual ~Windows() = default;

    virtual WindowRef front() = 0;                // the first window of the list, or null
    virtual WindowRef next(WindowRef after) = 0;  // the one behind it, or null
    virtual std::int16_t kind(WindowRef window) = 0;
    virtual std::string title(WindowRef window) = 0;
    virtual void setTitle(WindowRef window, std::string_view title) = 0;
    virtual Rect portRect(WindowRef window) = 0;  // content, with its top left corner at 0, 0
    virtual WindowRef newWindow(Rect bounds, std::string_view title, std::int16_t kind) = 0;
    virtual void disposeWindow(WindowRef window) = 0;

    virtual void setClip(WindowRef window, Rect rect) = 0;
    virtual void erase(WindowRef window, Rect rect) = 0;
    virtual void invalidate(WindowRef window, Rect rect) = 0;
    virtual void validate(WindowRef window, Rect rect) = 0;
    virtual Rect screenBounds() = 0;

    virtual void drawString(WindowRef window, Point at, std::string_view text) = 0;
    virtual std::int16_t stringWidth(std::string_view text) = 0;  // pixels, system font
    virtual void drawProgress(WindowRef window, const ProgressBox& box) = 0;
};

}  // namespace platform
