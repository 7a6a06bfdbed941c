#include "platform/linux/launch.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/linux/bus_names.h"
#include "platform/linux/errors.h"

namespace platform {

static bool isExecutable(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

std::string executableOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return path;
    }
    const std::string name = std::filesystem::path(path).stem().string();
    for (const char* place : {"/Contents/Linux/", "/Contents/MacOS/", "/"}) {
        if (std::string executable = path + place + name; isExecutable(executable)) {
            return executable;
        }
    }
    return {};
}

// In the child: only what may be done between fork and exec.
[[noreturn]] static void becomeApplication(const char* executable, int problem) {
    setsid();
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    for (int number = 1; number < 32; ++number) {
        sigaction(number, &usual, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int descriptor = 0; nothing >= 0 && descriptor < 3; ++descriptor) {
        dup2(nothing, descriptor);
    }
    close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    if (chdir("/") == 0) {
        execl(executable, executable, static_cast<char*>(nullptr));
    }
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(problem, &error, sizeof error);
    _exit(127);
}

Status startDetached(const std::string& executable) {
    int problem[2] = {-1, -1};
    if (pipe2(problem, O_CLOEXEC) != 0) {
        return statusOf(errno);
    }
    const pid_t child = fork();
    if (child == 0) {
        // The application is the child of a child that ends: nobody has to wait for it.
        if (const pid_t application = fork(); application != 0) {
            const int error = application < 0 ? errno : 0;
            if (error != 0) {
                [[maybe_unused]] const ssize_t written = write(problem[1], &error, sizeof error);
            }
            _exit(0);
        }
        becomeApplication(executable.c_str(), problem[1]);
    }
    const int forkError = child < 0 ? errno : 0;
    close(problem[1]);
    int error = 0;
    while (child > 0 && read(problem[0], &error, sizeof error) < 0 && errno == EINTR) {
    }
    close(problem[0]);
    while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return statusOf(child < 0 ? forkError : error);
}

// Name and Exec of a service file.
static bool readService(const std::string& path, std::string& name, std::string& program) {
    constexpr std::size_t longest = 4096;
    std::ifstream file(path);
    std::string line;
    bool inService = false;
    while (std::getline(file, line) && line.size() < longest) {
        if (line.starts_with('[')) {
            inService = line.starts_with("[D-BUS Service]");
        } else if (inService && line.starts_with("Name=")) {
            name = line.substr(5);
        } else if (inService && line.starts_with("Exec=")) {
            program = line.substr(5, line.find(' ') == std::string::npos ? line.npos : line.find(' ') - 5);
        }
    }
    OSType signature = 0;
    return signatureOfName(name, signature);
}

static std::vector<std::string> serviceFolders() {
    std::vector<std::string> folders;
    const auto value = [](const char* variable, const std::string& otherwise) {
        const char* text = std::getenv(variable);
        return text == nullptr || *text == 0 ? otherwise : std::string(text);
    };
    std::string places = value("XDG_DATA_HOME", value("HOME", "") + "/.local/share") + ":" +
                         value("XDG_DATA_DIRS", "/usr/local/share:/usr/share");
    for (std::size_t at = 0; at <= places.size();) {
        const std::size_t end = std::min(places.find(':', at), places.size());
        folders.push_back(places.substr(at, end - at) + "/dbus-1/services");
        at = end + 1;
    }
    return folders;
}

std::string serviceOf(const std::string& path) {
    std::string name;
    std::string program;
    if (path.ends_with(".service")) {
        return readService(path, name, program) ? name : std::string();
    }
    std::error_code error;
    for (const std::string& folder : serviceFolders()) {
        for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
            // Only files that are named after what they declare, as the bus wants it.
            if (entry.path().filename().string().starts_with(partnerPrefix) &&
                readService(entry.path().string(), name, program) &&
                std::filesystem::equivalent(program, path, error)) {
                return name;
            }
        }
    }
    return {};
}

}  // namespace platform
