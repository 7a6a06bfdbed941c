#include "host/desktop/desk.h"

#include <QApplication>
#include <QEventLoop>
#include <QKeyEvent>
#include <QMessageBox>
#include <algorithm>

#include "host/desktop/later.h"
#include "host/desktop/solution_window.h"
#include "platform/text.h"

namespace host::desktop {

namespace {

constexpr qint64 kBetweenBreaths = 40;  // milliseconds
constexpr qint64 kUntilShown = 500;     // what takes longer is shown, with "Cancel"
constexpr int kPrintedKept = 100'000;   // characters for the console
constexpr std::int16_t kMostMenus = 29;

bool isInput(QEvent::Type type) {
    switch (type) {
        case QEvent::MouseButtonPress:
        case QEvent::MouseButtonRelease:
        case QEvent::MouseButtonDblClick:
        case QEvent::MouseMove:
        case QEvent::Wheel:
        case QEvent::KeyPress:
        case QEvent::KeyRelease:
        case QEvent::Shortcut:
        case QEvent::InputMethod:
        case QEvent::ContextMenu:
        case QEvent::DragEnter:
        case QEvent::Drop:
        case QEvent::TouchBegin:
        case QEvent::TabletPress:
            return true;
        default:
            return false;
    }
}

}  // namespace

class Desk::Working {
  public:
    Working(Desk& desk, const QString& what) : desk_(desk) { desk_.enter(what); }
    ~Working() { desk_.leave(); }
    Working(const Working&) = delete;
    Working& operator=(const Working&) = delete;

