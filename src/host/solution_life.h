// How long a solution's host lives: until a signal asks it to end, its time is over, or a script quits. Also its sleep.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace host {

class Life {
  public:
    using Clock = std::chrono::steady_clock;

    // Catches SIGINT and SIGTERM until this goes. A second signal before the first was obeyed has its usual effect, so
    // that nothing can hang on. `seconds`: how long at most. `interruptsOnly`: SIGINT interrupts a script and no more.
    Life(std::optional<double> seconds, bool interruptsOnly);
    ~Life();
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    // Ends for another reason, with this exit status.
    void quit(int status);
    bool hasQuit() const { return quit_; }
    int status() const { return status_; }

    // Whether the host has to end.
    bool over() const;
    // Whether what runs has to end; `why` says it for people.
    bool interrupted(std::string_view* why = nullptr) const;
    // Interrupts the script that runs, as SIGINT does.
    void interrupt();
    // The script that was interrupted has ended.
    void obeyed();

    // Sleeps until then, or until a signal comes, time is over or `input` (unless -1) can be read, which gives true.
    bool sleepUntil(Clock::time_point until, int input = -1) const;

  private:
    Clock::time_point end_ = Clock::time_point::max();
    bool interruptsOnly_;
    bool quit_ = false;
    int status_ = 0;
};

}  // namespace host
