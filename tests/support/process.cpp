#include "support/process.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace support {

namespace {

struct Pipe {
    std::array<int, 2> ends{-1, -1};
    Pipe() {
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
    }
    ~Pipe() {
        close(0);
        close(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void close(std::size_t end) {
        if (ends[end] >= 0) {
            ::close(ends[end]);
            ends[end] = -1;
        }
    }
};

[[noreturn]] void runChild(char* const* arguments, const RunOptions& options, const Pipe& in, const Pipe& out,
                           const Pipe& errors) {
    const int output = options.outputFile ? ::open(options.outputFile->c_str(), O_WRONLY | O_CLOEXEC) : out.ends[1];
    ::dup2(in.ends[0], STDIN_FILENO);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(errors.ends[1], STDERR_FILENO);
    ::unsetenv("QUIL_PLUGIN");
    ::unsetenv("QUIL_VOLUMES");
    for (const auto& [name, value] : options.environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    if (options.withoutOverride) {
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
    }
    std::signal(SIGPIPE, SIG_DFL);
    if (options.folder.empty() || ::chdir(options.folder.c_str()) == 0) {
        ::execvp(arguments[0], arguments);
    }
    ::_exit(127);
}

// Feeds the program and collects what it writes until it has closed both outputs.
void converse(const std::string& text, Pipe& in, Pipe& out, Pipe& errors, Outcome& outcome) {
    std::size_t written = 0;
    std::array<pollfd, 3> places{{{in.ends[1], POLLOUT, 0}, {out.ends[0], POLLIN, 0}, {errors.ends[0], POLLIN, 0}}};
    if (text.empty()) {
        in.close(1);
        places[0].fd = -1;
    }
    while (places[1].fd >= 0 || places[2].fd >= 0) {
        if (::poll(places.data(), places.size(), -1) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (places[0].fd >= 0 && places[0].revents != 0) {
            const ssize_t count = ::write(in.ends[1], text.data() + written, text.size() - written);
            written += count > 0 ? static_cast<std::size_t>(count) : 0;
            if (written == text.size() || (count < 0 && errno != EINTR && errno != EAGAIN)) {
                in.close(1);
                places[0].fd = -1;
            }
        }
        for (const std::size_t i : {1U, 2U}) {
            if (places[i].fd >= 0 && places[i].revents != 0) {
                std::array<char, 65536> buffer;
                const ssize_t count = ::read(places[i].fd, buffer.data(), buffer.size());
                if (count > 0) {
                    (i == 1 ? outcome.output : outcome.errors).append(buffer.data(), static_cast<std::size_t>(count));
                } else if (count == 0 || errno != EINTR) {
                    places[i].fd = -1;
                }
            }
        }
    }
}

}  // namespace

Outcome run(const std::vector<std::string>& command, const RunOptions& options) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    Pipe in;
    Pipe out;
    Pipe errors;
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        runChild(arguments.data(), options, in, out, errors);
    }
    in.close(0);
    out.close(1);
    errors.close(1);
    ::fcntl(in.ends[1], F_SETFL, O_NONBLOCK);
    Outcome outcome;
    converse(options.input, in, out, errors, outcome);
    in.close(1);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    std::signal(SIGPIPE, previous);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return outcome;
}

Outcome quil(std::vector<std::string> arguments, const RunOptions& options) {
    arguments.insert(arguments.begin(), QUIL_BINARY_DIR "/quil");
    return run(arguments, options);
}

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "quil-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream stream(path, std::ios::binary);
    if (!stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

}  // namespace support