  private:
    Desk& desk_;
};

Desk::Desk(Context& context, const SolutionOptions& given) : context_(context), readOnly_(given.readOnly) {
    clock_.start();
    SolutionOptions options = given;
    options.observer = this;
    options.console = true;
    context.makeMachine = [this](const platform::LinuxOptions& machineOptions) {
        auto machine = std::make_unique<DeskMachine>(machineOptions);
        machine_ = machine.get();
        machine_->deskDialogs().parent = [this]() -> QWidget* { return machine_->deskWindows().frontWidget(); };
        return machine;
    };
    solution_ = std::make_unique<Solution>(context, options);
    if (machine_->windows().front() == nullptr) {
        solution_->openWindow({solution_->name().substr(0, 255)});
    }
    completeMenus();
    machine_->deskDialogs().title = lineOf(solution_->name(), 60);
    machine_->deskWindows().show = [this](platform::WindowRef window) { return show(window); };
    machine_->deskWindows().breathe = [this] { breathe(); };
    machine_->watchedEvents().arrived = [this](const Seen& seen) {
        messages_.arrived(seen.event, seen.status, seen.when);
    };
    machine_->deskMenus().changed = [this] {
        if (!std::exchange(menusStale_, true)) {
            later(this, [this] {
                menusStale_ = false;
                completeMenus();
                for (const auto& window : windows_) {
                    if (window) {
                        window->makeMenus();
                    }
                }
            });
        }
    };
    machine_->deskInput().rest = [this](std::uint32_t milliseconds) { restFor(static_cast<int>(milliseconds)); };
    idleTimer_.setSingleShot(true);
    connect(&idleTimer_, &QTimer::timeout, this, [this] { idle(); });
    if (const int arrivals = machine_->events().descriptor(); arrivals >= 0) {
        arrivals_ = std::make_unique<QSocketNotifier>(arrivals, QSocketNotifier::Read);
        connect(arrivals_.get(), &QSocketNotifier::activated, this, [this] {
            arrivals_->setEnabled(false);  // until they were taken
            idleTimer_.start(0);
        });
    }
    qApp->installEventFilter(this);
    qApp->setQuitOnLastWindowClosed(false);
    changesSeen_ = sqlite3_total_changes64(solution_->records().handle());
    machine_->deskWindows().showAll();
}

// The windows go before what they show, and the plug-in before the machine.
Desk::~Desk() {
    closing_ = true;
    qApp->removeEventFilter(this);
    idleTimer_.stop();
    arrivals_.reset();
    onPrint = nullptr;
    onActivity = nullptr;
    machine_->deskWindows().show = nullptr;
    machine_->deskMenus().changed = nullptr;
    for (const auto& tool : tools_) {
        delete tool;
    }
    for (const auto& window : windows_) {
        delete window;
    }
    undo_.ends(false);
    solution_.reset();
}

int Desk::run() {
    starting_ = true;
    idleTimer_.start(0);
    QApplication::exec();
    return solution_->life().status();
}

DeskWindows::Shown Desk::show(platform::WindowRef window) {
    const platform::Rect size = machine_->windows().portRect(window);
    auto* shown = new SolutionWindow(*this, window, {size.right, size.bottom});
    windows_.erase(std::remove_if(windows_.begin(), windows_.end(), [](const auto& other) { return !other; }),
                   windows_.end());
    windows_.emplace_back(shown);
    shown->show();
    return {shown, shown->centralWidget()};
}

// The menu "Scripts" has every script. Where the solution has one of its own, its items come first.
void Desk::completeMenus() {
    platform::MemoryMenus& menus = machine_->deskMenus();
    std::int16_t id = 1;
    while (menus.hasMenu(id) && menus.title(id) != "Scripts") {
        ++id;
    }
    if (id > kMostMenus) {
        return;  // the bar is full
    }
    platform::Menu scripts;
    scripts.title = "Scripts";
    if (const auto found = menus.menus().find(id); found != menus.menus().end()) {
        scripts = found->second;
    }
    const std::size_t before = scripts.items.size();
    for (const std::string& name : solution_->scriptNames()) {
        if (std::none_of(scripts.items.begin(), scripts.items.end(), [&name](const platform::MenuItem& item) {
                return item.text == name || scriptNameOf(item.text) == name;
            })) {
            scripts.items.push_back({.text = name});
        }
    }
    if (before != scripts.items.size() || !menus.hasMenu(id)) {
        menus.setMenu(id, std::move(scripts));
    }
}

// Work.

void Desk::enter(const QString& what) {
    if (depth_++ == 0) {
        workStart_ = lastBreath_ = clock_.elapsed();
    }
    work_.push_back(what);
}

void Desk::leave() {
    work_.pop_back();
    if (--depth_ > 0) {
        return;
    }
    if (std::exchange(shown_, false)) {
        for (const auto& window : windows_) {
            if (window) {
                window->showWork({});
            }
        }
    }
    for (const auto& window : windows_) {
        if (window) {
            window->refreshRows();
        }
    }
    if (closing_) {
        quit();
    }
}

bool Desk::work(const QString& what, const std::function<void()>& job) {
    QString failure;
    bool cancelled = false;
    {
        const Working working(*this, what);
        try {
            job();
        } catch (const HostError& error) {
            failure = QString::fromStdString(error.what());
            cancelled = solution_->life().interrupted();
        }
        if (!solution_->busy() && depth_ == 1) {
            solution_->life().obeyed();
        }
    }
    if (!failure.isEmpty() && !cancelled) {
        fail(failure);
    }
    return failure.isEmpty();
}

bool Desk::change(const QString& what, const std::function<void(Database&)>& job) {
    if (working() || readOnly_) {
        return false;
    }
    Database& database = solution_->records();
    const bool done = work(what, [&] {
        database.begin();
        try {
            undo_.begins(database, what);
            job(database);
            undo_.ends(true);
            database.commit();
        } catch (...) {
            undo_.ends(false);
            database.rollback();
            throw;
        }
        undo_.ended();
    });
    refresh();
    return done;
}

void Desk::undo() {
    if (!working() && undo_.canUndo()) {
        work("Undo", [this] { undo_.undo(solution_->records()); });
        refresh();
    }
}

void Desk::redo() {
    if (!working() && undo_.canRedo()) {
        work("Redo", [this] { undo_.redo(solution_->records()); });
        refresh();
    }
}

void Desk::runScript(const std::string& name, const Solution::Record& record, std::optional<QPoint> click) {
    if (working() || closing_) {
        return;
    }
    machine_->deskInput().setClick(click);
    solution_->run(name, record);
    machine_->deskInput().setClick({});
    scheduleIdle();
}

std::string Desk::scriptNameOf(const std::string& item) {
    std::string name;
    for (std::size_t i = 0; i < item.size(); ++i) {
        if (item[i] != '&') {
            name += item[i];
        } else if (i + 1 < item.size() && item[i + 1] == '&') {
            name += item[i++];
        }
    }
    if (name.ends_with("...")) {
        name.resize(name.size() - 3);
    }
    return name;
}

void Desk::choose(const std::string& item) {
    const std::string plain = scriptNameOf(item);
    runScript(!solution_->hasScript(item) && solution_->hasScript(plain) ? plain : item);
}

void Desk::evaluate(const std::string& text) {
    if (working()) {
        return;
    }
    consoling_ = true;
    solution_->transact("console", [&](lua_State* state) {
        const std::string expression = "return " + text;
        const bool isExpression =
            luaL_loadbufferx(state, expression.data(), expression.size(), "=console", "t") == LUA_OK;
        lua_settop(state, 0);
        Interpreter::compile(state, isExpression ? expression : text, "=console");
        lua_call(state, 0, LUA_MULTRET);
        std::string shown;
        const int count = lua_gettop(state);
        for (int i = 1; i <= count; ++i) {
            std::size_t size = 0;
            const char* const value = luaL_tolstring(state, i, &size);
            shown += (i > 1 ? "\t" : "") + std::string(value, size);
            lua_pop(state, 1);
        }
        if (count > 0) {
            solution_->print(shown + '\n');
        }
    });
    consoling_ = false;
    scheduleIdle();
}

void Desk::cancel() {
    if (working()) {
        solution_->life().interrupt();
        if (resting_ != nullptr) {
            resting_->quit();
        }
    }
}

// A script that runs is asked to stop first; then this comes again.
void Desk::quit() {
    closing_ = true;
    while (QWidget* const dialog = QApplication::activeModalWidget()) {
        dialog->close();
        if (QApplication::activeModalWidget() == dialog) {
            break;
        }
    }
    if (working()) {
        cancel();
        return;
    }
    for (const auto& window : windows_) {
        if (window) {
            window->remember();
        }
    }
    solution_->life().quit(solution_->life().status());
    QCoreApplication::exit();
}

void Desk::bringForward() {
    if (QWidget* const window = machine_->deskWindows().frontWidget()) {
        window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
        window->show();
        window->raise();
        window->activateWindow();
        QApplication::alert(window);
    }
}

void Desk::openTool(QWidget* window) {
    tools_.erase(std::remove_if(tools_.begin(), tools_.end(), [](const auto& other) { return !other; }), tools_.end());
    if (std::find(tools_.begin(), tools_.end(), window) == tools_.end()) {
        tools_.emplace_back(window);
    }
    window->show();
    window->raise();
    window->activateWindow();
}

void Desk::fail(const QString& text) {
    if (closing_) {
        return;
    }
    const qsizetype end = text.indexOf('\n');
    QMessageBox box(QMessageBox::Warning, machine_->deskDialogs().title, {}, QMessageBox::Ok,
                    QApplication::activeModalWidget() != nullptr ? QApplication::activeModalWidget()
                                                                 : machine_->deskWindows().frontWidget());
    box.setObjectName("failure");
    box.setTextFormat(Qt::PlainText);
    // A script's failure: what failed, then why, then where.
    const QString rest = end < 0 ? QString() : text.mid(end + 1);
    const qsizetype trace = rest.indexOf("\nstack traceback:");
    box.setText(end < 0 ? text.left(2000) : text.left(end).left(2000));
    box.setInformativeText((trace < 0 ? rest : rest.left(trace)).left(2000));
    if (trace >= 0) {
        box.setDetailedText(rest.mid(trace + 1));
    }
    box.exec();
}

// Idle.

void Desk::scheduleIdle() {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(solution_->nextIdle() - Life::Clock::now());
    idleTimer_.start(static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1000)));
}

