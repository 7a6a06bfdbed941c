// A solution on the desktop: its windows, the event loop around it, and what keeps the windows alive while it works.
//
// Scripts, the plug-in and the database run on the main thread. While they do, the user's input is held back except for
// "Cancel", and events are let through now and then so that windows repaint.
#pragma once

#include <QElapsedTimer>
#include <QEventLoop>
#include <QObject>
#include <QPointer>
#include <QSocketNotifier>
#include <QString>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/desk_command.h"
#include "host/desktop/machine.h"
#include "host/desktop/message_log.h"
#include "host/desktop/undo.h"
#include "host/solution.h"

namespace host::desktop {

class SolutionWindow;

// How the windows look: as the desktop does, or light or dark.
enum class Appearance { system, light, dark };
void setAppearance(Appearance appearance);
Appearance appearance();

class Desk : public QObject, public SolutionObserver {
  public:
    // Reads the solution, starts the plug-in and makes the windows. Throws HostError.
    Desk(Context& context, const SolutionOptions& options);
    ~Desk() override;

    // Runs the script "Start" and lives until the user ends it. Returns the exit status.
    int run();

    Solution& solution() { return *solution_; }
    DeskMachine& machine() { return *machine_; }
    Context& context() { return context_; }
    UndoLog& undoLog() { return undo_; }
    const MessageLog& messageLog() const { return messages_; }
    bool readOnly() const { return readOnly_; }
    const std::vector<QPointer<SolutionWindow>>& windows() const { return windows_; }
    // Whether a script, a statement or the plug-in is at work.
    bool working() const { return depth_ > 0; }

    // Does something that can take long, with "Cancel". False when it failed, which the user was told, or was
    // cancelled.
    bool work(const QString& what, const std::function<void()>& job);
    // The same for a change of records, in a transaction that can be undone.
    bool change(const QString& what, const std::function<void(Database&)>& job);
    void runScript(const std::string& name, const Solution::Record& record = {}, std::optional<QPoint> click = {});
    // Runs a menu's item: the script that has its name.
    void choose(const std::string& item);
    // Runs what was typed in the console: Lua, or SQL behind ".sql". What it answers is printed.
    void evaluate(const std::string& text);
    void undo();
    void redo();
    void cancel();
    void quit();
    void idleNow() { idleTimer_.start(0); }
    void bringForward();
    // One clear dialog: what failed in the first line, the rest as details.
    void fail(const QString& text);

    // The name of a menu's item as a script has it: without '&' and a closing "...".
    static std::string scriptNameOf(const std::string& item);
    const QString& printed() const { return printed_; }

    std::function<void(const QString&)> onPrint;
    std::function<void()> onActivity;  // a script or an idle call ended
    void openTool(QWidget* window);    // shows a window that goes with the desk

    // SolutionObserver
    void begins(const std::string& script) override;
    void ends(bool kept) override;
    void ended() override;
    void breathe() override;
    void rest(Life::Clock::time_point until) override;
    void prints(std::string_view text) override;
    void called(std::string_view function, std::string_view parameter, const std::string& answer) override;
    void fails(const std::string& text) override;

    bool eventFilter(QObject* object, QEvent* event) override;

  private:
    // Keeps the windows' input back while it lives.
    class Working;

    void enter(const QString& what);
    void leave();
    void idle();
    void scheduleIdle();
    void refresh();
    void restFor(int milliseconds);
    void showWorkIfLong();
    DeskWindows::Shown show(platform::WindowRef window);
    void completeMenus();

    Context& context_;
    bool readOnly_;
    DeskMachine* machine_ = nullptr;  // the session's
    std::unique_ptr<Solution> solution_;
    UndoLog undo_;
    MessageLog messages_;
    std::vector<QPointer<SolutionWindow>> windows_;
    std::vector<QPointer<QWidget>> tools_;
    QTimer idleTimer_;
    std::unique_ptr<QSocketNotifier> arrivals_;
    QElapsedTimer clock_;
    int depth_ = 0;
    bool scriptOpen_ = false;
    bool breathing_ = false;
    bool idling_ = false;
    bool starting_ = false;  // the script "Start" is to run
    QString lastIdleFailure_;
    bool closing_ = false;
    bool menusStale_ = false;
    bool consoling_ = false;  // what is printed is an answer to the console
    bool shown_ = false;      // what works is shown, with "Cancel"
    qint64 workStart_ = 0;
    qint64 lastBreath_ = 0;
    std::vector<QString> work_;      // what is at work, outermost first
    QEventLoop* resting_ = nullptr;  // the innermost one
    std::int64_t changesSeen_ = 0;
    QString printed_;  // the latest, for the console
};

}  // namespace host::desktop
