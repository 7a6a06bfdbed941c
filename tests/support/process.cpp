#include "support/process.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace support {

namespace {

// An unnamed file for a standard stream.
int streamFile(const std::string& text = {}) {
    const int fd = ::memfd_create("stream", MFD_CLOEXEC);
    if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        ::lseek(fd, 0, SEEK_SET) != 0) {
        throw std::system_error(errno, std::generic_category(), "memfd_create");
    }
    return fd;
}

// Its content; closes it.
std::string takeText(int fd) {
    std::string text = readFile("/proc/self/fd/" + std::to_string(fd));
    ::close(fd);
    return text;
}

[[noreturn]] void runChild(char* const* arguments, const RunOptions& options, const int (&streams)[3]) {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::dup2(streams[stream], stream);
    }
    if (options.outputFile) {
        ::dup2(::open(options.outputFile->c_str(), O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    }
    ::unsetenv("QUIL_PLUGIN");
    ::unsetenv("QUIL_VOLUMES");
    for (const auto& [name, value] : options.environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    if (options.withoutOverride) {
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
    }
    if (options.folder.empty() || ::chdir(options.folder.c_str()) == 0) {
        ::execvp(arguments[0], arguments);
    }
    ::_exit(127);
}

}  // namespace

Outcome run(const std::vector<std::string>& command, const RunOptions& options) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const int streams[] = {streamFile(options.input), streamFile(), streamFile()};
    const pid_t child = ::fork();
    if (child == 0) {
        runChild(arguments.data(), options, streams);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), command.front());
        }
    }
    ::close(streams[0]);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), takeText(streams[1]), takeText(streams[2])};
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