void Desk::idle() {
    if (std::exchange(starting_, false) && solution_->hasScript("Start")) {
        runScript("Start");
    }
    if (working() || closing_) {
        if ((closing_ && !working()) || solution_->life().over()) {
            quit();
        } else {
            idleTimer_.start(100);
        }
        return;
    }
    if (!solution_->life().over() && !solution_->life().interrupted()) {
        const Working working(*this, {});
        idling_ = true;
        solution_->idle();
        idling_ = false;
    }
    if (solution_->life().over() || solution_->life().interrupted()) {
        quit();
        return;
    }
    if (arrivals_) {
        arrivals_->setEnabled(true);
    }
    if (onActivity) {
        onActivity();
    }
    scheduleIdle();
}

// What scripts do.

void Desk::begins(const std::string& script) {
    enter(lineOf(script, 60));
    scriptOpen_ = true;
    undo_.begins(solution_->records(), QString("script \"%1\"").arg(lineOf(script, 40)));
}

void Desk::ends(bool kept) {
    undo_.ends(kept);
}

void Desk::ended() {
    if (!std::exchange(scriptOpen_, false)) {
        return;
    }
    undo_.ended();
    machine_->deskWindows().repaint();
    leave();
    refresh();
}

// Shows changed records: a set that may have new records is found again.
void Desk::refresh() {
    const std::int64_t changes = sqlite3_total_changes64(solution_->records().handle());
    if (std::exchange(changesSeen_, changes) != changes) {
        later(this, [this] {
            for (const auto& window : windows_) {
                if (window) {
                    window->reload();
                }
            }
        });
    }
    for (const auto& window : windows_) {
        if (window) {
            window->updateActions();
        }
    }
    if (onActivity) {
        onActivity();
    }
}

