// quil as it is installed: the Debian package, its pages and completions, what it tells about itself, and its model
// against an independent root finder.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using support::Outcome;
using support::quil;
using support::readFile;
using support::run;
using support::writeFile;

const fs::path kSource = QUIL_SOURCE_DIR;
const fs::path kBuild = QUIL_BINARY_DIR;

TEST(Model, FindsTheRootsOfThePlumeEquation) {
    const Outcome outcome =
        run({"python3", (kSource / "examples/model/check.py").string(), (kBuild / "quil").string()});
    EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_NE(readFile(kSource / "docs/model.md").find(line), std::string::npos)
            << "docs/model.md does not tell: " << line;
    }
}

TEST(Doctor, TellsWhyAPluginDoesNotLoadAndNothingPrivate) {
    const support::TemporaryFolder folder;
    const Outcome good = quil({"doctor"}, {.environment = {{"HOME", kBuild.string()}}});
    EXPECT_EQ(good.status, 0) << good.errors;
    EXPECT_NE(good.output.find("bundle              ~/QUIL.fmplugin (beside the program)"), std::string::npos)
        << good.output;
    EXPECT_NE(good.output.find("124 script functions"), std::string::npos);
    EXPECT_EQ(good.output.find(kBuild.string() + "/"), std::string::npos) << good.output;
    const Outcome missing = quil({"doctor", "--plugin", folder.file("no.fmplugin"), "--volume", "A=/"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.output.find("loads               no: "), std::string::npos) << missing.output;
    EXPECT_NE(missing.output.find("  A                   /"), std::string::npos) << missing.output;
    // A library that is there but lacks the entry point.
    fs::create_directories(folder.path() / "X.fmplugin/Contents/Linux");
    fs::create_directories(folder.path() / "X.fmplugin/Contents/Resources");
    fs::copy_file(kBuild / "tests/no_plugin.so", folder.path() / "X.fmplugin/Contents/Linux/X.so");
    EXPECT_NE(quil({"doctor", "--plugin", folder.file("X.fmplugin")}).output.find("no entry point"), std::string::npos);

    const auto version = nlohmann::json::parse(quil({"--version", "--json"}).output);
    EXPECT_EQ(version["plugin"]["script-functions"], 124);
    EXPECT_TRUE(version["parts"].contains("desktop"));
    EXPECT_EQ(quil({"--version", "--json", "--plugin", "/none"}).status, 1);
    EXPECT_EQ(quil({"--json"}).status, 2);
}

TEST(Completions, OfferWhatTheCommandLineTakes) {
    const fs::path help = kBuild / "help";
    const auto complete = [&help](const std::string& words) {
        return run({"bash", "-c",
                    "source '" + (help / "quil.bash").string() + "'; COMP_WORDS=(" + words +
                        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _quil; printf '%s\\n' \"${COMPREPLY[@]}\""})
            .output;
    };
    EXPECT_EQ(complete("quil scr"), "screen\n");
    EXPECT_EQ(complete("quil screen --stab"), "--stability\n");
    EXPECT_EQ(complete("quil screen --terrain u"), "urban\n");
    EXPECT_EQ(complete("'" + (kBuild / "quil").string() + "' help GLN1InitI"), "GLN1InitIAC\n");
    for (const auto& page : fs::directory_iterator(help)) {
        if (page.path().extension() == ".1") {
            const Outcome shown = run({"bash", "-c", "man --warnings -l '" + page.path().string() + "' >/dev/null"});
            EXPECT_EQ(shown.status, 0) << page.path();
            EXPECT_EQ(shown.errors, "") << page.path();
        }
    }
}

// The commands of README.md's blocks "sh" that run the program; a line may go on in the next one.
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

TEST(Package, RunsEveryCommandOfTheReadmeFromAScratchRoot) {
    const support::TemporaryFolder folder;
    const Outcome packed =
        run({"cpack", "-G", "DEB", "--config", (kBuild / "CPackConfig.cmake").string(), "-B", folder.file("packed")});
    ASSERT_EQ(packed.status, 0) << packed.output << packed.errors;
    std::string package;
    for (const auto& file : fs::directory_iterator(folder.path() / "packed")) {
        package = file.path().extension() == ".deb" ? file.path().string() : package;
    }
    EXPECT_NE(run({"dpkg-deb", "-f", package, "Depends"}).output.find("libsqlite3-0"), std::string::npos);
    const fs::path root = folder.path() / "root";
    ASSERT_EQ(run({"dpkg-deb", "-x", package, root.string()}).status, 0);
    for (const char* file :
         {"share/man/man1/quil.1", "share/man/man1/quil-screen.1", "share/bash-completion/completions/quil",
          "share/zsh/vendor-completions/_quil", "share/fish/vendor_completions.d/quil.fish", "share/doc/quil/README.md",
          "share/doc/quil/examples/chlorine-cylinder.json"}) {
        EXPECT_TRUE(fs::exists(root / "usr" / file)) << file;
    }
    const fs::path work = folder.path() / "work";
    fs::create_directories(work);
    fs::create_symlink(root / "usr/bin/quil", work / "quil");
    fs::create_symlink(root / "usr/share/doc/quil/examples", work / "examples");
    const std::vector<std::string> commands = commandsOfReadme();
    ASSERT_GE(commands.size(), 5U);
    for (const std::string& command : commands) {
        const Outcome outcome = run({"bash", "-c", "set -e -o pipefail; " + command}, {.folder = work.string()});
        EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.errors;
    }
    EXPECT_NE(run({(root / "usr/bin/quil").string(), "doctor"}).output.find("(installed with the program)"),
              std::string::npos);
}

}  // namespace
