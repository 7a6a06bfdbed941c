// Running a program from a test, and folders that tests write into.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

struct Outcome {
    int status = -1;  // exit status; minus the signal's number when a signal ended it
    std::string output;
    std::string errors;
};

struct RunOptions {
    std::string input{};                                             // standard input
    std::vector<std::pair<std::string, std::string>> environment{};  // set beside what the test itself has
    std::string folder{};                                            // working folder; empty: the test's own
    std::optional<std::string> outputFile{};                         // standard output goes there instead
    bool withoutOverride = false;                                    // even root has to respect file permissions
};

// Runs a program until it ends. The variables QUIL_PLUGIN and QUIL_VOLUMES are removed before `environment` is set.
Outcome run(const std::vector<std::string>& command, const RunOptions& options = {});

// The built `quil` with these arguments.
Outcome quil(std::vector<std::string> arguments, const RunOptions& options = {});

// A new empty folder, removed at the end with everything in it.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string file(std::string_view name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view text);

}  // namespace support
