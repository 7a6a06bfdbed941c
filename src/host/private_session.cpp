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
#include "platform/text.h"

namespace host {

namespace {

constexpr char kVolume[] = "Work";

platform::LinuxOptions optionsFor(const std::string& folder) {
    platform::LinuxOptions options;
    options.volumes = {{kVolume, folder.empty() ? "/" : folder}};
    options.application = std::string(kVolume) + ":quil";
    return options;
}

// Most lists are; a loop without an exit is one that the processor runs many bytes at a time.
bool isAscii(std::string_view text) {
    unsigned char bits = 0;
    for (const char c : text) {
        bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(c));
    }
    return bits < 0x80;
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

std::string PrivateSession::call(std::string_view name, std::string_view parameter) {
    Answer answer = plugin_.external(name, parameter);
    if (answer.code != fmx::kNoError) {
        throw HostError("the plug-in ended " + std::string(name) + " with the error code " +
                        std::to_string(answer.code));
    }
    return std::move(answer.text);
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

IDList readIDs(const std::string& path, std::size_t longest) {
    IDList list{path == "-" ? "standard input" : path, readInput(path), 0};
    const bool plain =
        list.content.find('\0') == std::string::npos && (isAscii(list.content) || platform::isUtf8(list.content));
    list.forEach([&](std::string_view id, std::size_t line) {
        const auto refuse = [&](const std::string& why) {
            throw HostError(list.name + ":" + std::to_string(line) + ": " + why);
        };
        if (id.size() > longest) {
            refuse("the ID has " + std::to_string(id.size()) + " bytes; at most " + std::to_string(longest) +
                   " are kept");
        }
        if (!plain && id.find('\0') != std::string_view::npos) {
            refuse("the ID has a NUL byte; is this a text file?");
        }
        if (!plain && !platform::isUtf8(id)) {
            refuse("the ID is not UTF-8; convert the file, for example with iconv -f MACINTOSH -t UTF-8");
        }
        ++list.count;
    });
    return list;
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
