// The machine whose windows, menus, dialogs and mouse are the desktop's; everything else is Linux's.
#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/linux/linux_machine.h"
#include "platform/machine.h"
#include "platform/memory_windows.h"

namespace host::desktop {

// A text of the plug-in, UTF-8 or Mac Roman; carriage returns become line feeds.
QString textOf(std::string_view bytes);
// The same for a title or label: without control characters, at most `most` characters, shortened in the middle.
QString lineOf(std::string_view bytes, int most = 255);
// A label where '&' means itself.
QString literal(QString text);

// The platform's window list, and who shows each window.
class DeskWindows : public platform::MemoryWindows {
  public:
    struct Shown {
        QPointer<QWidget> window;
        QPointer<QWidget> content;  // what the plug-in draws in
    };

    // Called for windows that the solution opens from then on. `show` gives the widgets.
    std::function<Shown(platform::WindowRef)> show;

    void showAll();  // those that are there already
    void setTitle(platform::WindowRef window, std::string_view title) override;
    platform::Rect portRect(platform::WindowRef window) override;
    platform::WindowRef newWindow(platform::Rect bounds, std::string_view title, std::int16_t kind) override;
    void disposeWindow(platform::WindowRef window) override;
    void bringToFront(platform::WindowRef window) override;
    platform::Rect screenBounds() override;
    std::int16_t stringWidth(std::string_view text) override;
    void drawProgress(platform::WindowRef window, const platform::ProgressBox& box) override;

    // The user brought the window to the front, or closed it.
    void activated(platform::WindowRef window);
    void closed(platform::WindowRef window);
    QWidget* frontWidget();
    // The host repaints over what was drawn.
    void repaint();
    std::function<void()> breathe;  // called after drawing

  private:
    std::map<platform::WindowRef, Shown> shown_;
    QPointer<QWidget> progress_;
};

class DeskMenus : public platform::MemoryMenus {
  public:
    std::function<void()> changed;  // the menu bars have to be made again

    void appendItem(std::int16_t menuID, std::string_view text) override;
    void enableItem(std::int16_t menuID, std::int16_t item, bool enabled) override;
    void setMenu(std::int16_t menuID, platform::Menu menu) override;
};

class DeskInput : public platform::Input {
  public:
    explicit DeskInput(platform::Input& clock) : clock_(clock) {}
    std::uint32_t ticks() override { return clock_.ticks(); }
    std::int64_t seconds() override { return clock_.seconds(); }
    std::uint32_t doubleClickTicks() override;
    platform::Point mouse() override;
    void wait(std::uint32_t ticks) override;

    // Where the click is that a script runs for; none: where the mouse is.
    void setClick(std::optional<QPoint> where) { click_ = where; }
    std::function<void(std::uint32_t milliseconds)> rest;

  private:
    platform::Input& clock_;
    std::optional<QPoint> click_;
};

class DeskDialogs : public platform::Dialogs {
  public:
    explicit DeskDialogs(platform::Files& files, const platform::LinuxOptions& options)
        : files_(files), options_(options) {}
    std::int16_t textHeight(std::string_view text, std::int16_t width) override;
    void drawTextBox(platform::Dialog& dialog, std::string_view text, platform::Rect rect) override;
    std::int16_t runModal(platform::Dialog& dialog) override;
    platform::ChooserOutcome choose(const platform::Chooser& chooser, platform::Choice& choice,
                                    platform::Status& error) override;
    void beep() override;

    std::function<QWidget*()> parent;         // the window that dialogs belong to
    QString title;                            // of alerts
    std::vector<QString>* collect = nullptr;  // alerts go there instead, and end with their default button

  private:
    platform::Files& files_;
    platform::LinuxOptions options_;
};

// One event that came or went, as the messages panel shows it.
struct Seen {
    bool incoming = false;
    platform::Event event;
    platform::Status status = 0;
    std::int64_t when = 0;  // milliseconds since 1970
};

// The Linux machine's events, watched.
class WatchedEvents : public platform::Events {
  public:
    explicit WatchedEvents(platform::Events& events) : events_(events) {}
    ~WatchedEvents() override;
    WatchedEvents(const WatchedEvents&) = delete;
    WatchedEvents& operator=(const WatchedEvents&) = delete;
    platform::Status installHandler(platform::OSType eventClass, platform::OSType eventID,
                                    platform::EventHandler handler, long reference) override;
    platform::Status send(const platform::Event& event) override;
    void dispatch() override { events_.dispatch(); }
    int descriptor() override { return events_.descriptor(); }

    std::function<void(const Seen&)> arrived;  // an event came and was handled

    const std::deque<Seen>& seen() const { return seen_; }
    std::uint64_t count() const { return count_; }

  private:
    struct Handler {
        WatchedEvents* watcher;
        platform::EventHandler handler;
        long reference;
    };
    static platform::Status handle(const platform::Event& event, platform::Event& reply, long handler);
    void note(bool incoming, const platform::Event& event, platform::Status status) noexcept;

    platform::Events& events_;
    std::map<std::pair<platform::OSType, platform::OSType>, std::unique_ptr<Handler>> handlers_;
    std::deque<Seen> seen_;    // the latest
    std::uint64_t count_ = 0;  // of all
};

class DeskMachine : public platform::Machine {
  public:
    explicit DeskMachine(const platform::LinuxOptions& options);

    platform::Files& files() override { return linux_->files(); }
    platform::Events& events() override { return events_; }
    platform::Processes& processes() override { return linux_->processes(); }
    platform::Dialogs& dialogs() override { return dialogs_; }
    platform::Windows& windows() override { return windows_; }
    platform::Menus& menus() override { return menus_; }
    platform::Input& input() override { return input_; }
    platform::Resources& resources() override { return linux_->resources(); }

    DeskWindows& deskWindows() { return windows_; }
    DeskMenus& deskMenus() { return menus_; }
    DeskDialogs& deskDialogs() { return dialogs_; }
    DeskInput& deskInput() { return input_; }
    WatchedEvents& watchedEvents() { return events_; }

  private:
    std::unique_ptr<platform::Machine> linux_;
    WatchedEvents events_;
    DeskDialogs dialogs_;
    DeskWindows windows_;
    DeskMenus menus_;
    DeskInput input_;
};

}  // namespace host::desktop
