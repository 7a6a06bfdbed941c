// The project as its users meet it: the wrapper `quil` and the commands that README.md shows.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using support::Outcome;
using support::readFile;
using support::run;
using support::RunOptions;
using support::writeFile;

const fs::path kSource = QUIL_SOURCE_DIR;

// A small project that the wrapper stands in: its program prints where it was started and with what.
class WrapperTest : public testing::Test {
  protected:
    WrapperTest() {
        for (const char* folder : {"tools", "src", "resources", "cmake", "elsewhere"}) {
            fs::create_directories(root_ / folder);
        }
        for (const char* file : {"quil", "tools/setup.sh"}) {
            fs::copy_file(kSource / file, root_ / file);
        }
        writeFile(root_ / "tools/packages.txt", "run  bash\ntest no-such-package-at-all\n");
        writeFile(
            root_ / "CMakeLists.txt",
            "cmake_minimum_required(VERSION 3.25)\nproject(small LANGUAGES CXX)\nadd_executable(quil src/main.cpp)\n"
            "set_target_properties(quil PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})\n");
        writeFile(root_ / "CMakePresets.json",
                  R"({"version": 6, "configurePresets": [{"name": "release", "generator": "Ninja",)"
                  R"( "binaryDir": "${sourceDir}/build/${presetName}"}]})");
        writeProgram("one");
    }

    void writeProgram(const std::string& word) {
        writeFile(root_ / "src/main.cpp",
                  "#include <unistd.h>\n#include <cstdio>\nint main(int n, char** a) { char b[4096]; std::printf(\"" +
                      word + " %s %s\\n\", getcwd(b, sizeof b), n > 1 ? a[1] : \"\"); return 7; }\n");
    }
    Outcome start(const RunOptions& options = {}) { return run({(root_ / "quil").string(), "an argument"}, options); }

    support::TemporaryFolder folder_;
    fs::path root_ = fs::canonical(folder_.path()) / "a folder with spaces";
};

TEST_F(WrapperTest, BuildsWhatChangedAndRunsItWhereTheCallerStands) {
    const fs::path elsewhere = root_ / "elsewhere";
    const fs::path link = elsewhere / "a link";
    fs::create_symlink("../quil", link);
    const auto startThere = [&](const std::string& word, const char* errors) {
        const Outcome outcome = run({link.string(), "an argument"}, {.folder = elsewhere.string()});
        EXPECT_EQ(outcome.status, 7);
        EXPECT_EQ(outcome.output, word + " " + elsewhere.string() + " an argument\n");
        EXPECT_EQ(outcome.errors, errors);
    };
    startThere("one", "quil: building ...\n");
    startThere("one", "");  // there was nothing to do
    writeProgram("two");
    startThere("two", "quil: building ...\n");
    writeFile(root_ / "src/main.cpp", "this is no program\n");
    for (int i = 0; i < 2; ++i) {  // a failed build does not count as done
        const Outcome outcome = start();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_NE(outcome.errors.find("main.cpp:1:1: error"), std::string::npos) << outcome.errors;
        EXPECT_NE(outcome.errors.find("quil: the build failed"), std::string::npos) << outcome.errors;
    }
    writeProgram("mended");
    EXPECT_EQ(start().status, 7);
    const fs::path copy = folder_.path() / "copy";
    fs::rename(root_, copy);
    const Outcome outcome = run({(copy / "quil").string()});
    EXPECT_EQ(outcome.status, 7) << "after the folder was moved: " << outcome.errors;
}

TEST_F(WrapperTest, BuildsOnceWhenStartedTwiceAtATime) {
    Outcome outcomes[2];
    std::thread other([&] { outcomes[1] = start(); });
    outcomes[0] = start();
    other.join();
    for (const Outcome& outcome : outcomes) {
        EXPECT_EQ(outcome.status, 7) << outcome.errors;
        EXPECT_EQ(outcome.output.substr(0, 3), "one");
    }
    EXPECT_EQ(outcomes[0].errors + outcomes[1].errors, "quil: building ...\n");
}

TEST_F(WrapperTest, TellsWhichPackagesAreMissingWhenTheyCannotBeInstalled) {
    const fs::path tools = folder_.path() / "bin";
    fs::create_directories(tools);
    // What a machine looks like that has none of the packages, no network and no way to become root.
    for (const char* tool : {"dpkg-query", "apt-get", "sudo"}) {
        writeFile(tools / tool, "#!/bin/sh\nexit 100\n");
        fs::permissions(tools / tool, fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
    }
    const char* const path = std::getenv("PATH");
    const Outcome outcome =
        start({.environment = {{"PATH", tools.string() + ":" + (path == nullptr ? "/usr/bin:/bin" : path)}}});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("apt-get update && apt-get install -y --no-install-recommends bash\n"),
              std::string::npos)
        << outcome.errors;
    EXPECT_FALSE(fs::exists(root_ / "build/release/quil"));
}

// The commands of the blocks that README.md marks "sh" and that run the program; a line may go on in the next one.
std::vector<std::string> commandsOfReadme() {
    std::vector<std::string> commands;
    std::istringstream readme(readFile(kSource / "README.md"));
    bool inside = false;
    for (std::string line; std::getline(readme, line);) {
        inside = line.starts_with("```") ? line == "```sh" : inside;
        for (std::string more; line.ends_with('\\') && std::getline(readme, more);) {
            line.replace(line.size() - 1, 1, more);
        }
        if (inside && line.find("./quil") != std::string::npos) {
            commands.push_back(line);
        }
    }
    return commands;
}

TEST(ProjectTest, EveryCommandOfTheReadmeWorks) {
    const support::TemporaryFolder folder;
    // The built program stands in for the wrapper, which would build what is being tested.
    fs::create_symlink(fs::path(QUIL_BINARY_DIR) / "quil", folder.path() / "quil");
    fs::copy(kSource / "examples", folder.path() / "examples", fs::copy_options::recursive);
    const std::vector<std::string> commands = commandsOfReadme();
    ASSERT_GE(commands.size(), 5U);
    for (const std::string& command : commands) {
        const Outcome outcome =
            run({"bash", "-c", "set -e -o pipefail; " + command}, {.folder = folder.path().string()});
        EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.errors;
        EXPECT_FALSE(outcome.output.empty()) << command;
    }
}

}  // namespace
