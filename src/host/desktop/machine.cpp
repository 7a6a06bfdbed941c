#include "host/desktop/machine.h"

#include <QApplication>
#include <QCursor>
#include <QDateTime>
#include <QFontMetrics>
#include <QPainter>
#include <QScreen>
#include <algorithm>

#include "platform/text.h"

namespace host::desktop {

namespace {

constexpr std::size_t kSeenKept = 500;

std::int16_t toShort(int value) {
    return static_cast<std::int16_t>(std::clamp(value, -32768, 32767));
}

// The progress box: always black on white, as the plug-in's own drawing is.
class ProgressWidget : public QWidget {
  public:
    explicit ProgressWidget(QWidget* parent) : QWidget(parent) {
        setObjectName("progress");
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

    void draw(const platform::ProgressBox& box) {
        text_ = lineOf(box.text);
        fraction_ = box.fraction;
        setAccessibleName(text_);
        const platform::Rect& frame = box.frame;
        setGeometry(frame.left, frame.top, frame.right - frame.left, frame.bottom - frame.top);
        show();
        raise();
        repaint();
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        constexpr int kMargin = 20;
        constexpr int kBarTop = 30;
        QPainter painter(this);
        painter.fillRect(rect(), Qt::white);
        painter.setPen(Qt::black);
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
        painter.drawText(kMargin, kMargin, text_);
        if (fraction_) {
            const QRect bar(kMargin, kBarTop, width() - 2 * kMargin, height() - kBarTop - kMargin);
            QRect filled = bar;
            filled.setWidth(static_cast<int>(bar.width() * std::clamp(*fraction_, 0.0, 1.0)));
            painter.fillRect(filled, Qt::blue);
            painter.drawRect(bar.adjusted(0, 0, -1, -1));
        }
    }

  private:
    QString text_;
    std::optional<double> fraction_;
};

}  // namespace

QString textOf(std::string_view bytes) {
    QString text = QString::fromStdString(platform::utf8Of(bytes));
    text.replace("\r\n", "\n").replace('\r', '\n');
    return text;
}

QString lineOf(std::string_view bytes, int most) {
    QString text = textOf(bytes);
    for (QChar& c : text) {
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format) {
            c = ' ';
        }
    }
    if (text.size() > most) {
        text = text.left(most / 2) + QChar(0x2026) + text.right(most - most / 2 - 1);
    }
    return text;
}

QString literal(QString text) {
    return text.replace('&', "&&");
}

// Windows.

void DeskWindows::showAll() {
    std::vector<platform::WindowRef> windows;
    for (platform::WindowRef window = front(); window != nullptr; window = next(window)) {
        windows.insert(windows.begin(), window);
    }
    for (platform::WindowRef window : windows) {  // the front one last
        if (!shown_.contains(window)) {
            shown_[window] = show(window);
        }
    }
}

void DeskWindows::setTitle(platform::WindowRef window, std::string_view title) {
    MemoryWindows::setTitle(window, title);
    if (const auto found = shown_.find(window); found != shown_.end() && found->second.window) {
        found->second.window->setWindowTitle(lineOf(MemoryWindows::title(window)));
    }
}

platform::Rect DeskWindows::portRect(platform::WindowRef window) {
    if (const auto found = shown_.find(window); found != shown_.end() && found->second.content) {
        const QSize size = found->second.content->size();
        return {0, 0, toShort(size.height()), toShort(size.width())};
    }
    return MemoryWindows::portRect(window);
}

platform::WindowRef DeskWindows::newWindow(platform::Rect bounds, std::string_view title, std::int16_t kind) {
    const platform::WindowRef window = MemoryWindows::newWindow(bounds, title, kind);
    if (show) {
        shown_[window] = show(window);
    }
    return window;
}

void DeskWindows::disposeWindow(platform::WindowRef window) {
    if (const auto found = shown_.find(window); found != shown_.end()) {
        const Shown shown = found->second;
        shown_.erase(found);
        if (shown.window) {
            shown.window->hide();
            shown.window->deleteLater();
        }
    }
    MemoryWindows::disposeWindow(window);
}

void DeskWindows::bringToFront(platform::WindowRef window) {
    MemoryWindows::bringToFront(window);
    if (const auto found = shown_.find(window); found != shown_.end() && found->second.window) {
        found->second.window->raise();
        found->second.window->activateWindow();
    }
}

void DeskWindows::activated(platform::WindowRef window) {
    MemoryWindows::bringToFront(window);
}

void DeskWindows::closed(platform::WindowRef window) {
    shown_.erase(window);
    MemoryWindows::disposeWindow(window);
}

QWidget* DeskWindows::frontWidget() {
    for (platform::WindowRef window = front(); window != nullptr; window = next(window)) {
        if (const auto found = shown_.find(window); found != shown_.end() && found->second.window) {
            return found->second.window;
        }
    }
    return nullptr;
}

platform::Rect DeskWindows::screenBounds() {
    const QRect screen = QApplication::primaryScreen()->geometry();
    return {toShort(screen.top()), toShort(screen.left()), toShort(screen.top() + screen.height()),
            toShort(screen.left() + screen.width())};
}

std::int16_t DeskWindows::stringWidth(std::string_view text) {
    return toShort(QFontMetrics(QApplication::font()).horizontalAdvance(lineOf(text, 32767)));
}

void DeskWindows::drawProgress(platform::WindowRef window, const platform::ProgressBox& box) {
    MemoryWindows::drawProgress(window, box);
    const auto found = shown_.find(window);
    if (found == shown_.end() || !found->second.content) {
        return;
    }
    if (progress_ && progress_->parentWidget() != found->second.content) {
        QWidget* const elsewhere = progress_;
        progress_.clear();
        delete elsewhere;
    }
    if (!progress_) {
        progress_ = new ProgressWidget(found->second.content);
    }
    static_cast<ProgressWidget*>(progress_.data())->draw(box);
    if (breathe) {
        breathe();
    }
}

void DeskWindows::repaint() {
    QWidget* const drawn = progress_;
    progress_.clear();
    delete drawn;
    for (platform::WindowRef window = front(); window != nullptr; window = next(window)) {
        window->invalid.clear();
    }
}

// Menus.

void DeskMenus::appendItem(std::int16_t menuID, std::string_view text) {
    MemoryMenus::appendItem(menuID, text);
    if (changed) {
        changed();
    }
}

void DeskMenus::enableItem(std::int16_t menuID, std::int16_t item, bool enabled) {
    MemoryMenus::enableItem(menuID, item, enabled);
    if (changed) {
        changed();
    }
}

void DeskMenus::setMenu(std::int16_t menuID, platform::Menu menu) {
    MemoryMenus::setMenu(menuID, std::move(menu));
    if (changed) {
        changed();
    }
}

// Input.

std::uint32_t DeskInput::doubleClickTicks() {
    return static_cast<std::uint32_t>(QApplication::doubleClickInterval() * 60 / 1000);
}

platform::Point DeskInput::mouse() {
    const QPoint at = click_.value_or(QCursor::pos());
    return {toShort(at.y()), toShort(at.x())};
}

void DeskInput::wait(std::uint32_t ticks) {
    if (!rest) {
        clock_.wait(ticks);
        return;
    }
    const std::uint32_t start = clock_.ticks();
    for (std::uint32_t passed = 0; passed < ticks; passed = clock_.ticks() - start) {
        rest(std::max(1U, (ticks - passed) * 1000 / 60));
    }
}

// Events.

WatchedEvents::~WatchedEvents() {
    for (const auto& [code, handler] : handlers_) {
        events_.installHandler(code.first, code.second, nullptr, 0);
    }
}

platform::Status WatchedEvents::installHandler(platform::OSType eventClass, platform::OSType eventID,
                                               platform::EventHandler handler, long reference) {
    if (handler == nullptr) {
        handlers_.erase({eventClass, eventID});
        return events_.installHandler(eventClass, eventID, nullptr, 0);
    }
    auto watched = std::make_unique<Handler>(Handler{this, handler, reference});
    const platform::Status status =
        events_.installHandler(eventClass, eventID, handle, reinterpret_cast<long>(watched.get()));
    if (status == platform::noErr) {
        handlers_.insert_or_assign({eventClass, eventID}, std::move(watched));
    }
    return status;
}

platform::Status WatchedEvents::send(const platform::Event& event) {
    const platform::Status status = events_.send(event);
    note(false, event, status);
    return status;
}

platform::Status WatchedEvents::handle(const platform::Event& event, platform::Event& reply, long handler) {
    const Handler installed = *reinterpret_cast<const Handler*>(handler);  // which may remove itself
    const platform::Status status = installed.handler(event, reply, installed.reference);
    installed.watcher->note(true, event, status);
    return status;
}

void WatchedEvents::note(bool incoming, const platform::Event& event, platform::Status status) noexcept {
    try {
        constexpr std::size_t kLongest = 4096;  // of a parameter: the panel shows no more
        Seen seen{incoming, {}, status, QDateTime::currentMSecsSinceEpoch()};
        seen.event.eventClass = event.eventClass;
        seen.event.eventID = event.eventID;
        seen.event.target = event.target;
        for (const platform::EventParameter& parameter : event.parameters) {
            seen.event.parameters.push_back(
                {parameter.keyword, parameter.type, parameter.data.substr(0, kLongest), false});
        }
        if (incoming && arrived) {
            arrived(seen);
        }
        seen_.push_back(std::move(seen));
        if (seen_.size() > kSeenKept) {
            seen_.pop_front();
        }
        ++count_;
    } catch (const std::bad_alloc&) {
        // It is not shown.
    }
}

// The machine. It answers at the terminal nowhere: its dialogs are windows.

static platform::LinuxOptions withoutTerminal(platform::LinuxOptions options) {
    options.asksUser = false;
    return options;
}

DeskMachine::DeskMachine(const platform::LinuxOptions& options)
    : linux_(platform::makeLinuxMachine(withoutTerminal(options))),
      events_(linux_->events()),
      dialogs_(linux_->files(), options),
      input_(linux_->input()) {}

}  // namespace host::desktop