void Desk::breathe() {
    if (depth_ == 0 || breathing_ || !solution_) {
        return;
    }
    const qint64 now = clock_.elapsed();
    if (now - lastBreath_ < kBetweenBreaths) {
        return;
    }
    lastBreath_ = now;
    breathing_ = true;
    undo_.watch();
    showWorkIfLong();
    QCoreApplication::processEvents();
    breathing_ = false;
}

void Desk::showWorkIfLong() {
    if (shown_ || clock_.elapsed() - workStart_ < kUntilShown) {
        return;
    }
    shown_ = true;
    for (const auto& window : windows_) {
        if (window) {
            window->showWork(work_.back());
        }
    }
}

void Desk::rest(Life::Clock::time_point until) {
    restFor(static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(until - Life::Clock::now()).count() +
                             1));
}

void Desk::restFor(int milliseconds) {
    QEventLoop loop;
    QEventLoop* const before = std::exchange(resting_, &loop);
    QTimer end;
    end.setSingleShot(true);
    connect(&end, &QTimer::timeout, &loop, &QEventLoop::quit);
    end.start(std::max(milliseconds, 0));
    QTimer look;
    connect(&look, &QTimer::timeout, this, [this] { showWorkIfLong(); });
    if (depth_ > 0) {
        look.start(100);
    }
    const bool breathing = std::exchange(breathing_, true);
    ++depth_;  // also where the plug-in waits outside a script
    work_.push_back(work_.empty() ? QString() : work_.back());
    loop.exec();
    work_.pop_back();
    --depth_;
    breathing_ = breathing;
    resting_ = before;
    breathe();
}

void Desk::prints(std::string_view text) {
    const QString shown = textOf(text);
    printed_ += shown;
    if (printed_.size() > kPrintedKept) {
        printed_ = printed_.right(kPrintedKept / 2);
    }
    for (const auto& window : windows_) {
        if (window && !consoling_) {
            window->showPrinted(shown);
        }
    }
    if (onPrint) {
        onPrint(shown);
    }
}

void Desk::called(std::string_view function, std::string_view parameter, const std::string& answer) {
    messages_.called(function, parameter, answer);
}

// What fails again and again without the user's doing, such as a script that every message asks for, is told once.
void Desk::fails(const std::string& text) {
    const QString failure = QString::fromStdString(platform::utf8Of(text));
    if (idling_ && failure == lastIdleFailure_) {
        prints("quil: " + text + '\n');
        return;
    }
    lastIdleFailure_ = idling_ ? failure : QString();
    fail(failure);
}

// Input of the user while something works.
bool Desk::eventFilter(QObject* object, QEvent* event) {
    if (depth_ == 0 || !isInput(event->type()) || QApplication::activeModalWidget() != nullptr ||
        QApplication::activePopupWidget() != nullptr) {
        return false;
    }
    if (event->type() != QEvent::Shortcut && qobject_cast<QWidget*>(object) == nullptr) {
        return false;  // on its way to a widget
    }
    if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
        cancel();
        return true;
    }
    return object->objectName() != "cancel";
}

}  // namespace host::desktop
