#include "host/solution_life.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <string>

#include "host/plugin.h"

namespace host {

namespace {

// State of the signal handlers: there is one host in a process.
volatile std::sig_atomic_t sInterrupted = 0;  // SIGINT came
volatile std::sig_atomic_t sTerminated = 0;   // SIGTERM came
int sWake = -1;                               // readable from then on, so that no sleep misses it
struct sigaction sBeforeInterrupt;            // what to put back
struct sigaction sBeforeTerminate;

void onSignal(int number) {
    const int error = errno;
    volatile std::sig_atomic_t& flag = number == SIGINT ? sInterrupted : sTerminated;
    if (flag != 0) {
        ::signal(number, SIG_DFL);
        ::raise(number);
    }
    flag = 1;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(sWake, &one, sizeof one);
    errno = error;
}

}  // namespace

Life::Life(std::optional<double> seconds, bool interruptsOnly) : interruptsOnly_(interruptsOnly) {
    if (seconds) {
        constexpr double kLongest = 1e9;  // beyond it the clock would overflow
        end_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                  std::chrono::duration<double>(std::clamp(*seconds, 0.0, kLongest)));
    }
    sInterrupted = 0;
    sTerminated = 0;
    sWake = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (sWake < 0) {
        throw HostError("the system gives no event descriptor, so signals cannot be waited for");
    }
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &sBeforeInterrupt);
    ::sigaction(SIGTERM, &action, &sBeforeTerminate);
}

Life::~Life() {
    ::sigaction(SIGINT, &sBeforeInterrupt, nullptr);
    ::sigaction(SIGTERM, &sBeforeTerminate, nullptr);
    ::close(sWake);
    sWake = -1;
}

void Life::quit(int status) {
    quit_ = true;
    status_ = status;
}

void Life::interrupt() {
    sInterrupted = 1;
}

bool Life::over() const {
    return quit_ || sTerminated != 0 || (sInterrupted != 0 && !interruptsOnly_) || Clock::now() >= end_;
}

bool Life::interrupted(std::string_view* why) const {
    std::string_view reason;
    if (quit_) {
        reason = "the script quits";
    } else if (sInterrupted != 0 || sTerminated != 0) {
        reason = "interrupted";
    } else if (Clock::now() >= end_) {
        reason = "interrupted: the host's time is over";
    }
    if (why != nullptr) {
        *why = reason;
    }
    return !reason.empty();
}

void Life::obeyed() {
    if (interruptsOnly_) {
        sInterrupted = 0;
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t taken = ::read(sWake, &count, sizeof count);
    }
}

bool Life::sleepUntil(Clock::time_point until, int input) const {
    until = std::min(until, end_);
    pollfd watched[] = {{sWake, POLLIN, 0}, {input, POLLIN, 0}};  // poll passes over a descriptor of -1
    for (;;) {
        const auto left = std::max(until - Clock::now(), Clock::duration::zero());
        const auto whole = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec time{static_cast<time_t>(whole.count()),
                            static_cast<long>(std::chrono::nanoseconds(left - whole).count())};
        const int count = ::ppoll(watched, 2, &time, nullptr);
        if (count >= 0 || errno != EINTR) {
            return count > 0 && watched[1].revents != 0;
        }
        if (sInterrupted != 0 || sTerminated != 0) {
            return false;
        }
    }
}

}  // namespace host
