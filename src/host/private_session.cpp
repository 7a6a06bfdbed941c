#include "host/private_session.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "host/signal_folder.h"

namespace host {

namespace {

constexpr char kVolume[] = "Work";

platform::LinuxOptions optionsFor(const std::string& folder) {
    platform::LinuxOptions options;
    options.volumes = {{kVolume, folder.empty() ? "/" : folder}};
    options.application = std::string(kVolume) + ":quil";
    return options;
}

double now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

PrivateSession::Folder::Folder(bool wanted) {
    if (!wanted) {
        return;
    }
    const char* parent = std::getenv("TMPDIR");
    const std::string prefix = std::string(parent == nullptr || *parent == 0 ? "/tmp" : parent) + "/quil-";
    path = makeSignalFolder(prefix);
    if (path.empty()) {
        throw HostError(prefix + "XXXXXX: cannot make a temporary folder: " + std::strerror(errno) +
                        "; name another place in the environment variable TMPDIR");
    }
}

PrivateSession::Folder::~Folder() {
    if (!path.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
        releaseSignalFolder();
    }
}

PrivateSession::PrivateSession(const Context& context, bool withFolder, const MakeFiles& makeFiles)
    : folder_(withFolder),
      files_(makeFiles(optionsFor(folder_.path))),
      resources_(platform::makeBundleResources()),
      machine_(*files_, *resources_, {optionsFor(folder_.path).application}),
      installed_(machine_),
      plugin_(bundleOf(context)) {
    if (const std::int32_t result = plugin_.initialize(); result <= 0) {
        throw HostError("the plug-in \"" + plugin_.bundle().directory + "\" could not start (result " +
                        std::to_string(result) + ")");
    }
}

PrivateSession::~PrivateSession() = default;

void PrivateSession::check(fmx::errcode code, std::string_view name) {
    if (code != fmx::kNoError) {
        throw HostError("the plug-in ended " + std::string(name) + " with the error code " + std::to_string(code));
    }
}

std::string PrivateSession::call(std::string_view name, std::string_view parameter) {
    Answer answer = plugin_.external(name, parameter);
    check(answer.code, name);
    return std::move(answer.text);
}

void PrivateSession::tell(std::string_view name, std::string_view parameter) {
    check(plugin_.tell(name, parameter), name);
}

std::string PrivateSession::callChecked(std::string_view name, std::string_view parameter) {
    std::string answer = call(name, parameter);
    if (const std::string message = alerts(); !message.empty()) {
        throw HostError(std::string(name) + " failed: " + message);
    }
    return answer;
}

std::string PrivateSession::alerts() {
    std::string line;
    for (const platform::AlertEffect& alert : machine_.takeEffects().alerts) {
        line += line.empty() ? "" : "; ";
        bool space = false;
        for (const char c : alert.message) {
            if (c == '\r' || c == '\n' || c == ' ') {
                space = true;
            } else {
                line += space ? " " : "";
                line += c;
                space = false;
            }
        }
    }
    return line;
}

std::string readInput(const std::string& path) {
    const bool standard = path == "-";
    const int file = standard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const auto fail = [&](const std::string& why) {
        if (!standard && file >= 0) {
            ::close(file);
        }
        throw HostError((standard ? std::string("standard input") : path) + ": " + why);
    };
    if (file < 0) {
        fail(std::string("cannot be read: ") + std::strerror(errno));
    }
    struct stat status {};
    const bool regular = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    const std::size_t size = regular ? static_cast<std::size_t>(status.st_size) : 0;
    constexpr std::size_t kBlock = 1 << 18;
    constexpr std::size_t kAtOnce = 1 << 24;
    std::string text;
    std::size_t used = 0;
    try {
        ProgressLine progress(standard ? "reading standard input" : "reading");
        const bool typed = ::isatty(file) == 1;
        // One byte more than a regular file has, so that its end is met without growing.
        text.resize(regular ? size + 1 : kBlock);
        for (;;) {
            if (used == text.size()) {
                text.resize(text.size() * 2);
            }
            const ssize_t count = ::read(file, text.data() + used, std::min(text.size() - used, kAtOnce));
            if (count == 0) {
                break;
            }
            if (count > 0) {
                used += static_cast<std::size_t>(count);
                if (!typed) {
                    progress.showNow(used, size);
                }
            } else if (errno != EINTR) {
                fail(std::string("cannot be read: ") + std::strerror(errno));
            }
        }
        text.resize(used);
    } catch (const HostError&) {
        throw;
    } catch (const std::exception&) {  // bad_alloc or, where no text could be so long, length_error
        fail("too large for the memory (" + std::to_string(std::max(size, used) >> 20) + " MiB)");
    }
    if (!standard) {
        ::close(file);
    }
    return text;
}

ProgressLine::ProgressLine(std::string what, bool ofOutput)
    : what_(std::move(what)),
      terminal_(::isatty(STDERR_FILENO) == 1 && !(ofOutput && ::isatty(STDOUT_FILENO) == 1)),
      start_(now()),
      last_(start_) {}

ProgressLine::~ProgressLine() {
    if (drawn_) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
    }
}

void ProgressLine::draw(std::size_t done, std::size_t total) {
    constexpr double kBeforeFirst = 1.0;
    constexpr double kBetween = 0.1;
    const double time = now();
    if (time - start_ < kBeforeFirst || time - last_ < kBetween) {
        return;
    }
    last_ = time;
    put(total == 0 ? "" : ": " + std::to_string(std::min(done, total) * 100 / total) + " %");
}

void ProgressLine::showAtOnce() {
    if (terminal_) {
        put("");
    }
}

void ProgressLine::put(const std::string& amount) {
    drawn_ = true;
    std::fprintf(stderr, "\r%s%s\033[K", what_.c_str(), amount.c_str());
    std::fflush(stderr);
}

}  // namespace host
